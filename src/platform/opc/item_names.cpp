#include "platform/opc/item_names.h"

#include <algorithm>
#include <string>

namespace opc {

namespace {

constexpr std::string_view kContentTypes = "[content_types].xml";
constexpr std::string_view kRelationshipFolder = "_rels";
constexpr std::string_view kRelationshipExtension = ".rels";

char toLower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter; }

bool equalIgnoringCase(std::string_view text, std::string_view lower) {
  return std::ranges::equal(text, lower, {}, toLower);
}

bool endsIgnoringCase(std::string_view text, std::string_view lower) {
  return text.size() >= lower.size() && equalIgnoringCase(text.substr(text.size() - lower.size()), lower);
}

std::string_view lastSegment(std::string_view name) { return name.substr(name.rfind('/') + 1); }

std::string_view folderOf(std::string_view name) {
  const std::size_t slash = name.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : name.substr(0, slash);
}

bool isPiece(std::string_view segment) {
  if (!segment.starts_with('[')) return false;
  const std::size_t close = segment.find_first_not_of("0123456789", 1);
  if (close == std::string_view::npos || close == 1 || segment[close] != ']') return false;
  const std::string_view rest = segment.substr(close + 1);
  return equalIgnoringCase(rest, ".piece") || equalIgnoringCase(rest, ".last.piece");
}

bool isRelationshipPart(std::string_view name) {
  return endsIgnoringCase(name, kRelationshipExtension) &&
         equalIgnoringCase(lastSegment(folderOf(name)), kRelationshipFolder);
}

}  // namespace

ItemKind kindOfItem(std::string_view itemName) {
  if (itemName.ends_with('/')) return ItemKind::Folder;
  if (equalIgnoringCase(itemName, kContentTypes)) return ItemKind::ContentTypes;
  if (isPiece(lastSegment(itemName))) return ItemKind::InterleavedPiece;
  return isRelationshipPart(itemName) ? ItemKind::Relationships : ItemKind::Other;
}

std::optional<model::PartName> partNameOfItem(std::string_view itemName) {
  return model::PartName::tryFromEncoded(std::string("/").append(itemName));
}

std::optional<std::string> keyOfItem(std::string_view itemName) {
  return model::PartName::tryKey(std::string("/").append(itemName));
}

std::optional<std::string> sourceOfRelationships(std::string_view itemName) {
  const std::string_view sourceFolder = folderOf(folderOf(itemName));
  std::string_view base = lastSegment(itemName);
  base.remove_suffix(kRelationshipExtension.size());
  if (sourceFolder.empty() && base.empty()) return std::string();
  std::string source(sourceFolder);
  if (!source.empty()) source += '/';
  source += base;
  return keyOfItem(source);
}

}  // namespace opc
