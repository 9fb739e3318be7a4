#include "package/session_parts.h"

namespace orra::tavloxio {

std::vector<opc::model::Part> findPartsByRelationshipType(const file::ScopedRef& ref,
                                                          std::u16string_view type) {
  return ref.file().getPartsByRelationshipType(type);
}

}  // namespace orra::tavloxio
