#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/opc/part_name.h"

/// What the name of a ZIP item says about it. Names are compared without regard to ASCII case.
namespace opc {

enum class ItemKind {
  Folder,            ///< ends in "/"
  ContentTypes,      ///< "[Content_Types].xml"
  InterleavedPiece,  ///< ".../[0].piece", ".../[7].last.piece"
  Relationships,     ///< in a folder "_rels", with the extension "rels"
  Other,
};

ItemKind kindOfItem(std::string_view itemName);

/// Nothing if no part can be called so.
std::optional<model::PartName> partNameOfItem(std::string_view itemName);

/// PartName::key of that name.
std::optional<std::string> keyOfItem(std::string_view itemName);

/// The key of the part whose relationships an item of kind Relationships holds: empty text for the package
/// ("_rels/.rels"), nothing if no part can be called so.
std::optional<std::string> sourceOfRelationships(std::string_view itemName);

/// The name of the item that holds a part of this encoded name.
inline std::string_view itemNameOf(std::string_view encodedPartName) { return encodedPartName.substr(1); }

}  // namespace opc
