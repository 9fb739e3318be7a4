#pragma once

#include <memory>
#include <vector>

#include "platform/repository/signal.h"

namespace orra::tavloxio {

/// Signals that a query found, in its order.
using Signals = std::vector<std::unique_ptr<Signal>>;

}  // namespace orra::tavloxio
