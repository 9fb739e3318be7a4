#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/tables/table_file.h"

namespace tavlox::tables {

/// How the characters of a text are stored. Utf8 is also what is told when a byte-order mark says so.
enum class Encoding { Utf8, Utf16LittleEndian, Utf16BigEndian, Latin1 };

/// The lines of a text file, as UTF-8 whatever its encoding. That is told by a byte-order mark, or by its
/// first bytes: zeros in every other one are UTF-16, what is no UTF-8 is Latin-1. Memory does not grow with
/// the file, only with its longest line.
class Lines {
 public:
  /// Raises what reading raises.
  explicit Lines(TableFile file);

  /// The first lines, whole ones: all of them or 64 KiB and at least some ten. They come again from `next`.
  std::string_view sample() const;

  /// The next line with its end, if it has one ("\n", "\r\n" or "\r"); an empty text at the end of the file.
  /// Lasts until the next call. Raises tavlox:record:LineTooLong beyond 16 MiB.
  std::string_view next();

  /// Of the line given last, from 1.
  std::uint64_t number() const { return number_; }
  Encoding encoding() const { return encoding_; }
  const TableFile& file() const { return file_; }

 private:
  Encoding findEncoding();
  bool readOn();
  void decode(std::string_view bytes);
  void decodeUtf16(std::string_view bytes);

  TableFile file_;
  Encoding encoding_ = Encoding::Utf8;
  std::string text_;  ///< decoded and not given yet, from start_ on
  std::size_t start_ = 0;
  std::string piece_;      ///< as it is read
  std::string undecoded_;  ///< half of a character
  bool isAtEnd_ = false;
  std::uint64_t number_ = 0;
};

}  // namespace tavlox::tables
