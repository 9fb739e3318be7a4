#pragma once

#include <cstddef>
#include <string_view>

#include "platform/errors/exceptions.h"

namespace orra {

/// Refuses a JSON part of the session. `kind` names the part, elements count from 1, and 0 stands for the
/// whole part.
[[noreturn]] inline void raiseInvalid(std::string_view kind, std::size_t element, std::string_view what) {
  foundation::core::except::raise("simulation_data_repository:sdr:InvalidSessionData", kind, element, what);
}

}  // namespace orra
