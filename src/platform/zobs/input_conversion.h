#pragma once

#include <vector>

#include "platform/zobs/method_info.h"
#include "platform/zobs/value.h"

namespace zobs {

/// The inputs as a method's signature wants them. Raises Corvan:ObjectSystem:WrongInputCount and
/// WrongInputType.
std::vector<Value> convertInputs(const COSMethodInfo& method, std::vector<Value> inputs);

}  // namespace zobs
