// The table of all commands, and the help that is put together from their records. Nothing in the help is
// written twice: the usage line, the parameters and the list of commands come from the same records that the
// parser is set up with, so they cannot contradict what is accepted.
#include "hosts/cli/command.h"

#include <fmt/format.h>

namespace tavlox::cli {

// Each is defined in the file of its name. They are declared here, not in a header: only this table needs
// them.
extern const Command kAdd, kCheck, kCompare, kCompression, kDelete, kDescribe, kExport, kGet, kInfo, kList,
    kPlot, kRecord, kRecover, kRuns, kSignals;

namespace {

// In the order of the help: making and reading sessions, people's own files, damaged packages.
const Command* const kCommands[] = {
    &kRecord,  &kInfo, &kRuns, &kSignals, &kCompression, &kDescribe, &kExport,  &kPlot,
    &kCompare, &kList, &kAdd,  &kGet,     &kDelete,      &kCheck,    &kRecover,
};

// These stand before or behind the command's name.
constexpr Parameter kCommon[] = {
    {"--json", Takes::Flag, "Write JSON: results on standard output, errors on standard error"},
    {"--module", Takes::Value,
     "The module to load; by default ../lib/tavlox/tavlox_io.so, seen from this program", "PATH"},
};

// Shown first: most people look for a line to copy.
constexpr std::string_view kGeneralExamples = R"help(Examples:
  tavlox record filter.tavlox nominal.csv hot.csv   make a session of two result tables
  tavlox info filter.tavlox                         show what is in it
  tavlox runs filter.tavlox                         show its runs
  tavlox signals filter.tavlox --name "v(out)"      show the signals of that name
  tavlox describe filter.tavlox "RC filter"         say what it is
  tavlox add filter.tavlox notes.txt                keep a file of your own in it
  tavlox get filter.tavlox notes.txt -o copies      and take it out again
  tavlox info --json *.tavlox                       the same as info, for other programs
)help";

/// A line of a list in the help. The column fits the longest term there is.
void appendLine(std::string& help, std::string_view term, std::string_view meaning) {
  help += fmt::format("  {:<20} {}\n", term, meaning);
}

void appendParameters(std::string& help, std::span<const Parameter> parameters) {
  for (const Parameter& parameter : parameters) appendLine(help, placeholder(parameter), parameter.help);
}

}  // namespace

const std::string_view kOutputRules =
    R"(  Results go to standard output, everything else to standard error. Tables are aligned on a terminal and
  tab-separated, without headings, everywhere else. Backslashes, tabs, line ends and control characters in
  a value are written as \\, \t, \n, \r and \u001B. Colours are left out when NO_COLOR is set.
  With --json each error and warning is an object on a line of its own.
)";

const std::string_view kExitCodes =
    "0 done, 1 the operation failed, 2 the command line is wrong, 3 done and damage was found.";

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
  appendLine(help, "--help", "This text; after a command, more about it");
  appendLine(help, "--version", "The version of this program");
  return help + fmt::format("\nOutput:\n{}\nExit code: {}\n", kOutputRules, kExitCodes);
}

std::string commandHelp(const Command& command) {
  std::string help = fmt::format("tavlox {}: {}\n\nExamples:\n{}\nUsage: {}\n\n", command.name,
                                 command.summary, command.examples, usage(command));
  appendParameters(help, command.parameters);
  appendParameters(help, kCommon);
  if (!command.details.empty()) help += fmt::format("\n{}", command.details);
  return help;
}

}  // namespace tavlox::cli
