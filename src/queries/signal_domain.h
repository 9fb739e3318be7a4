#pragma once

#include <string>
#include <string_view>

namespace orra::tavloxio {

/// What hosts show for a signal's domain type, in the language that was the process's when the first one was
/// asked for. Empty text for a type that is not known.
const std::u16string& domainText(std::string_view domainType);

}  // namespace orra::tavloxio
