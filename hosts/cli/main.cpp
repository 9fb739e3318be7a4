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
  for (const auto& [longName, takes, help, value, shortName] : parameters) {
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

/// The first word that is not an option is looked at here, so that a mistyped command is called one. Raises
/// tavlox:cli:NoCommand and tavlox:cli:UnknownCommand.
void refuseUnknownCommand(int argumentCount, const char* const* arguments) {
  // Help is asked for with --help; an empty command line in a script is a mistake.
  if (argumentCount < 2) raise("tavlox:cli:NoCommand");
  for (int i = 1; i < argumentCount; ++i) {
    const std::string_view word = arguments[i];
    // Its value is no command. Written "--module=PATH" it is one word, which begins with "-".
    if (word == "--module") ++i;
    if (word.starts_with("-")) continue;
    if (findCommand(word) == nullptr) raise("tavlox:cli:UnknownCommand", word);
    return;
  }
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

CommandLine understand(const CLI::App& app) {
  CommandLine line;
  // There is exactly one; the parser saw to it.
  const CLI::App* part = app.get_subcommands().front();
  line.command = findCommand(part->get_name());
  Request& request = line.request;
  takeValues(app, request);
  takeValues(*part, request);
  if (request.has("--json")) request.format = OutputFormat::Json;
  // Beside the platform; the current folder is never searched for code.
  request.modulePath = request.has("--module") ? request.one("--module") : zobs::installedModule("tavlox_io");
  // Checked while the command line is at fault, so that the exit code is 2 and no module is loaded.
  if (line.command->check != nullptr) line.command->check(request);
  return line;
}

/// Raises tavlox:cli:… errors, or fl::i18n::ConversionError for arguments that are not UTF-8.
CommandLine parseCommandLine(int argumentCount, const char* const* arguments) {
  CLI::App app;
  app.name("tavlox");
  app.set_version_flag("--version", fmt::format("tavlox {}", TAVLOX_VERSION));
  addParameters(app, commonParameters());
  for (const Command* command : allCommands()) {
    // The common options are known to every command as well, so that they may stand behind it.
    CLI::App* part = app.add_subcommand(std::string(command->name));
    addParameters(*part, command->parameters);
    addParameters(*part, commonParameters());
  }
  app.require_subcommand(1);
  // Looked at before the parser, whose message for it would list what it expected instead.
  refuseUnknownCommand(argumentCount, arguments);
  CommandLine textOnly;
  try {
    app.parse(parserWords(argumentCount, arguments));
    return understand(app);
  } catch (const CLI::CallForHelp&) {
    const auto parsed = app.get_subcommands();
    textOnly.text = parsed.empty() ? generalHelp() : commandHelp(*findCommand(parsed.front()->get_name()));
  } catch (const CLI::CallForVersion& version) {
    textOnly.text = fmt::format("{}\n", version.what());
  } catch (const CLI::ParseError& error) {
    raise("tavlox:cli:WrongCommandLine", error.what());
  }
  return textOnly;
}

/// Whether --json stands anywhere before a "--": the form of errors must be known also for a line that is
/// wrong.
OutputFormat requestedFormat(int argumentCount, const char* const* arguments) {
  const std::vector<std::string_view> words(arguments, arguments + argumentCount);
  const auto end = std::find(words.begin(), words.end(), "--");
  return std::find(words.begin(), end, "--json") != end ? OutputFormat::Json : OutputFormat::Text;
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
