#include "platform/opc/xml_list.h"

#include <algorithm>

#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_writer.h"

namespace opc::xml {
namespace {

constexpr std::string_view kSpaces = " \t\n\r";

/// The XML declaration if it names an encoding that the document is no longer in; else empty.
Span declaredUtf16(std::string_view text) {
  if (!text.starts_with("<?xml ")) return {};
  const Span declaration{0, text.find("?>") + 2};
  const bool isUtf16 = percent::toLower(text.substr(0, declaration.end)).find("utf-16") != std::string::npos;
  return isUtf16 ? declaration : Span{};
}

}  // namespace

ListText::ListText(std::string_view document, std::string_view root, Span end)
    : text_(document.substr(0, end.begin)),
      tail_(document.substr(end.begin)),
      prefix_(root.substr(0, root.find(':') + 1)) {
  if (end.begin == end.end) {
    // The only tag of an empty root becomes a start tag and an end tag, between which elements can stand.
    text_.replace(text_.size() - 2, 2, ">");  // "/>"
    tail_.insert(0, std::string("</").append(root).append(">"));
  }
  // What is written is UTF-8, and a document that declares nothing is read as that.
  replace(declaredUtf16(text_), "");
}

ListText ListText::empty(std::string_view root, std::string_view space) {
  const std::string document = std::string(kDeclaration) + writeElement(root, {{"xmlns", space}});
  return {document, root, {document.size(), document.size()}};
}

Span ListText::append(std::string_view element) {
  // At the end, so that the pieces that were handed out before stay right.
  text_.append(element);
  return {text_.size() - element.size(), text_.size()};
}

void ListText::cut(Span element) {
  while (element.begin > 0 && kSpaces.find(text_[element.begin - 1]) != std::string_view::npos) {
    --element.begin;
  }
  replace(element, "");
}

std::string ListText::toBytes() const {
  // Edits refer to the text as it was read, so they are applied only here, front to back.
  auto edits = edits_;
  std::ranges::sort(edits, {}, [](const auto& edit) { return edit.first.begin; });
  std::string bytes;
  bytes.reserve(text_.size() + tail_.size());
  std::size_t kept = 0;
  for (const auto& [piece, text] : edits) {
    bytes.append(text_, kept, piece.begin - kept).append(text);
    kept = piece.end;
  }
  bytes.append(text_, kept).append(tail_);
  return bytes;  // what append gives would be copied, and may be large
}

void ListReader::start(const Name& name, const Attributes& attributes, Span tag) {
  ++depth_;
  if (skippedFrom_ != 0) return;
  if (depth_ == 1) {
    root_ = name.written();
    return readRoot(name, attributes);
  }
  if (name.space != space_) {
    skippedFrom_ = depth_;
    return;
  }
  // Items are empty: an element inside one would be lost on whoever reads the list.
  if (depth_ != 2) refuseElement(name);
  // An item ends where its end tag does, which is reported later.
  itemBegin_ = tag.begin;
  readItem(name, attributes);
}

void ListReader::end(Span tag) {
  const int depth = depth_--;
  if (skippedFrom_ != 0) {
    if (depth == skippedFrom_) skippedFrom_ = 0;
    return;
  }
  // Only the root and its items come this far.
  if (depth == 2) return endItem({itemBegin_, tag.end});
  if (!document_.empty()) endRoot(ListText(document_, root_, tag));
}

void ListReader::text(std::string_view piece) {
  if (skippedFrom_ == 0 && piece.find_first_not_of(kSpaces) != std::string_view::npos) refuseText();
}

}  // namespace opc::xml
