// The table of all commands, and the help that is put together from their records. Nothing in the help is
// written twice: the usage line, the parameters and the list of commands come from the same records that the
// parser is set up with, so they cannot contradict what is accepted.
#include "hosts/cli/command.h"

#include <algorithm>

#include <fmt/format.h>

namespace tavlox::cli {

// Each is defined in the file of its name. They are declared here, not in a header: only this table needs
// them.
extern const Command kAdd, kCheck, kCompare, kCompression, kDelete, kDescribe, kExport, kGet, kIndex, kInfo,
    kList, kPlot, kRecord, kRecover, kReport, kRuns, kSearch, kSignals;

namespace {

// In the order of the help: making and reading sessions, people's own files, damaged packages,
// many sessions.
const Command* const kCommands[] = {
    &kRecord,  &kInfo, &kRuns, &kSignals, &kCompression, &kDescribe, &kExport,  &kPlot,  &kReport,
    &kCompare, &kList, &kAdd,  &kGet,     &kDelete,      &kCheck,    &kRecover, &kIndex, &kSearch,
};

// These stand before or behind the command's name.
constexpr Parameter kCommon[] = {
    {"--color", Takes::Value, "Colours: auto, always or never; by default auto", "WHEN"},
    {"--wide", Takes::Flag, "Show all columns of a table, also those that the terminal has no room for"},
    {"--json", Takes::Flag, "Write JSON: results on standard output, errors on standard error"},
    {"--module", Takes::Value,
     "The module to load; by default ../lib/tavlox/tavlox_io.so, seen from this program", "PATH"},
};

// Shown first: most people look for a line to copy.
constexpr std::string_view kGeneralExamples = R"help(Examples:
  tavlox record rc.tavlox nominal.csv hot.csv   make a session of two tables
  tavlox info rc.tavlox                         show what is in it
  tavlox runs rc.tavlox                         show its runs
  tavlox signals rc.tavlox --name "v(out)"      show the signals of that name
  tavlox describe rc.tavlox "RC filter"         say what it is
  tavlox add rc.tavlox notes.txt                keep a file of your own in it
  tavlox get rc.tavlox notes.txt -o copies      and take it out again
  tavlox info --json *.tavlox                   the same for other programs
)help";

// Columns of a line of help, on the narrowest terminal that is usual.
constexpr std::size_t kHelpWidth = 80;

/// Adds words, each behind a blank or on a new line that begins with `indent` blanks. `column` is where the
/// last line of the help ends.
void appendFilled(std::string& help, std::size_t& column, std::string_view words, std::size_t indent) {
  while (!(words = words.substr(std::min(words.size(), words.find_first_not_of(" \n")))).empty()) {
    const std::string_view word = words.substr(0, words.find_first_of(" \n"));
    words.remove_prefix(word.size());
    if (column > indent && column + 1 + word.size() > kHelpWidth) {
      help.append("\n").append(indent, ' ');
      column = indent;
    } else if (column > indent) {
      help += ' ';
      ++column;
    }
    help += word;
    column += word.size();
  }
}

/// Whole lines, filled paragraph by paragraph. Lines that begin with blanks are examples, which are kept.
std::string filled(std::string_view lines) {
  std::string text;
  std::size_t column = 0;
  const auto endLine = [&] {
    if (column > 0) text += '\n';
    column = 0;
  };
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    lines.remove_prefix(std::min(lines.size(), line.size() + 1));
    if (!line.empty() && !line.starts_with(' ')) {
      appendFilled(text, column, line, 0);
      continue;
    }
    endLine();
    text.append(line) += '\n';
  }
  endLine();
  return text;
}

/// A line of a list in the help, filled into the column behind the terms, which fits the longest there is.
void appendLine(std::string& help, std::string_view term, std::string_view meaning) {
  constexpr std::size_t kIndent = 23;
  help += fmt::format("  {:<20} ", term);
  std::size_t column = kIndent;
  if (term.size() > kIndent - 3) {
    help.append("\n").append(kIndent, ' ');
  }
  appendFilled(help, column, meaning, kIndent);
  help += '\n';
}

void appendParameters(std::string& help, std::span<const Parameter> parameters) {
  for (const Parameter& parameter : parameters) appendLine(help, placeholder(parameter), parameter.help);
}

/// The usage in lines of the help's width; what follows the first is indented.
std::string wrappedUsage(const Command& command) {
  constexpr std::size_t kIndent = std::string_view("Usage: ").size();
  constexpr char kNoBreak = '\x01';
  std::string words = usage(command);
  // What stands in brackets stays together: "[-o FOLDER]".
  bool isInBrackets = false;
  for (char& character : words) {
    if (character == '[' || character == ']') isInBrackets = character == '[';
    if (character == ' ' && isInBrackets) character = kNoBreak;
  }
  std::string text;
  std::size_t column = kIndent;
  appendFilled(text, column, words, kIndent);
  std::ranges::replace(text, kNoBreak, ' ');
  return text;
}

}  // namespace

const std::string_view kOutputRules =
    R"(Results go to standard output, everything else to standard error. Tables are aligned on a terminal and
tab-separated, without headings, everywhere else. Backslashes, tabs, line ends and control characters in
a value are written as \\, \t, \n, \r and \u001B. Colours are left out when NO_COLOR is set or TERM is dumb.
With --json each error and warning is an object on a line of its own.
)";

const std::string_view kExitCodes =
    "0 done, 1 the operation failed, 2 the command line is wrong, 3 done, and damage or a difference was "
    "found.";

std::string detailsOf(const Command& command) {
  std::string details(command.details);
  for (const Parameter& parameter : command.parameters)
    if (!parameter.details.empty()) details += fmt::format("\n{}", parameter.details);
  return details;
}

std::string placeholder(const Parameter& parameter) {
  switch (parameter.takes) {
    case Takes::OneOrMore:
    case Takes::Any:
      return fmt::format("{}...", parameter.name);
    case Takes::Value:
    case Takes::Values:
      return fmt::format("{} {}", parameter.shortName.empty() ? parameter.name : parameter.shortName,
                         parameter.value);
    default:
      return std::string(parameter.name);
  }
}

std::string usage(const Command& command) {
  std::string line = fmt::format("tavlox {}", command.name);
  for (const Parameter& parameter : command.parameters) {
    const bool isNeeded = parameter.takes == Takes::One || parameter.takes == Takes::OneOrMore;
    const std::string shown = placeholder(parameter);
    line += isNeeded ? " " + shown : fmt::format(" [{}]", shown);
  }
  return line + " [--json] [--module PATH]";
}

const std::vector<std::u16string>& Request::all(std::string_view parameter) const {
  // Returned by reference, so it has to outlive the call.
  static const std::vector<std::u16string> none;
  const auto found = values.find(parameter);
  return found == values.end() ? none : found->second;
}

std::span<const Command* const> allCommands() { return kCommands; }

const Command* findCommand(std::string_view name) {
  for (const Command* command : kCommands) {
    if (command->name == name) return command;
  }
  return nullptr;
}

std::span<const Parameter> commonParameters() { return kCommon; }

std::string generalHelp() {
  std::string help = "tavlox: look into recorded simulation sessions, and make them\n\n";
  help += kGeneralExamples;
  help += "\nUsage: tavlox COMMAND ...\n\nCommands:\n";
  for (const Command* command : kCommands) appendLine(help, command->name, command->summary);
  help += "\nOptions:\n";
  appendParameters(help, kCommon);
  appendLine(help, "--help", "This text; after a command, or as \"tavlox help COMMAND\", more about it");
  appendLine(help, "--version", "The version of this program");
  return help + "\n" + filled(fmt::format("{}\nExit code: {}\n", kOutputRules, kExitCodes));
}

std::string commandHelp(const Command& command) {
  std::string help = fmt::format("tavlox {}: {}\n\nExamples:\n{}\nUsage: {}\n\n", command.name,
                                 command.summary, command.examples, wrappedUsage(command));
  appendParameters(help, command.parameters);
  appendParameters(help, kCommon);
  const std::string details = detailsOf(command);
  if (!details.empty()) help += "\n" + filled(details);
  return help;
}

}  // namespace tavlox::cli
