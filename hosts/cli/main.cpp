// From the words of the command line to a Request, and from whatever happens then to an exit code. CLI11 is
// set up from the commands' own records. It takes some words for syntax that are sound file names, so those
// are marked before it sees them and restored when the values are taken. Its own help is not used, and its
// messages only as the reason in an error with an identifier, so that every error has the same form.
#include <algorithm>
#include <csignal>
#include <utility>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/output.h"
#include "hosts/cli/temporary_folder.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"
#include "platform/zobs/module_loader.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_ustring;
using foundation::core::except::raise;

// More words than any system passes to a program.
constexpr int kNoLimit = 1 << 29;

// Stands before a word that the parser would otherwise take for something else: one in square brackets for a
// list of words, one that begins with "-" for an option.
constexpr char kOneWord = '\x01';

/// A command line that was understood: a command to run, or a text to print (help, version).
struct CommandLine {
  const Command* command = nullptr;
  Request request;
  std::string text;  ///< printed instead, if there is no command
};

/// Tells the parser of a command's words and options. Their order is the order in which words are taken.
void addParameters(CLI::App& app, std::span<const Parameter> parameters) {
  for (const auto& [longName, takes, help, value, shortName, details] : parameters) {
    std::string name(longName);
    if (!shortName.empty()) name += fmt::format(",{}", shortName);
    CLI::Option* option = takes == Takes::Flag ? app.add_flag(name) : app.add_option(name);
    const bool isNeeded = takes == Takes::One || takes == Takes::OneOrMore;
    const bool takesAll = takes == Takes::OneOrMore || takes == Takes::Any;
    if (takes == Takes::Value) option->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    if (takes == Takes::Values) option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->expected(1);
    if (isNeeded) option->required();
    if (takesAll) option->expected(isNeeded ? 1 : 0, kNoLimit)->allow_extra_args();
  }
}

/// Copies the values that the parser found. Raises fl::i18n::ConversionError for words that are not UTF-8.
void takeValues(const CLI::App& part, Request& request) {
  for (const CLI::Option* option : part.get_options()) {
    if (option->count() == 0) continue;
    std::vector<std::u16string>& values = request.values[option->get_name()];
    // A common option may stand before and behind the command; the one behind it counts.
    values.clear();
    for (const std::string_view word : option->results()) {
      values.push_back(to_ustring(word.substr(word.starts_with(kOneWord) ? 1 : 0)));
    }
  }
}

/// Raises tavlox:cli:UnknownOption for a word that looks like an option and is none of the command's.
void refuseUnknownOption(const Command& command, std::string_view word) {
  // What begins with one hyphen and a digit is a number.
  const bool isShort = word.size() > 1 && word[0] == '-' && word[1] != '-';
  if (isShort ? word.find_first_of("0123456789.") == 1 : !word.starts_with("--") || word.size() == 2) return;
  const std::string_view name = isShort ? word.substr(0, 2) : word.substr(0, word.find('='));
  const auto isIt = [&](const Parameter& parameter) {
    return parameter.name == name || parameter.shortName == name;
  };
  if (name == "--help" || name == "-h" || std::ranges::any_of(command.parameters, isIt) ||
      std::ranges::any_of(commonParameters(), isIt)) {
    return;
  }
  raise("tavlox:cli:UnknownOption", name, command.name);
}

/// The command that is asked for: the first word that is not an option. Looked for here, and then the options
/// behind it, so that what is mistyped is called by its name. Null if there are options alone. Raises
/// tavlox:cli:NoCommand, UnknownCommand and UnknownOption.
const Command* commandOf(int argumentCount, const char* const* arguments) {
  // Help is asked for with --help; an empty command line in a script is a mistake.
  if (argumentCount < 2) raise("tavlox:cli:NoCommand");
  for (int i = 1; i < argumentCount; ++i) {
    const std::string_view word = arguments[i];
    // Their values are no commands. Written "--module=PATH" it is one word, which begins with "-".
    if (word == "--module" || word == "--color") ++i;
    if (word.starts_with("-")) continue;
    const Command* const command = findCommand(word);
    if (command == nullptr) raise("tavlox:cli:UnknownCommand", word);
    while (++i < argumentCount && std::string_view(arguments[i]) != "--")
      refuseUnknownOption(*command, arguments[i]);
    return command;
  }
  return nullptr;
}

/// The words as the parser wants them: the last one first, the program left out. A "--" is taken care of
/// here, since the parser forgets the command at it.
std::vector<std::string> parserWords(int argumentCount, const char* const* arguments) {
  std::vector<std::string> words;
  bool areOptionsOver = false;
  for (int i = 1; i < argumentCount; ++i) {
    std::string word = arguments[i];
    if (word == "--" && !std::exchange(areOptionsOver, true)) continue;
    if (areOptionsOver || word.starts_with('[') || word.starts_with(kOneWord)) word.insert(0, 1, kOneWord);
    words.push_back(std::move(word));
  }
  // The parser takes words from the end of the list.
  std::ranges::reverse(words);
  return words;
}

/// Raises tavlox:cli:NotAColourChoice.
Habits habitsOf(const Request& request) {
  Habits chosen{.isWide = request.has("--wide")};
  const std::u16string colours = request.oneOr("--color", u"auto");
  if (colours == u"always") {
    chosen.colours = ColourChoice::Always;
  } else if (colours == u"never") {
    chosen.colours = ColourChoice::Never;
  } else if (colours != u"auto") {
    raise("tavlox:cli:NotAColourChoice", colours);
  }
  return chosen;
}

CommandLine understand(const CLI::App& app) {
  CommandLine line;
  // There is exactly one; the parser saw to it.
  const CLI::App* part = app.get_subcommands().front();
  line.command = findCommand(part->get_name());
  Request& request = line.request;
  takeValues(app, request);
  takeValues(*part, request);
  if (request.has("--json")) request.format = OutputFormat::Json;
  habits() = habitsOf(request);
  // Beside the platform; the current folder is never searched for code.
  request.modulePath = request.has("--module") ? request.one("--module") : zobs::installedModule("tavlox_io");
  // Checked while the command line is at fault, so that the exit code is 2 and no module is loaded.
  if (line.command->check != nullptr) line.command->check(request);
  return line;
}

/// Whether --json stands anywhere before a "--": the form of errors must be known also for a line that is
/// wrong.
OutputFormat requestedFormat(int argumentCount, const char* const* arguments) {
  const std::vector<std::string_view> words(arguments, arguments + argumentCount);
  const auto end = std::find(words.begin(), words.end(), "--");
  return std::find(words.begin(), end, "--json") != end ? OutputFormat::Json : OutputFormat::Text;
}

/// "help" and "help COMMAND", as people try them.
CommandLine helpOn(int argumentCount, const char* const* arguments) {
  CommandLine line;
  if (argumentCount == 2 || std::string_view(arguments[2]).starts_with("-")) {
    line.text = generalHelp();
    return line;
  }
  const Command* const command = findCommand(arguments[2]);
  if (command == nullptr) raise("tavlox:cli:UnknownCommand", arguments[2]);
  line.text = commandHelp(*command);
  return line;
}

std::string versionText(OutputFormat format) {
  if (format == OutputFormat::Text) return fmt::format("tavlox {}\n", TAVLOX_VERSION);
  fl::i18n::JsonWriter json;
  json.beginObject().member("Program").value(u"tavlox").member("Version").value(to_ustring(TAVLOX_VERSION));
  return json.endObject().take() + "\n";
}

/// Raises tavlox:cli:… errors, or fl::i18n::ConversionError for arguments that are not UTF-8.
CommandLine parseCommandLine(int argumentCount, const char* const* arguments) {
  if (argumentCount >= 2 && std::string_view(arguments[1]) == "help") return helpOn(argumentCount, arguments);
  // Looked for before the parser does, whose message would list what it expected instead.
  const Command* const command = commandOf(argumentCount, arguments);
  CLI::App app;
  app.name("tavlox");
  app.set_version_flag("--version");
  addParameters(app, commonParameters());
  // The parser is told of no other command: to set it up for all takes longer than some commands do.
  if (command != nullptr) {
    // The common options are known to the command as well, so that they may stand behind it.
    CLI::App* part = app.add_subcommand(std::string(command->name));
    addParameters(*part, command->parameters);
    addParameters(*part, commonParameters());
  }
  app.require_subcommand(1);
  CommandLine textOnly;
  try {
    app.parse(parserWords(argumentCount, arguments));
    return understand(app);
  } catch (const CLI::CallForHelp&) {
    const auto parsed = app.get_subcommands();
    textOnly.text = parsed.empty() ? generalHelp() : commandHelp(*findCommand(parsed.front()->get_name()));
  } catch (const CLI::CallForVersion&) {
    textOnly.text = versionText(requestedFormat(argumentCount, arguments));
  } catch (const CLI::ParseError& error) {
    raise("tavlox:cli:WrongCommandLine", error.what());
  }
  return textOnly;
}

ExitCode runCommand(const CommandLine& line) {
  if (line.command == nullptr) {
    print(line.text);
    return ExitCode::Done;
  }
  // It also ends commands that are interrupted while they report progress.
  const ProgressDisplay progress;
  return line.command->run(line.request);
}

}  // namespace
}  // namespace tavlox::cli

int main(int argumentCount, char** arguments) {
  using namespace tavlox::cli;
  // A reader that has seen enough ends the program quietly, also where the caller had switched that off. A
  // library that is linked blocks the signal before this function begins.
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
  sigset_t pipes;
  sigemptyset(&pipes);
  sigaddset(&pipes, SIGPIPE);
  sigprocmask(SIG_UNBLOCK, &pipes, nullptr);
  // Where files may not grow as large, writing then fails as on a full disk. The signal would end the program
  // and leave what is unfinished.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  // Until the command line is understood, whatever fails is its fault.
  ExitCode failure = ExitCode::WrongCommandLine;
  std::u16string file;
  try {
    const CommandLine line = parseCommandLine(argumentCount, arguments);
    failure = ExitCode::Failed;
    // For errors of libraries that do not say which file they are about.
    file = line.request.oneOr("FILE", u"");
    const ExitCode result = runCommand(line);
    // A full disk often shows only here, and must not be taken for success.
    flushOutput();
    return static_cast<int>(result);
  } catch (const std::exception&) {
    report(requestedFormat(argumentCount, arguments), file);
    return static_cast<int>(failure);
  } catch (const Interrupted& interrupted) {
    // So that a shell sees what ended the program, and ends a script too.
    return std::raise(interrupted.signal);
  }
}
