#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <iosfwd>
#include <memory>

#include <boost/iostreams/categories.hpp>

namespace opc {

/// The data of one part, front to back. Size and checksum have been checked when the end is reached.
class InputStream {
 public:
  virtual ~InputStream();
  /// Up to `count` bytes; 0 at the end. Raises opc::Exception if the data is broken or the package was
  /// closed.
  virtual std::size_t read(void* into, std::size_t count) = 0;
  /// Closes the data and opens it again: the next read begins at the first byte.
  virtual void restart() = 0;
};

/// Takes the data of one new part.
class OutputStream {
 public:
  virtual ~OutputStream();
  /// Raises opc::Exception if the data cannot be kept (full disk).
  virtual void write(const void* data, std::size_t count) = 0;
  /// Says that the data will not be whole: the package is not saved unless the part is deleted or written
  /// anew.
  virtual void abandon() noexcept = 0;
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

/// Copies everything that is left, in constant memory, and gives the number of bytes. Reports its progress;
/// `expected` is how many bytes there will be, 0 if that is not known. Raises opc::Exception when the stream
/// goes bad while it is read from or written to; a part that was being written is then abandoned.
std::uint64_t copyStream(InputStream& from, std::ostream& to, std::uint64_t expected = 0);
std::uint64_t copyStream(std::istream& from, OutputStream& to, std::uint64_t expected = 0);

}  // namespace opc
