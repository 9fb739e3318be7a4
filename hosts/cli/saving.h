#pragma once

#include <functional>
#include <string>

#include "hosts/cli/command.h"

/// How commands change a package that other programs may be saving at the same time.
namespace tavlox::cli {

/// The option of every command that saves, and what its command's check does with it: raises
/// tavlox:cli:NotSeconds unless it is a number of seconds.
inline constexpr Parameter kWait{
    "--wait", Takes::Value, "How long to try again while others save the package; by default 10", "SECONDS"};
void checkWait(const Request& request);

/// Runs a change that ends in a save of the package at `path`. While another program keeps it from being
/// saved, the change is made again, for as long as --wait says. Says on standard error if the file had
/// further hard links: a save makes a new file, and they keep the old one.
void save(const Request& request, const std::u16string& path, const std::function<void()>& change);

}  // namespace tavlox::cli
