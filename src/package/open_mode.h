#pragma once

#include <cstdint>

#include "platform/opc/package.h"

namespace orra::tavloxio::file {

/// How the module opens packages: queries read, changes modify.
enum class OpenMode : std::int32_t { Read = 0, Modify = 1 };

constexpr opc::interfaces::OpenMode packageMode(OpenMode mode) {
  return mode == OpenMode::Modify ? opc::interfaces::OpenMode::Modify : opc::interfaces::OpenMode::Read;
}

}  // namespace orra::tavloxio::file
