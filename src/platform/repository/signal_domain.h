#pragma once

#include <string_view>

namespace orra {

/// What hosts show for a signal's domain type, in the language that was the process's when the first one was
/// asked for. Empty text for a type that is not known. Valid as long as the process.
std::u16string_view domainText(std::string_view type);

}  // namespace orra
