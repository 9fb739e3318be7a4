#include "hosts/cli/command_line.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "hosts/cli/help.h"
#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_ustring;
using foundation::core::except::raise;

// More words than any system passes to a program.
constexpr int kNoLimit = 1 << 29;

// Stands before a word that the parser would otherwise take for something else: one in square brackets for a
// list of words, one that begins with "-" for an option.
constexpr char kOneWord = '\x01';

CLI::Option* addParameter(CLI::App& app, const Parameter& parameter) {
  std::string name(parameter.name);
  if (!parameter.shortName.empty()) name += fmt::format(",{}", parameter.shortName);
  switch (parameter.takes) {
    case Takes::Flag:
      return app.add_flag(name);
    case Takes::Value:
      return app.add_option(name)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    case Takes::One:
      return app.add_option(name)->required();
    case Takes::AtMostOne:
      return app.add_option(name);
    case Takes::OneOrMore:
      return app.add_option(name)->required()->expected(1, kNoLimit)->allow_extra_args();
    case Takes::Any:
      return app.add_option(name)->expected(0, kNoLimit)->allow_extra_args();
  }
  return nullptr;
}

void addParameters(CLI::App& app, std::span<const Parameter> parameters) {
  for (const Parameter& parameter : parameters) addParameter(app, parameter);
}

void addCommand(CLI::App& app, const Command& command) {
  CLI::App* part = app.add_subcommand(std::string(command.name));
  addParameters(*part, command.parameters);
  addParameters(*part, commonParameters());
}

std::u16string defaultModulePath() {
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  return to_ustring((program.parent_path().parent_path() / "lib" / "tavlox_io.so").string());
}

void takeValues(const CLI::App& part, Request& request) {
  for (const CLI::Option* option : part.get_options()) {
    if (option->count() == 0) continue;
    std::vector<std::u16string>& values = request.values[option->get_name()];
    values.clear();
    for (const std::string_view word : option->results()) {
      values.push_back(to_ustring(word.substr(word.starts_with(kOneWord) ? 1 : 0)));
    }
  }
}

/// The first word that is not an option is looked at here, so that a mistyped command is called one.
void refuseUnknownCommand(int argumentCount, const char* const* arguments) {
  if (argumentCount < 2) raise("tavlox:cli:NoCommand");
  for (int i = 1; i < argumentCount; ++i) {
    const std::string_view word = arguments[i];
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
  std::ranges::reverse(words);
  return words;
}

CommandLine understand(const CLI::App& app) {
  CommandLine line;
  const CLI::App* part = app.get_subcommands().front();
  line.command = findCommand(part->get_name());
  Request& request = line.request;
  takeValues(app, request);
  takeValues(*part, request);
  if (request.has("--json")) request.format = OutputFormat::Json;
  request.modulePath = request.has("--module") ? request.one("--module") : defaultModulePath();
  if (line.command->check != nullptr) line.command->check(request);
  return line;
}

}  // namespace

CommandLine parseCommandLine(int argumentCount, const char* const* arguments) {
  CLI::App app;
  app.name("tavlox");
  app.set_version_flag("--version", fmt::format("tavlox {}", TAVLOX_VERSION));
  addParameters(app, commonParameters());
  for (const Command* command : allCommands()) addCommand(app, *command);
  app.require_subcommand(1);
  refuseUnknownCommand(argumentCount, arguments);
  try {
    app.parse(parserWords(argumentCount, arguments));
    return understand(app);
  } catch (const CLI::CallForHelp&) {
    const auto parsed = app.get_subcommands();
    return {.command = nullptr,
            .request = {},
            .text = parsed.empty() ? generalHelp() : commandHelp(*findCommand(parsed.front()->get_name()))};
  } catch (const CLI::CallForVersion& version) {
    return {.command = nullptr, .request = {}, .text = fmt::format("{}\n", version.what())};
  } catch (const CLI::ParseError& error) {
    raise("tavlox:cli:WrongCommandLine", error.what());
  }
}

OutputFormat requestedFormat(int argumentCount, const char* const* arguments) {
  for (int i = 1; i < argumentCount; ++i) {
    const std::string_view word = arguments[i];
    if (word == "--") break;
    if (word == "--json") return OutputFormat::Json;
  }
  return OutputFormat::Text;
}

}  // namespace tavlox::cli
