#pragma once

#include <string_view>

namespace opc::xml {

/// Whether a UTF-8 text is a name without a colon (Namespaces in XML 1.0, NCName), which every xsd:ID must
/// be.
bool isNcName(std::string_view text);

}  // namespace opc::xml
