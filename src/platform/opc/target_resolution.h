#pragma once

#include <string_view>

#include "platform/opc/uri.h"

namespace opc {

/// Where the target of an internal relationship leads, for a source given by its encoded name (empty for the
/// package). It is resolved (RFC 3986, 5.2) before it is decoded, once; a fragment is left out. If the
/// outcome is a part name, the result is its decoded text. Everything else matches no part and reads as a
/// path above the root, which no part can have: "/../x" for a target that climbs there, "/../" and the target
/// as written for one with a query, a scheme, an authority, a backslash, an encoded slash or dot segment, an
/// empty segment, or a bad percent-encoding.
model::URI resolveTarget(std::string_view source, std::string_view target);

}  // namespace opc
