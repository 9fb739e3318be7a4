#pragma once

#include <exception>
#include <string>

#include "hosts/cli/command.h"
#include "platform/errors/exceptions.h"

/// How failures are told to people and to other programs. Everything goes to standard error.
namespace tavlox::cli {

/// `tavlox: error: MESSAGE [IDENTIFIER]`, a line `  because: MESSAGE [IDENTIFIER]` for each cause, and a line
/// `  hint: HINT` if there is one.
std::string errorAsText(const foundation::core::except::except_with_causes& error,
                        const std::u16string& hint = {});

/// {"error": {"identifier", "arguments", "message"}}, on one line. An error with causes has a member
/// "causes", a list of objects like it, and one with a hint a member "hint".
std::string errorAsJson(const foundation::core::except::except_with_causes& error,
                        const std::u16string& hint = {});

/// Reports an exception of any kind. Where the module says no more than that a file cannot be read or saved,
/// the reasons are looked for and reported as causes. `path` is the file at hand, for errors that do not name
/// it; it may be empty. `hint` says what this program knows besides.
void report(const std::exception_ptr& failure, OutputFormat format, const std::u16string& path = {},
            const std::u16string& hint = {}) noexcept;

}  // namespace tavlox::cli
