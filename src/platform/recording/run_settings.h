#pragma once

#include <string>
#include <string_view>

#include "platform/repository/records.h"

namespace tavlox::recording {

/// Sets a field of a run by the name that hosts show it under ("Status", "SolverName", "UserString"), in any
/// letter case, or by its member of the run list ("simMode"). Raises tavlox:record:NotAKey, which suggests a
/// name that is like it, and tavlox:record:OptionValue for a time that is no number.
void set(orra::RunRecord& run, std::u16string_view key, std::u16string_view value);

}  // namespace tavlox::recording
