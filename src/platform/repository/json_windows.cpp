#include "platform/repository/json_windows.h"

#include <algorithm>
#include <cstring>

#include <simdjson.h>

#include "platform/repository/session_data_error.h"

namespace orra {
namespace {

constexpr std::size_t kWindowBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaximalElementBytes = std::size_t{256} * 1024 * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kWhitespace = " \t\n\r";

}  // namespace

JsonWindows::JsonWindows(ReadBytes read, std::string_view kind)
    : read_(std::move(read)), kind_(kind), buffer_(kWindowBytes + simdjson::SIMDJSON_PADDING) {}

/// Reads behind what is there, in a larger buffer if the current one is full. False at the end of the source.
bool JsonWindows::readOn() {
  std::size_t room = buffer_.size() - simdjson::SIMDJSON_PADDING - filled_;
  if (room == 0) {
    if (filled_ >= kMaximalElementBytes) {
      raiseInvalid(kind_, elementsBefore_ + 1, "it is larger than 256 MiB");
    }
    buffer_.resize(2 * filled_ + simdjson::SIMDJSON_PADDING);
    room = filled_;
  }
  const std::size_t got = read_(buffer_.data() + filled_, room);
  filled_ += got;
  return got != 0;
}

/// Afterwards the buffer starts with the array's bracket.
void JsonWindows::openArray() {
  while (filled_ < kByteOrderMark.size() && readOn()) {
  }
  std::size_t skipped =
      std::string_view(buffer_.data(), filled_).starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  std::size_t bracket;
  while ((bracket = std::string_view(buffer_.data(), filled_).find_first_not_of(kWhitespace, skipped)) ==
         std::string_view::npos) {
    filled_ = skipped = 0;  // white space is not kept, however much there is
    if (!readOn()) raiseInvalid(kind_, 0, "it is empty");
  }
  if (buffer_[bracket] != '[') raiseInvalid(kind_, 0, "it is not a JSON array");
  consumed_ = bracket;
  place_ = Place::InArray;
}

void JsonWindows::requireNothingBehind() {
  std::size_t from = consumed_;
  do {
    const std::string_view rest(buffer_.data() + from, filled_ - from);
    if (rest.find_first_not_of(kWhitespace) != std::string_view::npos) {
      raiseInvalid(kind_, 0, "something follows the array");
    }
    from = filled_ = 0;
  } while (readOn());
}

/// Scans what is there. The window up to the end of the array, or up to the last separator if the buffer is
/// full.
std::optional<JsonWindows::Window> JsonWindows::cut() {
  const char* at = buffer_.data() + scanned_;
  const char* const end = buffer_.data() + filled_;
  auto found = scanner_.advance(at, end);
  for (; found == ElementScanner::Found::Separator; found = scanner_.advance(at, end)) {
    separator_ = static_cast<std::size_t>(at - buffer_.data()) - 1;
    ++separators_;
  }
  scanned_ = static_cast<std::size_t>(at - buffer_.data());

  if (found == ElementScanner::Found::TooDeep) {
    raiseInvalid(kind_, elementsBefore_ + separators_ + 1, "it is nested more than 128 levels deep");
  }
  if (found == ElementScanner::Found::End) {
    place_ = Place::BehindArray;
    consumed_ = scanned_;
    return Window{{buffer_.data(), scanned_}, first_};
  }
  const bool full = filled_ + simdjson::SIMDJSON_PADDING == buffer_.size();
  if (!full || separator_ == 0) return std::nullopt;
  buffer_[separator_] = ']';
  consumed_ = separator_;
  return Window{{buffer_.data(), separator_ + 1}, false};
}

std::optional<JsonWindows::Window> JsonWindows::next(std::size_t elementsBefore) {
  elementsBefore_ = elementsBefore;
  if (place_ == Place::BehindArray) {
    requireNothingBehind();
    return std::nullopt;
  }
  if (place_ == Place::BeforeArray) openArray();
  // The separator that the last window was cut at makes room for the bracket of the next.
  std::memmove(buffer_.data(), buffer_.data() + consumed_, filled_ - consumed_);
  filled_ -= consumed_;
  buffer_[0] = '[';
  scanned_ = 1;
  separator_ = separators_ = consumed_ = 0;
  scanner_ = ElementScanner();
  while (true) {
    if (auto window = cut()) {
      first_ = false;
      return window;
    }
    if (!readOn()) raiseInvalid(kind_, 0, "it ends before its array does");
  }
}

}  // namespace orra
