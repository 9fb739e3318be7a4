#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/progress/progress.h"

/// What may be sent to a person's terminal, and how.
namespace tavlox::cli {

/// Whether the stream goes to a terminal, so that a person reads it, and not to a file or a pipe.
bool isTerminal(std::FILE* stream);

/// How many columns the terminal has now; 80 if it does not say.
std::size_t columnsOf(std::FILE* terminal);

/// Says it on standard error. If that fails there is nowhere left to say so.
void printError(std::string_view text) noexcept;

/// How the person at the terminal wants things shown. There is one terminal, so there is one of these, set
/// when the command line is understood.
enum class ColourChoice { Auto, Always, Never };
struct Habits {
  ColourChoice colours = ColourChoice::Auto;
  bool isWide = false;  ///< tables show every column, however long the lines become
};
Habits& habits();

/// Whether text on this stream may carry colours. Where nothing was chosen: on a terminal that knows colours,
/// unless NO_COLOR is set.
enum class Colours { Off, On };
Colours coloursFor(std::FILE* stream);

/// The text in bold, or as it is.
std::string bold(std::string_view text, Colours colours);

/// UTF-8 on one line that cannot drive a terminal or break a table: tab and line ends become \t, \n and \r;
/// other control characters, line separators and characters that turn the writing direction become \uXXXX.
/// With backslashes doubled the text can be read back; messages, which nobody reads back, keep them.
enum class Backslashes { Doubled, Kept };
std::string singleLine(std::u16string_view text, Backslashes backslashes = Backslashes::Doubled);

/// Columns that UTF-8 text takes on a terminal: two for the wide characters of East Asia and for emoji, none
/// for those that combine with the one before (Unicode Standard Annex 11).
std::size_t displayWidth(std::string_view narrow);

/// The longest beginning of UTF-8 text that takes no more than `width` columns.
std::string cutToWidth(std::string_view narrow, std::size_t width);

/// Shows how far long work of the platform, the module and this program has come: on a terminal's standard
/// error, once it takes longer than a second, and then a few times a second. One stands for the whole run of
/// a command; its line is wiped away before anything else is said, and at the end. Each report is also where
/// an interrupted program ends.
class ProgressDisplay {
 public:
  ProgressDisplay();
  ~ProgressDisplay();

 private:
  using Clock = std::chrono::steady_clock;
  void show(const corvan::Progress& progress);

  Clock::time_point next_;
  std::u16string activity_;       ///< that of the last report
  Clock::time_point began_;       ///< when the first report of it came
  std::uint64_t doneBefore_ = 0;  ///< what that report said was done
  bool isShown_;
  corvan::ProgressSubscription subscription_;
};

/// Wipes the line away, if there is one.
void eraseProgress();

/// "Checking data  [#####...............]  25 %  12.0 MB/s  0:07 left", or the activity alone where no total
/// is known; cut to `width` columns. Speed and time need `bytesPerSecond`, 0 where it is not known yet.
std::string progressLine(const corvan::Progress& progress, std::size_t width, double bytesPerSecond = 0);

}  // namespace tavlox::cli
