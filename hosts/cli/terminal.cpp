#include "hosts/cli/terminal.h"

#include <algorithm>
#include <cstdlib>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

bool drivesTerminal(char16_t unit) {
  if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) return true;
  const bool separator = unit == 0x2028 || unit == 0x2029;
  const bool turnsDirection = (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
  return separator || turnsDirection;
}

void appendEscaped(std::u16string& line, char16_t unit) {
  switch (unit) {
    case u'\\':
      line += u"\\\\";
      return;
    case u'\t':
      line += u"\\t";
      return;
    case u'\n':
      line += u"\\n";
      return;
    case u'\r':
      line += u"\\r";
      return;
    default:
      line += fl::i18n::to_ustring(fmt::format("\\u{:04X}", static_cast<unsigned>(unit)));
  }
}

}  // namespace

void printError(std::string_view text) noexcept {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
}

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

std::size_t columnsOf(std::FILE* terminal) {
  winsize size{};
  if (ioctl(fileno(terminal), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

Colours coloursFor(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  const bool allowed = refused == nullptr || *refused == '\0';
  return allowed && isTerminal(stream) ? Colours::On : Colours::Off;
}

std::string bold(std::string_view text, Colours colours) {
  return colours == Colours::On ? fmt::format("\x1b[1m{}\x1b[0m", text) : std::string(text);
}

std::string singleLine(std::u16string_view text, Backslashes backslashes) {
  std::u16string line;
  line.reserve(text.size());
  for (const char16_t unit : text) {
    if (drivesTerminal(unit) || (unit == u'\\' && backslashes == Backslashes::Doubled)) {
      appendEscaped(line, unit);
    } else {
      line += unit;
    }
  }
  return fl::i18n::to_string_lossy(line);
}

std::size_t displayWidth(std::string_view narrow) {
  return static_cast<std::size_t>(
      std::count_if(narrow.begin(), narrow.end(), [](unsigned char byte) { return (byte & 0xC0) != 0x80; }));
}

}  // namespace tavlox::cli
