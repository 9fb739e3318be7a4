#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <boost/iostreams/categories.hpp>

#include "platform/files/filesystem.h"
#include "platform/opc/part_name.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/spool.h"

namespace opc {

class OpenPackage;

/// The data of one part, front to back: its entry in the file, or what was written since. Size and checksum
/// have been checked when the end is reached.
class InputStream {
 public:
  /// Raises opc::Exception if there is no such part, or its new data is not complete.
  InputStream(std::shared_ptr<OpenPackage> package, model::PartName part);

  /// Up to `count` bytes; 0 at the end. Raises opc::Exception if the data is broken or the package was
  /// closed.
  std::size_t read(void* into, std::size_t count);
  /// Closes the data and opens it again: the next read begins at the first byte.
  void restart();
  /// Bytes of all the data.
  std::uint64_t size() const { return size_; }

 private:
  std::shared_ptr<OpenPackage> package_;
  model::PartName part_;
  std::uint64_t size_ = 0;
  // One of the two readers, or neither at the end and for a part without data.
  std::optional<zip::EntryReader> entry_;
  std::shared_ptr<zip::Spool> data_;  // outlives its reader
  std::optional<zip::Spool::Reader> written_;
};

namespace model {
class Package;
}

/// Takes the new data of one part. The last reference ends it.
class OutputStream {
 public:
  OutputStream(std::shared_ptr<OpenPackage> package, std::shared_ptr<zip::Spool> data);
  ~OutputStream();
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  /// Raises opc::Exception if the data cannot be kept (full disk) or the package was closed.
  void write(const void* data, std::size_t count);
  /// Says that the data will not be whole: the package is not saved unless the part is deleted or written
  /// anew.
  void abandon() noexcept { data_->abandon(); }

  /// UTF-8.
  const std::string& packagePath() const;

 private:
  friend class model::Package;
  std::shared_ptr<OpenPackage> package_;
  std::shared_ptr<zip::Spool> data_;
};

/// The Boost.Iostreams device over a part's input stream.
class InputStreamSource {
 public:
  using char_type = char;
  using category = boost::iostreams::source_tag;

  explicit InputStreamSource(std::shared_ptr<InputStream> input) : input_(std::move(input)) {}
  /// Bytes read, or -1 at the end.
  std::streamsize read(char* into, std::streamsize count);

 private:
  std::shared_ptr<InputStream> input_;
};

/// Writes everything that is left to a file, from its start, in constant memory. Reports its progress.
/// Raises opc::Exception if the stream cannot be read or the file (a descriptor) not be written.
void copyStream(InputStream& from, int file);
/// Takes in all of a file from its start, reporting progress too. If it cannot be read to its end the data is
/// abandoned, and raises opc::Exception with the package and `name`, the file's.
void copyFile(const fl::filesystem::OpenFile& from, std::u16string_view name, OutputStream& to);

}  // namespace opc
