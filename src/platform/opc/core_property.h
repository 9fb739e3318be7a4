#pragma once

namespace opc::model {

/// The core properties (Dublin Core and the conventions' own) that this system knows how to set.
enum class CoreProperty { Description, Version, Creator, Created };

}  // namespace opc::model
