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
#include <utf8proc.h>

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

/// "  12.0 MB/s  0:07 left"
std::string pace(const corvan::Progress& progress, double bytesPerSecond) {
  if (bytesPerSecond <= 0 || progress.done >= progress.total) return {};
  const auto left =
      static_cast<std::uint64_t>(static_cast<double>(progress.total - progress.done) / bytesPerSecond);
  const std::string time = left < 3600
                               ? fmt::format("{}:{:02}", left / 60, left % 60)
                               : fmt::format("{}:{:02}:{:02}", left / 3600, left / 60 % 60, left % 60);
  return fmt::format("  {:.1f} MB/s  {} left", bytesPerSecond / 1e6, time);
}

/// Calls `take` with each character of UTF-8 text and the columns it takes, until that returns false.
template <class Take>
void forEachCharacter(std::string_view text, const Take& take) {
  while (!text.empty()) {
    utf8proc_int32_t character = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    // A byte that is no UTF-8 takes the place of a character.
    const auto length = std::max<utf8proc_ssize_t>(
        1, utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &character));
    const int width = character < 0 ? 1 : utf8proc_charwidth(character);
    if (!take(text.substr(0, static_cast<std::size_t>(length)), static_cast<std::size_t>(std::max(0, width))))
      return;
    text.remove_prefix(static_cast<std::size_t>(length));
  }
}

}  // namespace

Habits& habits() {
  static Habits chosen;
  return chosen;
}

std::size_t columnsOf(std::FILE* terminal) {
  // Asked each time: windows are resized while work goes on.
  winsize size{};
  if (ioctl(fileno(terminal), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

void printError(std::string_view text) noexcept {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
}

Colours coloursFor(std::FILE* stream) {
  if (habits().colours == ColourChoice::Never) return Colours::Off;
  if (habits().colours == ColourChoice::Always) return Colours::On;
  const char* const refused = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  // By the convention of NO_COLOR an empty value counts as not set.
  const bool isAllowed = refused == nullptr || *refused == '\0';
  const bool isKnown = terminal != nullptr && std::string_view(terminal) != "dumb";
  return isAllowed && isKnown && isTerminal(stream) ? Colours::On : Colours::Off;
}

std::string bold(std::string_view text, Colours colours) {
  return colours == Colours::On ? fmt::format("\x1b[1m{}\x1b[0m", text) : std::string(text);
}

std::string singleLine(std::u16string_view text, Backslashes backslashes) {
  const auto isEscaped = [backslashes](char16_t unit) {
    return drivesTerminal(unit) || (unit == u'\\' && backslashes == Backslashes::Doubled);
  };
  // Nearly all texts are shown as they are.
  if (std::ranges::none_of(text, isEscaped)) return fl::i18n::to_string_lossy(text);
  std::u16string line;
  line.reserve(text.size());
  for (const char16_t unit : text) isEscaped(unit) ? line += escaped(unit) : line += unit;
  return fl::i18n::to_string_lossy(line);
}

std::size_t displayWidth(std::string_view narrow) {
  std::size_t columns = 0;
  forEachCharacter(narrow, [&](std::string_view, std::size_t width) {
    columns += width;
    return true;
  });
  return columns;
}

std::string cutToWidth(std::string_view narrow, std::size_t width) {
  std::string text;
  forEachCharacter(narrow, [&](std::string_view character, std::size_t columns) {
    if (columns > width) return false;
    width -= columns;
    text += character;
    return true;
  });
  return text;
}

std::string progressLine(const corvan::Progress& progress, std::size_t width, double bytesPerSecond) {
  // An activity may name a file, and so hold whatever a name can hold.
  const std::string activity = singleLine(progress.activity, Backslashes::Kept);
  if (progress.total == 0) return cutToWidth(activity + " ...", width);
  std::string share = bar(progress.done, progress.total);
  const std::string speed = pace(progress, bytesPerSecond);
  // On a narrow terminal the words say more than the bar, and the bar more than the speed.
  if (displayWidth(activity) + 2 + share.size() + speed.size() <= width) share += speed;
  if (width < kShortestActivity + 2 + share.size()) return cutToWidth(activity, width);
  return fmt::format("{}  {}", cutToWidth(activity, width - share.size() - 2), share);
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
  // Work that was there before is not counted: it may have been there before the program began.
  if (activity_ != progress.activity || progress.done < doneBefore_) {
    activity_ = progress.activity;
    began_ = now;
    doneBefore_ = progress.done;
  }
  const double seconds = std::chrono::duration<double>(now - began_).count();
  const double speed = seconds > 0.5 ? static_cast<double>(progress.done - doneBefore_) / seconds : 0;
  // The last column stays free: a full line would move some terminals to the next one.
  const std::string line = progressLine(progress, columnsOf(stderr) - 1, speed);
  printError(fmt::format("\r{}\x1b[K", line));
}

void eraseProgress() {
  // To the first column, then erase to the end of the line.
  if (isProgressShown) printError("\r\x1b[K");
  isProgressShown = false;
}

}  // namespace tavlox::cli
