// Writes what an installation brings along beside the program: a manual page for it and for each command, and
// what shells need to complete a command line. All of it is made of the records that --help is made of and
// that the parser is set up with, when the program is built, so that no page can say what the program does
// not do.
//
// usage: tavlox_manual FOLDER VERSION
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

#include "hosts/cli/command.h"

namespace tavlox::cli {
namespace {

constexpr bool isOption(const Parameter& parameter) { return parameter.name.starts_with("-"); }

constexpr bool takesValue(const Parameter& parameter) { return parameter.takes == Takes::Value; }

/// `text` with every `from` replaced.
std::string replaceAll(std::string_view text, char from, std::string_view to) {
  std::string replaced;
  for (const char c : text) c == from ? replaced.append(to) : replaced.append(1, c);
  return replaced;
}

// ---- manual pages, in the macros of man(7) ----

/// Text as a page shows it: a backslash begins a request, and a bare hyphen may be printed as a dash, which
/// nobody can copy into a command line.
std::string roff(std::string_view text) { return replaceAll(replaceAll(text, '\\', "\\e"), '-', "\\-"); }

/// Lines of help: those that are indented are examples and stay as they are, the others are filled.
std::string paragraphs(std::string_view lines) {
  std::string page;
  bool isExample = false;
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    lines.remove_prefix(std::min(lines.size(), line.size() + 1));
    if (line.empty()) {
      // An example keeps its empty lines; elsewhere they end a paragraph.
      page += isExample ? "\n" : ".PP\n";
      continue;
    }
    if (line.starts_with(' ') != isExample) page += isExample ? ".fi\n.PP\n" : ".nf\n";
    isExample = line.starts_with(' ');
    // A dot or a quote at the beginning of a line would be a request.
    page += fmt::format("{}{}\n", line.starts_with('.') || line.starts_with('\'') ? "\\&" : "", roff(line));
  }
  return isExample ? page + ".fi\n" : page;
}

std::string heading(std::string_view name, std::string_view summary, std::string_view version) {
  return fmt::format(".TH {} 1 \"\" \"tavlox {}\" \"User Commands\"\n.SH NAME\n{} \\- {}\n", roff(name),
                     version, roff(name), roff(summary));
}

std::string term(std::string_view word, std::string_view meaning) {
  return fmt::format(".TP\n\\fB{}\\fR\n{}\n", roff(word), roff(meaning));
}

std::string terms(std::span<const Parameter> parameters) {
  std::string page;
  for (const Parameter& parameter : parameters) page += term(placeholder(parameter), parameter.help);
  return page;
}

std::string commandPage(const Command& command, std::string_view version) {
  const std::string details = detailsOf(command);
  return heading(fmt::format("tavlox-{}", command.name), command.summary, version) +
         fmt::format(".SH SYNOPSIS\n{}\n", roff(usage(command))) +
         (details.empty() ? "" : ".SH DESCRIPTION\n" + paragraphs(details)) + ".SH OPTIONS\n" +
         terms(command.parameters) + terms(commonParameters()) + ".SH EXAMPLES\n" +
         paragraphs(command.examples) +
         fmt::format(".SH EXIT STATUS\n{}\n.SH SEE ALSO\n.BR tavlox (1)\n", roff(kExitCodes));
}

std::string programPage(std::string_view version) {
  std::string page = heading("tavlox", "look into recorded simulation sessions, and make them", version) +
                     ".SH SYNOPSIS\ntavlox COMMAND ...\n.SH COMMANDS\n";
  for (const Command* command : allCommands()) page += term(command->name, command->summary);
  page += ".SH OPTIONS\n" + terms(commonParameters()) +
          term("--help", "Help; after a command, more about it") +
          term("--version", "The version of the program") + ".SH OUTPUT\n" + paragraphs(kOutputRules) +
          fmt::format(".SH EXIT STATUS\n{}\n.SH SEE ALSO\n", roff(kExitCodes));
  for (const Command* command : allCommands())
    page += fmt::format(".BR tavlox\\-{} (1){}\n", command->name, command == allCommands().back() ? "" : ",");
  return page;
}

// ---- completion ----

/// The command's options and those of every command.
std::vector<Parameter> optionsOf(const Command& command) {
  std::vector<Parameter> options;
  for (const Parameter& parameter : command.parameters)
    if (isOption(parameter)) options.push_back(parameter);
  options.insert(options.end(), commonParameters().begin(), commonParameters().end());
  return options;
}

std::string bashCompletion() {
  std::string commands, cases;
  for (const Command* command : allCommands()) {
    std::string names, valued;
    for (const Parameter& option : optionsOf(*command)) {
      names += fmt::format(" {}", option.name);
      if (takesValue(option)) valued += fmt::format("{}{}", valued.empty() ? "" : "|", option.name);
    }
    commands += fmt::format(" {}", command->name);
    cases += fmt::format("    {})\n      options=\"{} --help\" valued=\"{}\" ;;\n", command->name,
                         std::string_view(names).substr(1), valued);
  }
  return fmt::format(R"(# bash completion for tavlox

_tavlox() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} command=${{COMP_WORDS[1]}} options= valued=
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W "{} --help --version" -- "$word"))
    return
  fi
  case $command in
{}  esac
  # Behind an option with a value comes the value, for which the shell offers files.
  [[ ${{COMP_WORDS[COMP_CWORD - 1]}} =~ ^($valued)$ ]] && return
  [[ $word == -* ]] && COMPREPLY=($(compgen -W "$options" -- "$word"))
}}
complete -o default -o filenames -F _tavlox tavlox
)",
                     std::string_view(commands).substr(1), cases);
}

/// A text within single quotes of zsh and fish; brackets and colons end a description of zsh's.
std::string quoted(std::string_view text) { return replaceAll(text, '\'', "'\\''"); }

std::string zshCompletion() {
  std::string commands, cases;
  for (const Command* command : allCommands()) {
    commands += fmt::format("    '{}:{}'\n", command->name, quoted(command->summary));
    cases += fmt::format("    {})\n      _arguments", command->name);
    for (const Parameter& option : optionsOf(*command)) {
      const std::string help = replaceAll(replaceAll(quoted(option.help), '[', "("), ']', ")");
      cases += fmt::format(" \\\n        '{}[{}]{}'", option.name, help,
                           takesValue(option) ? fmt::format(":{}:_files", option.value) : "");
    }
    cases += " \\\n        '*:file:_files' ;;\n";
  }
  return fmt::format(R"(#compdef tavlox

_tavlox() {{
  local -a commands=(
{}  )
  if (( CURRENT == 2 )); then
    _describe command commands
    return
  fi
  shift words
  (( CURRENT-- ))
  case $words[1] in
{}  esac
}}
_tavlox "$@"
)",
                     commands, cases);
}

std::string fishCompletion() {
  std::string lines = "# fish completion for tavlox\n\n";
  for (const Command* command : allCommands()) {
    lines += fmt::format("complete -c tavlox -n __fish_use_subcommand -a {} -d '{}'\n", command->name,
                         quoted(command->summary));
    for (const Parameter& option : optionsOf(*command)) {
      const std::string shortName =
          option.shortName.empty() ? "" : fmt::format(" -s {}", option.shortName.substr(1));
      lines += fmt::format("complete -c tavlox -n '__fish_seen_subcommand_from {}' -l {}{}{} -d '{}'\n",
                           command->name, option.name.substr(2), shortName, takesValue(option) ? " -r" : "",
                           quoted(option.help));
    }
  }
  return lines;
}

// ---- writing ----

/// Raises std::runtime_error if it cannot be written.
void write(const std::filesystem::path& file, const std::string& text) {
  create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw std::runtime_error(fmt::format("{} cannot be written", file.string()));
}

void writeAll(const std::filesystem::path& folder, std::string_view version) {
  const std::filesystem::path pages = folder / "man" / "man1";
  write(pages / "tavlox.1", programPage(version));
  for (const Command* command : allCommands())
    write(pages / fmt::format("tavlox-{}.1", command->name), commandPage(*command, version));
  write(folder / "bash-completion" / "completions" / "tavlox", bashCompletion());
  write(folder / "zsh" / "vendor-completions" / "_tavlox", zshCompletion());
  write(folder / "fish" / "vendor_completions.d" / "tavlox.fish", fishCompletion());
}

}  // namespace
}  // namespace tavlox::cli

int main(int argumentCount, char** arguments) try {
  if (argumentCount != 3) throw std::runtime_error("usage: tavlox_manual FOLDER VERSION");
  tavlox::cli::writeAll(arguments[1], arguments[2]);
} catch (const std::exception& error) {
  static_cast<void>(std::fprintf(stderr, "tavlox_manual: %s\n", error.what()));
  return 1;
}
