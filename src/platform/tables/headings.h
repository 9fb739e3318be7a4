#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the headings of tables say: names, units, and in which unit the times are.
namespace tavlox::tables {

/// A unit of time.
struct TimeUnit {
  std::string_view name = "s";
  double multiplier = 1;  ///< seconds in one, of units longer than a second
  int decimals = 0;       ///< by how many the point moves in times of shorter ones: 3 for ms

  /// As if it had been written in seconds: 0.1 µs are what "1e-07" reads as, which a division of what "0.1"
  /// reads as does not always give.
  double toSeconds(double value) const;
};

/// Null for what is no unit of time. Takes what people write ("msec", "µs", "hours") and gives the unit under
/// the name that plain tables have it by: s, ms, us, ns, ps, fs, min, h.
const TimeUnit* findTimeUnit(std::string_view name);

/// A column's heading, taken apart.
struct Heading {
  std::u16string written, name;
  std::optional<std::u16string> unit;
  /// As sessions call it: "int32", "boolean". Of a text it is known once the last row was read; whole numbers
  /// are double too, since that a column has no others so far says nothing of what it may hold.
  std::u16string dataType = u"double";
};

/// The heading of a signal, from UTF-8. A unit stands behind the name as " [unit]", whatever it is, and as
/// "[unit]", " (unit)" or "/unit" if it is one of a list of common ones: "bus[3]", "v(out)", "gain (old)" and
/// "in/out" are names. "wheel_speed" always is: too many names have an underscore.
Heading signalHeading(std::string_view heading);

/// The heading of the time. A unit stands behind the name as "[unit]", "(unit)", "/unit" or "_unit". With the
/// first, it may be one that findTimeUnit does not know; the others are then part of the name.
Heading timeHeading(std::string_view heading);

}  // namespace tavlox::tables
