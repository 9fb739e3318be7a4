#pragma once

#include <csignal>

#include <sys/resource.h>

namespace support {

/// A disk that is full past `bytes` in each file, for as long as this lives: writes fail with a reason, as
/// they do on a disk without room.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*signal_)(int);
  rlimit before_{};
};

}  // namespace support
