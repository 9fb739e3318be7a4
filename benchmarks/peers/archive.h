#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <zip.h>

/// An archive read with libzip, as its manual shows it. What the peers have in common.
class Archive {
 public:
  explicit Archive(const char* path, int flags = 0) : handle_(zip_open(path, ZIP_RDONLY | flags, nullptr)) {
    if (!handle_) throw std::runtime_error(std::string("cannot open ") + path);
  }

  zip_int64_t size() const { return zip_get_num_entries(handle_.get(), 0); }

  zip_stat_t entry(zip_int64_t index) const {
    zip_stat_t entry;
    if (zip_stat_index(handle_.get(), static_cast<zip_uint64_t>(index), 0, &entry) != 0) {
      throw std::runtime_error(zip_strerror(handle_.get()));
    }
    return entry;
  }

  struct Close {
    void operator()(zip_t* archive) const { zip_discard(archive); }
    void operator()(zip_file_t* file) const { zip_fclose(file); }
  };
  using File = std::unique_ptr<zip_file_t, Close>;

  /// `flags` may ask for the data as it is stored, ZIP_FL_COMPRESSED.
  File open(const zip_stat_t& entry, zip_flags_t flags = 0) const {
    File file(zip_fopen_index(handle_.get(), entry.index, flags));
    if (!file) throw std::runtime_error(entry.name);
    return file;
  }

  /// Replaces `text` by all of the entry. The string keeps its memory from entry to entry.
  void read(const zip_stat_t& entry, std::string& text) const {
    text.resize(entry.size);
    const zip_int64_t got = zip_fread(open(entry).get(), text.data(), entry.size);
    if (got != static_cast<zip_int64_t>(entry.size)) throw std::runtime_error(entry.name);
  }

 private:
  std::unique_ptr<zip_t, Close> handle_;
};
