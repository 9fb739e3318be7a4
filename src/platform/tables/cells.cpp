#include "platform/tables/cells.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <limits>

#include <fmt/format.h>

namespace tavlox::tables {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Compares ASCII in either case.
bool isWord(std::string_view cell, std::string_view word) {
  const auto lowered = [](char a) { return a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a; };
  return std::ranges::equal(cell, word, {}, lowered, lowered);
}

/// Takes digits off the front: exactly `count` of them.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count || !std::all_of(text.begin(), text.begin() + count, isDigit)) return std::nullopt;
  int number = 0;
  std::from_chars(text.data(), text.data() + count, number);
  text.remove_prefix(count);
  return number;
}

std::optional<int> takeUpToTwo(std::string_view& text) {
  return takeDigits(text, text.size() > 1 && isDigit(text[1]) ? 2 : 1);
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

/// Takes a date off the front, as days since 1970: "2026-03-01", "2026/03/01", "1.3.2026".
std::optional<std::int64_t> takeDate(std::string_view& text, Moment::Style& style) {
  std::string_view rest = text;
  std::optional<int> year, month, day;
  if (rest.find('.') <= 2) {
    style = Moment::Style::DayFirst;
    day = takeUpToTwo(rest);
    if (!takeOne(rest, '.') || !(month = takeUpToTwo(rest)) || !takeOne(rest, '.')) return std::nullopt;
    year = takeDigits(rest, 4);
  } else {
    year = takeDigits(rest, 4);
    const char separator = rest.starts_with('/') ? '/' : '-';
    if (!takeOne(rest, separator) || !(month = takeDigits(rest, 2)) || !takeOne(rest, separator))
      return std::nullopt;
    day = takeDigits(rest, 2);
  }
  if (!year || !month || !day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  text = rest;
  return std::chrono::sys_days(date).time_since_epoch().count();
}

/// Takes ":mm:ss" off the front, the seconds with decimals, and where `areSecondsNeeded` is false also ":mm".
std::optional<int> takeMinutes(std::string_view& text, std::int32_t& nanoseconds, bool areSecondsNeeded) {
  if (!takeOne(text, ':')) return std::nullopt;
  const auto minute = takeDigits(text, 2);
  const bool hasSeconds = takeOne(text, ':');
  const auto second = hasSeconds ? takeDigits(text, 2) : 0;
  const auto fraction = takeFraction(text);
  // 60 is a leap second.
  if (!minute || !second || !fraction || *minute >= 60 || *second > 60) return std::nullopt;
  if (areSecondsNeeded && !hasSeconds) return std::nullopt;
  nanoseconds = *fraction;
  return *minute * 60 + *second;
}

std::optional<int> takeTimeOfDay(std::string_view& text, std::int32_t& nanoseconds) {
  const auto hour = takeDigits(text, 2);
  const auto rest = hour ? takeMinutes(text, nanoseconds, false) : std::nullopt;
  if (!rest || *hour >= 24) return std::nullopt;
  return *hour * 3'600 + *rest;
}

/// Takes "12:00:00.5" off the front, of which the hours may have up to six digits.
std::optional<std::int64_t> takeClock(std::string_view& text, std::int32_t& nanoseconds) {
  const std::size_t digits = std::min(text.find(':'), text.size());
  if (digits == 0 || digits > 6) return std::nullopt;
  const auto hours = takeDigits(text, digits);
  const auto rest = hours ? takeMinutes(text, nanoseconds, true) : std::nullopt;
  if (!rest) return std::nullopt;
  return std::int64_t{*hours} * 3'600 + *rest;
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

/// ".5", or nothing.
std::string fractionOf(std::int64_t nanoseconds) {
  if (nanoseconds == 0) return {};
  // The leading one keeps the zeros behind the point.
  const std::string decimals = std::to_string(kNanosecondsPerSecond + nanoseconds).substr(1);
  return "." + decimals.substr(0, decimals.find_last_not_of('0') + 1);
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
  const auto* const word =
      std::ranges::find_if(kMissing, [&](std::string_view known) { return isWord(cell, known); });
  if (cell.empty() || word != std::end(kMissing)) {
    ++(cell.empty() ? empty : missing[word - std::begin(kMissing)]);
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
  Moment moment;
  if (const auto days = takeDate(cell, moment.style)) {
    moment.seconds = *days * 86'400;
    if (cell.empty()) return moment;
    if (!takeOne(cell, 'T') && !takeOne(cell, ' ')) return std::nullopt;
    const auto time = takeTimeOfDay(cell, moment.nanoseconds);
    const auto zone = takeZone(cell);
    if (!time || !zone || !cell.empty()) return std::nullopt;
    moment.seconds += *time - *zone;
    return moment;
  }
  moment.style = Moment::Style::Clock;
  const auto time = takeClock(cell, moment.nanoseconds);
  if (!time || !cell.empty()) return std::nullopt;
  moment.seconds = *time;
  return moment;
}

bool isUnclearMoment(std::string_view cell) {
  if (parseMoment(cell)) return false;
  const auto skipDigits = [&] {
    const std::size_t count = std::min(cell.find_first_not_of("0123456789"), cell.size());
    cell.remove_prefix(count);
    return count;
  };
  const std::size_t first = skipDigits();
  if (first == 0 || first > 2 || cell.empty()) return false;
  const char separator = cell.front();
  cell.remove_prefix(1);
  const std::size_t second = skipDigits();
  if (separator == ':') return second == 2 && cell.empty();
  const bool isDate = separator == '/' || separator == '.' || separator == '-';
  if (!isDate || second == 0 || second > 2 || !takeOne(cell, separator)) return false;
  const std::size_t year = skipDigits();
  // With points and a whole year the order is known: that is a day which there is not.
  const bool isUnclear = year == 2 || (year == 4 && separator != '.');
  return isUnclear && (cell.empty() || cell.front() == ' ');
}

std::string isoText(const Moment& moment) {
  const std::chrono::sys_seconds time{std::chrono::seconds(moment.seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                     fractionOf(moment.nanoseconds));
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
  return (isNegative ? "-" : "") + std::to_string(seconds) + fractionOf(nanoseconds);
}

}  // namespace tavlox::tables
