#pragma once

#include <memory>
#include <utility>

#include "platform/zip/spool.h"

namespace opc {

/// The data of one part that was written since its package was opened, or is being written.
struct WrittenData {
  explicit WrittenData(std::shared_ptr<zip::SpoolStorage> storage) : spool(std::move(storage)) {}

  zip::Spool spool;
  /// Some of the data could not be kept, so the package must not be saved with it.
  bool isBroken = false;
};

}  // namespace opc
