#pragma once

#include <cstdint>
#include <iterator>
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
  /// Nothing if the cell is neither a number nor empty, true, false or one of kMissing.
  std::optional<PlainNumber> read(std::string_view cell);

  /// What programs write, in any case of the letters, where they have no value.
  static constexpr std::string_view kMissing[] = {"NA", "N/A", "#N/A", "null", "-"};

  // How many cells were taken for what they do not say themselves.
  std::uint64_t empty = 0;                          ///< taken for nan
  std::uint64_t missing[std::size(kMissing)] = {};  ///< by word, taken for nan
  std::uint64_t logical = 0;                        ///< true and false, taken for 1 and 0
  std::uint64_t exponents = 0;                      ///< with the letter D, taken for e

 private:
  std::optional<PlainNumber> readWord(std::string_view cell);
  bool rewrite(std::string_view cell);

  NumberStyle style_;
  std::string rewritten_;
};

/// A moment, to the nanosecond.
struct Moment {
  /// How it was written. The times of one table are all written in one way.
  enum class Style {
    YearFirst,  ///< ISO 8601, "2026-03-01T12:00:00.5Z", or with slashes in the date
    DayFirst,   ///< "01.03.2026 12:00:00": with points the day always comes first
    Clock       ///< "12:00:00.5", hours without a date, as many as there are
  };
  Style style = Style::YearFirst;
  std::int64_t seconds =
      0;  ///< since 1970, in UTC, where a time without a zone counts as UTC; Clock: since 0
  std::int32_t nanoseconds = 0;
};

/// Between date and time stands a "T" or a blank; the time may be missing, or have no seconds, which may have
/// up to nine decimals; behind it stands "Z", an offset or neither. A clock has its seconds always.
std::optional<Moment> parseMoment(std::string_view cell);

/// Whether the cell is no moment because it could be two: "01/02/2026", where day and month may stand in
/// either order, a year of two digits, "12:30", which may be hours or minutes.
bool isUnclearMoment(std::string_view cell);

/// Date and time as ISO 8601 writes them, in UTC: "2026-03-01T12:00:00.5Z".
std::string isoText(const Moment& moment);

/// The seconds from one moment to another, exactly: "0.1".
std::string secondsBetween(const Moment& from, const Moment& to);

}  // namespace tavlox::tables
