#pragma once

#include <string>

#include "hosts/cli/command.h"

namespace tavlox::cli {

/// A command line that was understood: a command to run, or a text to print (help, version).
struct CommandLine {
  const Command* command = nullptr;
  Request request;
  std::string text;  ///< printed instead, if there is no command
};

/// Raises tavlox:cli:WrongCommandLine, or fl::i18n::ConversionError for arguments that are not UTF-8.
CommandLine parseCommandLine(int argumentCount, const char* const* arguments);

/// Whether --json stands anywhere before a "--": the form of errors must be known also for a line that is
/// wrong.
OutputFormat requestedFormat(int argumentCount, const char* const* arguments);

}  // namespace tavlox::cli
