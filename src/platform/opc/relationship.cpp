#include "platform/opc/relationship.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/opc/part_name.h"
#include "platform/opc/percent_encoding.h"
#include "platform/text/conversion.h"

namespace opc::model {
namespace {

constexpr std::string_view kSpaces = " \t\n\r";

/// White space around a target belongs to the layout of the document.
std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kSpaces);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

/// Whether a reference is more than a path: "scheme:…", "//authority…" or "…?query".
bool isMoreThanPath(std::string_view reference) {
  if (reference.starts_with("//") || reference.find('?') != std::string_view::npos) return true;
  // Behind the first slash a colon is an ordinary character of a segment.
  const std::size_t colon = reference.find(':');
  return colon != std::string_view::npos && colon < reference.find('/');
}

/// The reference appended to the folder of the source, unless it is absolute or empty.
std::string merged(std::string_view source, std::string_view reference) {
  if (reference.empty()) return std::string(source);
  if (reference[0] == '/') return std::string(reference);
  // The package has an empty name and lies at the root.
  const std::size_t slash = source.rfind('/');
  return std::string(slash == std::string_view::npos ? "/" : source.substr(0, slash + 1)).append(reference);
}

/// Takes "." and ".." out of an absolute path. A climb above the root stays, as leading ".." segments, since
/// what it leads to is not what the rest of the path would lead to.
std::string withoutDotSegments(std::string_view path) {
  std::vector<std::string_view> segments;
  std::size_t climbed = 0;
  bool endsInFolder = false;
  for (std::size_t start = 1; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string_view segment = path.substr(start, end - start);
    start = end + 1;
    // The path then ends in a slash: it names a folder, and no part is called so.
    endsInFolder = segment == "." || segment == "..";
    if (segment == ".") continue;
    // Only a segment that is no climb itself can be taken back.
    if (segment == ".." && segments.size() > climbed) {
      segments.pop_back();
      continue;
    }
    climbed += segment == ".." ? 1 : 0;
    segments.push_back(segment);
  }
  std::string resolved;
  for (const std::string_view segment : segments) resolved.append("/").append(segment);
  return endsInFolder ? resolved + '/' : resolved;
}

/// Absolute, without segments that start with a dot, and nothing but a path.
bool isPlainPath(std::string_view target) {
  return target.starts_with('/') && target.find("/.") == std::string_view::npos &&
         percent::isEncodedPrintable(target, percent::kPathLiterals);
}

/// A text that no part can be called, and that still shows what was written.
std::u16string aboveRoot(std::string_view written) {
  return fl::i18n::to_ustring_lossy(std::string("/../").append(written));
}

}  // namespace

URI::URI(std::u16string_view text) : text_(text) {
  if (text.empty()) raise("opc:name:Empty");
  if (text.find(u'\0') != std::u16string_view::npos) raise("opc:name:NulCharacter", text);
  if (!fl::i18n::is_well_formed(text)) raise("opc:name:LoneSurrogate", text);
}

URI URI::asWritten(std::u16string text) {
  URI uri;
  uri.text_ = std::move(text);
  return uri;
}

URI URI::resolved(std::string_view source, std::string_view target) {
  // Most targets are absolute names that need no resolving.
  if (isPlainPath(target)) {
    if (auto text = PartName::tryDecode(target)) return asWritten(*std::move(text));
  }
  std::string_view reference = trimmed(target);
  // A fragment leads to a place inside the target.
  reference = reference.substr(0, reference.find('#'));
  if (isMoreThanPath(reference)) return asWritten(aboveRoot(target));
  // Resolved before it is decoded, so that an encoded dot or slash cannot climb.
  const std::string path = withoutDotSegments(merged(source, reference));
  if (auto text = PartName::tryDecode(path)) return asWritten(*std::move(text));
  // No part name. A mere climb above the root is shown decoded, anything else as it was written.
  const std::optional<std::string> decoded = percent::decode(path);
  if (path.starts_with("/../") && decoded && fl::i18n::is_well_formed(*decoded)) {
    return asWritten(fl::i18n::to_ustring(*decoded));
  }
  return asWritten(aboveRoot(target));
}

Relationship::Relationship(std::string id, Type type, URI target, TargetMode mode)
    : texts_(std::make_shared<const Texts>(Texts{std::move(id), std::move(type), std::move(target)})),
      mode_(mode) {}

}  // namespace opc::model
