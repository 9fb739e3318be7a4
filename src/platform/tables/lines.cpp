// Three buffers: a piece as it comes from the file, the bytes of a character that the piece ended in, and the
// decoded text, from whose front the lines are given. The sample that dialects are told by is the text that
// is there before the first line is given.
#include "platform/tables/lines.h"

#include <algorithm>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::tables {
namespace {

using foundation::core::except::raise;

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
// Of the file, by which encoding and dialect are told.
constexpr std::size_t kSampleSize = std::size_t{64} * 1024;
constexpr std::ptrdiff_t kSampleLines = 10;
// Bytes; some million columns.
constexpr std::size_t kLongestLine = std::size_t{16} << 20;

/// Where the line at the front ends, its end included; npos if it is not all there. `isAll` says that nothing
/// follows the text.
std::size_t lineSize(std::string_view text, bool isAll) {
  // The two one after the other, which the library does with vectors; for either of them it goes byte by
  // byte.
  const std::size_t feed = text.find('\n');
  const std::size_t end = std::min(text.substr(0, feed).find('\r'), feed);
  if (end == std::string_view::npos) return isAll ? text.size() : end;
  if (text[end] == '\n') return end + 1;
  // A lone carriage return ends a line too, as old programs write it; one that is the last character may be
  // half of an end.
  if (end + 1 == text.size()) return isAll ? end + 1 : std::string_view::npos;
  return end + (text[end + 1] == '\n' ? 2 : 1);
}

}  // namespace

Lines::Lines(TableFile file) : file_(std::move(file)), piece_(kPieceSize, '\0') {
  encoding_ = findEncoding();
  while (!isAtEnd_ && (text_.size() < kSampleSize || std::ranges::count(text_, '\n') < kSampleLines) &&
         text_.size() < kLongestLine)
    readOn();
}

/// Takes a byte-order mark off the file.
Encoding Lines::findEncoding() {
  const std::string_view bytes = file_.peek(kSampleSize);
  const auto marked = [&](std::string_view mark, Encoding encoding) {
    file_.read(piece_.data(), mark.size());
    return encoding;
  };
  if (bytes.starts_with("\xEF\xBB\xBF")) return marked("\xEF\xBB\xBF", Encoding::Utf8);
  if (bytes.starts_with("\xFF\xFE")) return marked("\xFF\xFE", Encoding::Utf16LittleEndian);
  if (bytes.starts_with("\xFE\xFF")) return marked("\xFE\xFF", Encoding::Utf16BigEndian);
  // Tables begin with ASCII, of which UTF-16 has a zero in each character.
  if (bytes.size() >= 2 && bytes[0] == '\0' && bytes[1] != '\0') return Encoding::Utf16BigEndian;
  if (bytes.size() >= 2 && bytes[0] != '\0' && bytes[1] == '\0') return Encoding::Utf16LittleEndian;
  // The sample may end within a character, so only what is before its last line counts.
  const std::size_t lastLine = bytes.size() < kSampleSize ? bytes.size() : bytes.rfind('\n');
  const bool isUtf8 = fl::i18n::is_well_formed(bytes.substr(0, lastLine));
  return isUtf8 ? Encoding::Utf8 : Encoding::Latin1;
}

std::string_view Lines::sample() const {
  const std::string_view text = std::string_view(text_).substr(start_);
  if (isAtEnd_) return text;
  return text.substr(0, text.find_last_of("\r\n") + 1);
}

std::string_view Lines::next() {
  for (;;) {
    const std::string_view text = std::string_view(text_).substr(start_);
    const std::size_t size = lineSize(text, isAtEnd_);
    if (size != std::string_view::npos) {
      start_ += size;
      if (size > 0) ++number_;
      return text.substr(0, size);
    }
    if (text.size() > kLongestLine) raise("tavlox:record:LineTooLong", file_.name(), number_ + 1, 1);
    readOn();
  }
}

/// False at the end of the file.
bool Lines::readOn() {
  // What was given goes first, so that the text is never longer than a line and a piece.
  text_.erase(0, start_);
  start_ = 0;
  const std::size_t got = file_.read(piece_.data(), piece_.size());
  isAtEnd_ = got == 0;
  decode({piece_.data(), got});
  return got > 0;
}

void Lines::decode(std::string_view bytes) {
  switch (encoding_) {
    case Encoding::Utf8:
      text_ += bytes;
      return;
    case Encoding::Latin1:
      for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x80) {
          text_ += byte;
          continue;
        }
        text_ += static_cast<char>(0xC0 | code >> 6);
        text_ += static_cast<char>(0x80 | (code & 0x3F));
      }
      return;
    default:
      decodeUtf16(bytes);
  }
}

void Lines::decodeUtf16(std::string_view bytes) {
  undecoded_ += bytes;
  const std::size_t high = encoding_ == Encoding::Utf16BigEndian ? 0 : 1;
  const auto unitAt = [&](std::size_t at) {
    const auto byteAt = [&](std::size_t place) { return static_cast<unsigned char>(undecoded_[place]); };
    return static_cast<char16_t>(byteAt(at + high) << 8 | byteAt(at + 1 - high));
  };
  std::u16string text;
  std::size_t at = 0;
  for (; at + 2 <= undecoded_.size(); at += 2) {
    const char16_t unit = unitAt(at);
    // The other half of a pair comes with the next bytes.
    if (!bytes.empty() && unit >= 0xD800 && unit < 0xDC00 && at + 4 > undecoded_.size()) break;
    text += unit;
  }
  undecoded_.erase(0, at);
  // A heading shows U+FFFD where the file is ill-formed; a number with one is refused for it.
  text_ += fl::i18n::to_string_lossy(text);
}

}  // namespace tavlox::tables
