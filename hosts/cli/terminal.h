#pragma once

#include <cstdio>
#include <string>
#include <string_view>

/// What may be sent to a person's terminal, and how.
namespace tavlox::cli {

bool isTerminal(std::FILE* stream);

/// Says it on standard error. If that fails there is nowhere left to say so.
void printError(std::string_view text) noexcept;

/// How many columns the terminal has; 80 if it does not say.
std::size_t columnsOf(std::FILE* terminal);

/// Whether text on this stream may carry colours: a terminal, and NO_COLOR not set.
enum class Colours { Off, On };
Colours coloursFor(std::FILE* stream);

/// The text in bold, or as it is.
std::string bold(std::string_view text, Colours colours);

/// UTF-8 on one line that cannot drive a terminal or break a table: tab and line ends become \t, \n and \r;
/// other control characters, line separators and marks that turn the writing direction become \uXXXX. With
/// backslashes doubled the text can be read back; messages, which nobody reads back, keep them.
enum class Backslashes { Doubled, Kept };
std::string singleLine(std::u16string_view text, Backslashes backslashes = Backslashes::Doubled);

/// Columns that UTF-8 text takes on a terminal.
std::size_t displayWidth(std::string_view narrow);

}  // namespace tavlox::cli
