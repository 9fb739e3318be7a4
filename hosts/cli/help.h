#pragma once

#include <string>

#include "hosts/cli/command.h"

namespace tavlox::cli {

/// What `tavlox --help` shows: examples first, then the commands and the options that all of them take.
std::string generalHelp();

/// What `tavlox COMMAND --help` shows.
std::string commandHelp(const Command& command);

/// The options that every command takes.
std::span<const Parameter> commonParameters();

}  // namespace tavlox::cli
