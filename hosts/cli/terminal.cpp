// Texts from packages are shown on terminals, and packages come from strangers. An escape character would let
// a name move the cursor, rewrite earlier lines or set the title of the window; a line end would let it forge
// a row of a table; a character that turns the writing direction would let it show another name than the file
// has. All of them are shown as escapes.
#include "hosts/cli/terminal.h"

#include <algorithm>
#include <cstdlib>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "hosts/cli/temporary_folder.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using namespace std::chrono_literals;

// Columns.
constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kShortestActivity = 10;

// Whether the cursor stands behind a progress line. There is one terminal, and everything that prints has to
// know.
bool isProgressShown = false;

bool drivesTerminal(char16_t unit) {
  // The C0 controls, DEL, and the C1 controls: many terminals obey those too.
  if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) return true;
  const bool separator = unit == 0x2028 || unit == 0x2029;
  const bool turnsDirection = (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
  return separator || turnsDirection;
}

std::u16string escaped(char16_t unit) {
  switch (unit) {
    case u'\\':
      return u"\\\\";
    case u'\t':
      return u"\\t";
    case u'\n':
      return u"\\n";
    case u'\r':
      return u"\\r";
    default:
      return fl::i18n::to_ustring(fmt::format("\\u{:04X}", static_cast<unsigned>(unit)));
  }
}

/// "[#####...............]  25 %"
std::string bar(std::uint64_t done, std::uint64_t total) {
  // More than all can be done: a file may grow while it is read.
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  const auto filled = static_cast<std::size_t>(share * kBarWidth);
  return fmt::format("[{:.<{}}] {:3} %", std::string(filled, '#'), kBarWidth, static_cast<int>(share * 100));
}

/// Whether the byte is not one of those that continue a character in UTF-8 (10xxxxxx).
bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

/// The first `width` characters of UTF-8 text.
std::string cut(const std::string& text, std::size_t width) {
  std::size_t end = 0;
  for (std::size_t shown = 0; end < text.size(); ++end) {
    if (beginsCharacter(text[end]) && ++shown > width) break;
  }
  return text.substr(0, end);
}

}  // namespace

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

std::size_t columnsOf(std::FILE* terminal) {
  // Asked each time: windows are resized while work goes on.
  winsize size{};
  if (ioctl(fileno(terminal), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

void printError(std::string_view text) noexcept {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
}

Colours coloursFor(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  // By the convention of NO_COLOR an empty value counts as not set.
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
    const bool isDoubled = unit == u'\\' && backslashes == Backslashes::Doubled;
    drivesTerminal(unit) || isDoubled ? line += escaped(unit) : line += unit;
  }
  return fl::i18n::to_string_lossy(line);
}

std::size_t displayWidth(std::string_view narrow) {
  return static_cast<std::size_t>(std::ranges::count_if(narrow, beginsCharacter));
}

std::string progressLine(const corvan::Progress& progress, std::size_t width) {
  // An activity may name a file, and so hold whatever a name can hold.
  const std::string activity = singleLine(progress.activity, Backslashes::Kept);
  if (progress.total == 0) return cut(activity + " ...", width);
  const std::string share = bar(progress.done, progress.total);
  // On a narrow terminal the words say more than the bar.
  if (width < kShortestActivity + 2 + share.size()) return cut(activity, width);
  return fmt::format("{}  {}", cut(activity, width - share.size() - 2), share);
}

ProgressDisplay::ProgressDisplay()
    // Most commands are done before anything is shown.
    : next_(Clock::now() + 1s),
      isShown_(isTerminal(stderr)),
      subscription_([this](const auto& progress) { show(progress); }) {}

ProgressDisplay::~ProgressDisplay() { eraseProgress(); }

void ProgressDisplay::show(const corvan::Progress& progress) {
  // What takes long enough to report is also what can be told to end.
  endIfInterrupted();
  if (!isShown_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + 200ms;
  isProgressShown = true;
  // The last column stays free: a full line would move some terminals to the next one.
  const std::string line = progressLine(progress, columnsOf(stderr) - 1);
  printError(fmt::format("\r{}\x1b[K", line));
}

void eraseProgress() {
  // To the first column, then erase to the end of the line.
  if (isProgressShown) printError("\r\x1b[K");
  isProgressShown = false;
}

}  // namespace tavlox::cli
