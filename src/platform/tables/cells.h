#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What a cell of a table may be written as, and the number that it is in plain form. Nothing here depends on
/// the locale.
namespace tavlox::tables {

/// How numbers are written.
struct NumberStyle {
  char decimal = '.';
  char thousands = 0;  ///< stands between groups of digits; 0 for nothing
};

/// The cell as a number, if all of it is one as programs write them: decimal point, "nan", "inf", a sign.
std::optional<double> parseNumber(std::string_view cell);

/// Puts cells into plain form, digit for digit.
class CellReader {
 public:
  /// What a cell was written as. An empty one is of no kind.
  enum Kind : unsigned char { Number = 1, Logical = 2 };

  explicit CellReader(NumberStyle style = {}) : style_(style) {}

  /// A number with its number in plain form. `text` is the cell itself if that is plain already; otherwise it
  /// lasts until the next call.
  struct PlainNumber {
    std::string_view text;
    double value;
    unsigned char kind = Number;
  };
  /// Nothing if the cell is no number, neither empty, NA, true nor false.
  std::optional<PlainNumber> read(std::string_view cell);

  // How many cells were taken for what they do not say themselves.
  std::uint64_t missing = 0;    ///< empty and NA, taken for nan
  std::uint64_t logical = 0;    ///< true and false, taken for 1 and 0
  std::uint64_t exponents = 0;  ///< with the letter D, taken for e

 private:
  std::optional<PlainNumber> readWord(std::string_view cell);
  bool rewrite(std::string_view cell);

  NumberStyle style_;
  std::string rewritten_;
};

/// A moment as ISO 8601 writes it, to the nanosecond: "2026-03-01T12:00:00.5Z".
struct Moment {
  std::int64_t seconds = 0;  ///< since 1970, in UTC; a time without a zone counts as UTC
  std::int32_t nanoseconds = 0;
};

/// Date and time with a "T" or a blank between, seconds with up to nine decimals if at all, "Z" or an offset
/// behind them or neither.
std::optional<Moment> parseMoment(std::string_view cell);

/// The seconds from one moment to another, exactly: "0.1".
std::string secondsBetween(const Moment& from, const Moment& to);

}  // namespace tavlox::tables
