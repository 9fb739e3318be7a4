#pragma once

#include <string>
#include <variant>

#include "platform/arrays/host_array.h"
#include "platform/zobs/object.h"

namespace zobs {

/// What goes in and out of methods: nothing, an object, a UTF-16 text ("unicodeString"), or any host value.
using Value = std::variant<std::monostate, COSInterfacePointer, std::u16string, corvan::HostArray>;

}  // namespace zobs
