#include "platform/tables/headings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <vector>

#include "platform/text/conversion.h"

namespace tavlox::tables {
namespace {

using fl::i18n::to_ustring;

constexpr TimeUnit kSeconds{}, kMinutes{"min", 60}, kHours{"h", 3600}, kMilliseconds{"ms", 1, 3},
    kMicroseconds{"us", 1, 6}, kNanoseconds{"ns", 1, 9}, kPicoseconds{"ps", 1, 12},
    kFemtoseconds{"fs", 1, 15};

struct NamedTimeUnit {
  std::string_view written;
  const TimeUnit* unit;
};
// The micro sign and the Greek letter mu look alike, and both are used.
constexpr NamedTimeUnit kTimeUnits[] = {
    {"s", &kSeconds},
    {"sec", &kSeconds},
    {"second", &kSeconds},
    {"seconds", &kSeconds},
    {"ms", &kMilliseconds},
    {"msec", &kMilliseconds},
    {"us", &kMicroseconds},
    {"usec", &kMicroseconds},
    {"\u00B5s", &kMicroseconds},
    {"\u03BCs", &kMicroseconds},
    {"ns", &kNanoseconds},
    {"nsec", &kNanoseconds},
    {"ps", &kPicoseconds},
    {"fs", &kFemtoseconds},
    {"min", &kMinutes},
    {"minutes", &kMinutes},
    {"h", &kHours},
    {"hr", &kHours},
    {"hours", &kHours},
};

// Units that stand in parentheses or behind a slash. Each is unlikely to be anything else there.
constexpr std::string_view kUnits[] = {
    "V",         "mV",     "uV",       "\u00B5V",  "\u03BCV",    "kV",          "MV",        "A",
    "mA",        "uA",     "\u00B5A",  "\u03BCA",  "nA",         "kA",          "W",         "mW",
    "uW",        "kW",     "MW",       "VA",       "kVA",        "var",         "Wh",        "kWh",
    "J",         "mJ",     "kJ",       "MJ",       "N",          "mN",          "kN",        "Nm",
    "N*m",       "N.m",    "N\u00B7m", "kNm",      "Pa",         "hPa",         "kPa",       "MPa",
    "bar",       "mbar",   "psi",      "K",        "degC",       "\u00B0C",     "C",         "degF",
    "\u00B0F",   "Hz",     "kHz",      "MHz",      "GHz",        "rad",         "mrad",      "deg",
    "\u00B0",    "rad/s",  "deg/s",    "\u00B0/s", "rad/s^2",    "rad/s\u00B2", "rpm",       "1/min",
    "1/s",       "m",      "mm",       "um",       "\u00B5m",    "\u03BCm",     "nm",        "cm",
    "km",        "m/s",    "km/h",     "mph",      "m/s^2",      "m/s2",        "m/s\u00B2", "g",
    "kg",        "mg",     "mol",      "s",        "ms",         "us",          "\u00B5s",   "\u03BCs",
    "ns",        "ps",     "fs",       "min",      "h",          "Ohm",         "ohm",       "kOhm",
    "kohm",      "\u03A9", "\u2126",   "k\u03A9",  "F",          "mF",          "uF",        "\u00B5F",
    "nF",        "pF",     "H",        "mH",       "uH",         "\u00B5H",     "S",         "T",
    "mT",        "Wb",     "dB",       "dBm",      "%",          "ppm",         "l",         "l/s",
    "l/min",     "m^2",    "m\u00B2",  "m^3",      "m\u00B3",    "m^3/s",       "m\u00B3/s", "m^3/h",
    "m\u00B3/h", "kg/s",   "kg/h",     "kg/m^3",   "kg/m\u00B3", "W/m^2",       "W/m\u00B2", "lm",
    "lx",        "cd",
};

bool isKnownUnit(std::string_view text) { return std::ranges::find(kUnits, text) != std::end(kUnits); }

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// A heading cut in two, with what stood between: "speed [m/s]" is "speed", "m/s", '[' and a blank before it.
struct Cut {
  std::string_view name, unit;
  char mark = 0;  ///< '[', '(', '/' or '_'; 0 if there is nothing to cut
  bool hasBlank = false;
};

Cut cutAt(std::string_view heading, std::size_t mark, std::size_t unitSize) {
  return {withoutBlanks(heading.substr(0, mark)), withoutBlanks(heading.substr(mark + 1, unitSize)),
          heading[mark], mark > 0 && heading[mark - 1] == ' '};
}

/// Cuts off what stands in the last brackets of that kind, at the end of the heading.
Cut cutBrackets(std::string_view heading, char open, char close) {
  const std::size_t mark = heading.rfind(open);
  if (mark == std::string_view::npos || heading.back() != close) return {};
  return cutAt(heading, mark, heading.size() - mark - 2);
}

/// Cuts at the first, or the last, of such a character.
Cut cutBehind(std::string_view heading, std::size_t mark) {
  if (mark == std::string_view::npos) return {};
  return cutAt(heading, mark, std::string_view::npos);
}

/// Every way to cut the heading, the surest first. Times may be cut in any of them, since a name that is
/// taken for a unit is then no unit of time; names of signals are full of brackets, slashes and underscores,
/// so that theirs have to be looked at more closely.
std::vector<Cut> cutsOf(std::string_view heading) {
  std::vector<Cut> cuts{cutBrackets(heading, '[', ']'), cutBrackets(heading, '(', ')'),
                        cutBehind(heading, heading.find('/')), cutBehind(heading, heading.rfind('_'))};
  // "[V]" alone is a name: every column needs one.
  std::erase_if(cuts, [](const Cut& cut) { return cut.mark == 0 || cut.name.empty(); });
  return cuts;
}

Heading made(std::string_view heading, const Cut& cut) {
  return {to_ustring(heading), to_ustring(cut.name), to_ustring(cut.unit)};
}

/// Whether the last word of the text can stand before a slash in a unit.
bool isFirstOfQuotient(std::string_view text) {
  const std::string_view word = text.substr(text.find_last_of(' ') + 1);
  return word == "1" || isKnownUnit(word);
}

bool isSignalUnit(const Cut& cut) {
  switch (cut.mark) {
    case '[':
      return cut.hasBlank || isKnownUnit(cut.unit);
    case '(':
      return cut.hasBlank && isKnownUnit(cut.unit);
    case '/':
      // "km/h" and "speed in 1/min" end in a unit that has a slash itself.
      return isKnownUnit(cut.unit) && !isFirstOfQuotient(cut.name);
    default:
      return false;
  }
}

/// The number that its shortest text gives with the decimal point moved to the left.
double withPointMoved(double number, int places) {
  char text[48];
  char* const end = std::to_chars(text, std::end(text), number, std::chars_format::scientific).ptr;
  char* const exponent = std::find(text, end, 'e') + 1;
  // A plus sign is written there, but not read.
  int power = 0;
  std::from_chars(exponent + (*exponent == '+' ? 1 : 0), end, power);
  const char* const newEnd = std::to_chars(exponent, std::end(text), power - places).ptr;
  // A number too small for a double stays as it is, which is 0.
  double moved = 0;
  std::from_chars(text, newEnd, moved);
  return moved;
}

}  // namespace

double TimeUnit::toSeconds(double value) const {
  static constexpr double kPowers[] = {1, 1e3, 1e6, 1e9, 1e12, 1e15};
  // Of whole numbers, which most times in small units are, the quotient is already the nearest double.
  const bool isWhole = value == std::trunc(value) || !std::isfinite(value);
  if (decimals == 0 || isWhole) return value * multiplier / kPowers[decimals / 3];
  return withPointMoved(value, decimals);
}

const TimeUnit* findTimeUnit(std::string_view name) {
  const auto* const found = std::ranges::find(kTimeUnits, name, &NamedTimeUnit::written);
  return found == std::end(kTimeUnits) ? nullptr : found->unit;
}

Heading signalHeading(std::string_view heading) {
  for (const Cut& cut : cutsOf(heading))
    if (isSignalUnit(cut)) return made(heading, cut);
  return {to_ustring(heading), to_ustring(heading), std::nullopt};
}

Heading timeHeading(std::string_view heading) {
  for (const Cut& cut : cutsOf(heading)) {
    // An unknown unit in square brackets is for the caller to refuse: wrong times would look right.
    if (findTimeUnit(cut.unit) != nullptr || (cut.mark == '[' && cut.hasBlank)) return made(heading, cut);
  }
  return {to_ustring(heading), to_ustring(heading), std::nullopt};
}

}  // namespace tavlox::tables
