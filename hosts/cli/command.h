#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The commands of the program `tavlox`: what each takes, what its help says, and what runs it. Each command
/// is a record in a file of its own and a line of the table in command.cpp; nothing here knows how a command
/// line is parsed.
namespace tavlox::cli {

/// What the program ends with; scripts rely on the numbers. Found: done, and something was found that is not
/// as it should be, which a script must be able to tell from a command that failed.
enum class ExitCode { Done = 0, Failed = 1, WrongCommandLine = 2, Found = 3 };

/// How results and errors are written: for people, or as JSON for programs.
enum class OutputFormat { Text, Json };

/// What a parameter takes from the command line.
enum class Takes {
  One,        ///< one word, in its turn
  AtMostOne,  ///< the same, but it may be left out
  OneOrMore,  ///< all the words that are left
  Any,        ///< the same, but there may be none
  Flag,       ///< an option that is given or not
  Value,      ///< an option with a value behind it
  Values      ///< the same, and it may stand there several times
};

/// A word or an option of a command's line, and what the help says of it. The same record sets up the parser.
struct Parameter {
  std::string_view name;  ///< "FILE", "--force"
  Takes takes;
  std::string_view help;
  std::string_view value = "TEXT";  ///< what the help calls an option's value
  std::string_view shortName = {};  ///< "-o", if there is one
  std::string_view details = {};    ///< whole lines, which stand behind the command's own
};

/// What was asked for: a command, and the values given for its parameters.
struct Request {
  OutputFormat format = OutputFormat::Text;
  std::u16string modulePath;                                               ///< of the shared library to load
  std::map<std::string, std::vector<std::u16string>, std::less<>> values;  ///< by the parameter's name

  /// Whether it stood on the command line; defaults do not count.
  bool has(std::string_view parameter) const { return values.find(parameter) != values.end(); }
  /// None for a parameter that was not given.
  const std::vector<std::u16string>& all(std::string_view parameter) const;
  /// The value of a parameter that must have been given: one that the parser requires, or that `has` knows.
  const std::u16string& one(std::string_view parameter) const { return all(parameter).front(); }
  /// The value, or `otherwise` for a parameter that was not given.
  std::u16string oneOr(std::string_view parameter, std::u16string_view otherwise) const {
    return has(parameter) ? one(parameter) : std::u16string(otherwise);
  }
};

/// A command of the program. `run` does the work, prints the results and gives the exit code; whatever it
/// raises is reported by `main`, with exit code 1. `check`, if there is one, is called before it and before
/// the module is loaded; what it raises is a mistake in the command line, with exit code 2.
struct Command {
  std::string_view name;
  std::string_view summary;   ///< one line, for the list of commands
  std::string_view examples;  ///< whole lines
  std::string_view details;   ///< whole lines, may be empty
  std::vector<Parameter> parameters;
  ExitCode (*run)(const Request&);          ///< never null
  void (*check)(const Request&) = nullptr;  ///< raises for values that no file could make right
};

/// In the order in which the help lists them.
std::span<const Command* const> allCommands();
/// Null if there is none of that name.
const Command* findCommand(std::string_view name);
/// The options that every command takes.
std::span<const Parameter> commonParameters();

/// Everything that help says at length: of the command, and of its parameters.
std::string detailsOf(const Command& command);
/// The parameter as a usage line shows it: "FILE", "CSV...", "-o FOLDER".
std::string placeholder(const Parameter& parameter);
/// What stands behind "Usage: ", what may be left out in square brackets.
std::string usage(const Command& command);

/// What programs that call this one may rely on: whole lines.
extern const std::string_view kOutputRules;
/// The meaning of each exit code, in one line.
extern const std::string_view kExitCodes;

/// What `tavlox --help` shows: examples first, then the commands and the common options.
std::string generalHelp();
/// What `tavlox COMMAND --help` shows.
std::string commandHelp(const Command& command);

}  // namespace tavlox::cli
