#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors/exceptions.h"

/// Damaged packages: what is wrong with one, and what can be saved of it.
namespace tavlox::recovery {

enum class Severity {
  // The two differ in what follows for the reader of a report: after errors alone something has to be done.
  Note,   ///< readers let it pass
  Error,  ///< readers refuse it, or something was lost
};

/// One thing that is wrong with a package.
struct Finding {
  Severity severity;
  /// The rule that is broken; its text says what to do.
  foundation::core::except::except_with_causes rule;
  /// As the archive spells it, bytes that are not well-formed UTF-8 replaced.
  std::u16string item;                                 ///< of the archive; empty for the file as a whole
  std::optional<std::uint64_t> offset = std::nullopt;  ///< in the file, in bytes, where it is known
};

/// In the order in which they were found, which is the order of the checks and not that of the file.
using Findings = std::vector<Finding>;

/// The rule of a finding, checked against the catalog as what is raised.
template <class Error = foundation::core::except::except_with_causes, class... Argument>
Error rule(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  return Error(identifier, {foundation::core::except::toArgument(arguments)...});
}

}  // namespace tavlox::recovery
