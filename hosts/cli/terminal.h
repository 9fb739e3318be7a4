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

/// Whether text on this stream may carry colours: a terminal, and NO_COLOR not set.
enum class Colours { Off, On };
Colours coloursFor(std::FILE* stream);

/// The text in bold, or as it is.
std::string bold(std::string_view text, Colours colours);

/// UTF-8 on one line that cannot drive a terminal or break a table: tab and line ends become \t, \n and \r;
/// other control characters, line separators and characters that turn the writing direction become \uXXXX.
/// With backslashes doubled the text can be read back; messages, which nobody reads back, keep them.
enum class Backslashes { Doubled, Kept };
std::string singleLine(std::u16string_view text, Backslashes backslashes = Backslashes::Doubled);

/// Columns that UTF-8 text takes on a terminal, one for each character: wide and combining characters, of
/// which terminals disagree, are counted as one too.
std::size_t displayWidth(std::string_view narrow);

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
  bool isShown_;
  corvan::ProgressSubscription subscription_;
};

/// Wipes the line away, if there is one.
void eraseProgress();

/// "Loading signals  [#####...............]  25 %", or the activity alone where no total is known; cut to
/// `width` columns.
std::string progressLine(const corvan::Progress& progress, std::size_t width);

}  // namespace tavlox::cli
