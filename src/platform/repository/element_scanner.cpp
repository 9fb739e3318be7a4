#include "platform/repository/element_scanner.h"

#include <array>

#include "platform/repository/json_windows.h"

namespace orra {
namespace {

/// Whether a byte outside of texts matters to the nesting. Most do not, so they are passed by one look into
/// this table.
constexpr auto kMatters = [] {
  std::array<bool, 256> matters{};
  for (const unsigned char c : {'"', ',', '{', '}', '[', ']'}) matters[c] = true;
  return matters;
}();

}  // namespace

/// Whether the text ended within the piece.
bool ElementScanner::skipText(const char*& at, const char* end) {
  while (at != end) {
    const char c = *at++;
    if (escaped_) {
      escaped_ = false;
    } else if (c == '\\') {
      escaped_ = true;
    } else if (c == '"') {
      return true;
    }
  }
  return false;
}

ElementScanner::Found ElementScanner::advance(const char*& at, const char* end) {
  while (true) {
    if (inText_ && !skipText(at, end)) return Found::Nothing;
    inText_ = false;
    while (at != end && !kMatters[static_cast<unsigned char>(*at)]) ++at;
    if (at == end) return Found::Nothing;
    switch (*at++) {
      case '"':
        inText_ = true;
        break;
      case ',':
        if (depth_ == 0) return Found::Separator;
        break;
      case '{':
      case '[':
        // The array itself is the first level.
        if (++depth_ >= kMaximalDepth) return Found::TooDeep;
        break;
      default:
        if (depth_-- == 0) return Found::End;
    }
  }
}

}  // namespace orra
