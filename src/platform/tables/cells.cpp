#include "platform/tables/cells.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <limits>

namespace tavlox::tables {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Compares ASCII in either case with lower case.
bool isWord(std::string_view cell, std::string_view lowerCase) {
  return std::ranges::equal(cell, lowerCase, [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
  });
}

/// Takes digits off the front: exactly `count` of them.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count || !std::all_of(text.begin(), text.begin() + count, isDigit)) return std::nullopt;
  int number = 0;
  std::from_chars(text.data(), text.data() + count, number);
  text.remove_prefix(count);
  return number;
}

/// Takes the character off the front, if it is there.
bool takeOne(std::string_view& text, char character) {
  if (!text.starts_with(character)) return false;
  text.remove_prefix(1);
  return true;
}

/// Takes ".5" or ",5" off the front, as nanoseconds. Nothing if there are more decimals than are kept.
std::optional<std::int32_t> takeFraction(std::string_view& text) {
  if (!text.starts_with('.') && !text.starts_with(',')) return 0;
  text.remove_prefix(1);
  std::int32_t nanoseconds = 0, place = static_cast<std::int32_t>(kNanosecondsPerSecond / 10);
  if (text.empty() || !isDigit(text.front())) return std::nullopt;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1), place /= 10) {
    if (place == 0 && text.front() != '0') return std::nullopt;
    nanoseconds += (text.front() - '0') * place;
  }
  return nanoseconds;
}

/// Takes "Z", "+01:00", "+0100" or "+01" off the front, as seconds ahead of UTC.
std::optional<int> takeZone(std::string_view& text) {
  if (text.empty() || takeOne(text, 'Z')) return 0;
  const bool isBehind = text.starts_with('-');
  if (!takeOne(text, '-') && !takeOne(text, '+')) return std::nullopt;
  const std::optional<int> hours = takeDigits(text, 2);
  takeOne(text, ':');
  const std::optional<int> minutes = text.empty() ? 0 : takeDigits(text, 2);
  if (!hours || !minutes) return std::nullopt;
  return (isBehind ? -60 : 60) * (*hours * 60 + *minutes);
}

}  // namespace

std::optional<double> parseNumber(std::string_view cell) {
  // from_chars knows no plus sign, but some simulators write one.
  if (cell.starts_with('+') && !cell.starts_with("+-")) cell.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), number);
  if (error != std::errc() || end != cell.data() + cell.size()) return std::nullopt;
  return number;
}

std::optional<CellReader::PlainNumber> CellReader::read(std::string_view cell) {
  // Almost every cell is a number; with a decimal comma, one that has neither is.
  if (style_.decimal == '.') {
    if (const auto number = parseNumber(cell)) return PlainNumber{cell, *number};
  }
  if (const auto word = readWord(cell)) return word;
  if (!rewrite(cell)) return std::nullopt;
  if (const auto number = parseNumber(rewritten_)) return PlainNumber{rewritten_, *number};
  return std::nullopt;
}

std::optional<CellReader::PlainNumber> CellReader::readWord(std::string_view cell) {
  // The words are short; longer cells need no comparison.
  if (cell.size() > 5) return std::nullopt;
  if (cell.empty() || isWord(cell, "na") || isWord(cell, "n/a")) {
    ++missing;
    return PlainNumber{"nan", std::numeric_limits<double>::quiet_NaN(), 0};
  }
  const bool isTrue = isWord(cell, "true");
  if (!isTrue && !isWord(cell, "false")) return std::nullopt;
  ++logical;
  return isTrue ? PlainNumber{"1", 1, Logical} : PlainNumber{"0", 0, Logical};
}

/// Writes the cell as a plain number; false if it cannot be one.
bool CellReader::rewrite(std::string_view cell) {
  rewritten_.clear();
  bool hasDecimal = false, hasLetter = false;
  for (std::size_t at = 0; at < cell.size(); ++at) {
    const char character = cell[at];
    if (character == style_.decimal) {
      // A digit must follow a comma: "0, 1, 2" is a list with another delimiter.
      if (hasDecimal || (character == ',' && (at + 1 == cell.size() || !isDigit(cell[at + 1])))) return false;
      hasDecimal = true;
      rewritten_ += '.';
      continue;
    }
    if (character == style_.thousands && style_.thousands != 0) {
      if (at == 0 || hasDecimal || hasLetter) return false;
      continue;
    }
    if (character == '.') return false;  // both a comma and a point: only --thousands says what that is
    const bool isExponent = (character == 'D' || character == 'd') && at > 0 && !hasLetter;
    if (isExponent) ++exponents;
    hasLetter = hasLetter || !(isDigit(character) || character == '-' || character == '+');
    rewritten_ += isExponent ? 'e' : character;
  }
  return !rewritten_.empty();
}

std::optional<Moment> parseMoment(std::string_view cell) {
  const auto year = takeDigits(cell, 4);
  if (!year || !takeOne(cell, '-')) return std::nullopt;
  const auto month = takeDigits(cell, 2);
  if (!month || !takeOne(cell, '-')) return std::nullopt;
  const auto day = takeDigits(cell, 2);
  if (!day || !(takeOne(cell, 'T') || takeOne(cell, ' '))) return std::nullopt;
  const auto hour = takeDigits(cell, 2);
  if (!hour || !takeOne(cell, ':')) return std::nullopt;
  const auto minute = takeDigits(cell, 2);
  if (!minute) return std::nullopt;
  const auto second = takeOne(cell, ':') ? takeDigits(cell, 2) : 0;
  if (!second) return std::nullopt;
  const auto fraction = takeFraction(cell);
  const auto zone = takeZone(cell);
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  // 60 is a leap second.
  const bool isPossible = date.ok() && *hour < 24 && *minute < 60 && *second <= 60;
  if (!fraction || !zone || !cell.empty() || !isPossible) return std::nullopt;
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  return Moment{days * 86'400 + *hour * 3'600 + *minute * 60 + *second - *zone, *fraction};
}

std::string secondsBetween(const Moment& from, const Moment& to) {
  std::int64_t seconds = to.seconds - from.seconds, nanoseconds = to.nanoseconds - from.nanoseconds;
  // Sign and magnitude, as decimal numbers are written.
  const bool isNegative = seconds < 0 || (seconds == 0 && nanoseconds < 0);
  if (isNegative) {
    seconds = -seconds;
    nanoseconds = -nanoseconds;
  }
  if (nanoseconds < 0) {
    --seconds;
    nanoseconds += kNanosecondsPerSecond;
  }
  std::string text = (isNegative ? "-" : "") + std::to_string(seconds);
  if (nanoseconds == 0) return text;
  // The leading one keeps the zeros behind the point.
  std::string decimals = std::to_string(kNanosecondsPerSecond + nanoseconds).substr(1);
  return text + "." + decimals.substr(0, decimals.find_last_not_of('0') + 1);
}

}  // namespace tavlox::tables
