#pragma once

#include <unistd.h>

namespace support {

/// Runs as a user whom file permissions bind: nobody, for as long as this lives, if the test runs as root.
class Unprivileged {
 public:
  Unprivileged() : user_(geteuid()) {
    if (user_ == 0 && seteuid(65534) != 0) _exit(99);
  }
  ~Unprivileged() {
    if (seteuid(user_) != 0) _exit(99);
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  uid_t user_;
};

}  // namespace support
