#pragma once

#include <string_view>
#include <vector>

#include "package/scoped_ref.h"
#include "platform/export_file/relationship_types.h"
#include "platform/opc/part.h"

namespace orra::tavloxio {

/// The parts that package-level relationships of one type lead to, in the package's order; none is no error.
std::vector<opc::model::Part> findPartsByRelationshipType(const file::ScopedRef& ref,
                                                          std::u16string_view type);

}  // namespace orra::tavloxio
