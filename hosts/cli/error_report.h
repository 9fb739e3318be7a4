#pragma once

#include <string>
#include <vector>

#include "hosts/cli/command.h"
#include "platform/errors/exceptions.h"

/// How failures, and what is to be known of a success, are told to people and to other programs.
namespace tavlox::cli {

/// Tells of the exception that is being handled, of whatever kind, on standard error. As text:
/// `tavlox: error: MESSAGE [IDENTIFIER]`, a line `  because: MESSAGE [IDENTIFIER]` for each cause, and a line
/// `  hint: HINT` if there is one. As JSON, on one line: {"error": {"identifier", "arguments", "message"}},
/// with a member "causes", a list of objects like it, and a member "hint" where there are any. Of an argument
/// longer than 4096 UTF-16 code units the middle is left out.
///
/// Where the module says no more than that a file cannot be read or saved, the reasons are looked for and
/// told as causes. `path` is the file at hand, for errors that do not name it; it may be empty. `hint` says
/// what this program knows besides.
void report(OutputFormat format, const std::u16string& path = {}, const std::u16string& hint = {}) noexcept;

/// Tells of an error that was caught before, as it is.
void tellError(OutputFormat format, const foundation::core::except::except_with_causes& error);

/// Tells on standard error, in the same forms, what is no failure: "tavlox: warning: …", {"warning": {…}}.
void tellWarning(OutputFormat format, const foundation::core::except::except_with_causes& warning,
                 const std::u16string& hint = {});
template <class... Argument>
void warn(OutputFormat format, fl::i18n::MessageId<sizeof...(Argument)> identifier,
          const Argument&... arguments) {
  namespace except = foundation::core::except;
  tellWarning(format, except::except_with_causes(identifier, {except::toArgument(arguments)...}));
}

/// Names for a message: "/a, /b and 3 more". Not empty.
std::u16string namesInMessage(const std::vector<std::u16string>& names);

}  // namespace tavlox::cli
