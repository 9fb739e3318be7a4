#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/opc/core_property.h"
#include "platform/opc/package_state.h"
#include "platform/zip/limits.h"

namespace opc {

/// The core properties of an open package: the part that the package reaches by the standard relationship. A
/// relationship to a missing part counts as none. Raise opc::Exception if the part is malformed.
std::optional<std::u16string> coreProperty(const model::PackageState& state, model::CoreProperty property,
                                           const zip::Limits& limits);
void setCoreProperty(model::PackageState& state, model::CoreProperty property, std::u16string_view text,
                     const zip::Limits& limits);

}  // namespace opc
