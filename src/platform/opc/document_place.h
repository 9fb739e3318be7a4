#pragma once

#include <string_view>

namespace opc {

/// Where a document stands, for messages: the package's path and the document's name in it, both UTF-8. The
/// texts must outlive the call they are given to.
struct DocumentPlace {
  std::string_view package, part;
};

}  // namespace opc
