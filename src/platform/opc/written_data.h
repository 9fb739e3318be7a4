#pragma once

#include <string>
#include <utility>

#include "platform/opc/zip/spool.h"

namespace opc {

/// The data of one part that was written since its package was opened, or is being written.
struct WrittenData {
  explicit WrittenData(std::string folder) : spool(std::move(folder)) {}

  zip::Spool spool;
  /// Some of the data could not be kept, so the package must not be saved with it.
  bool isBroken = false;
};

}  // namespace opc
