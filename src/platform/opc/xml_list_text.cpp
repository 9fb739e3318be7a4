#include "platform/opc/xml_list_text.h"

#include <algorithm>

#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_writer.h"

namespace opc::xml {

ListText::ListText(std::string_view root, std::string_view space) {
  // The tag stays open for items, also while there are none.
  Writer writer({});
  text_ = writer.open(root).attribute("xmlns", space).take().append(">");
  tail_.append("</").append(root).append(">");
}

ListText::ListText(std::string_view text, std::string_view root, Span end)
    : text_(text.substr(0, end.begin)),
      tail_(text.substr(end.begin)),
      prefix_(root.substr(0, root.find(':') + 1)) {
  if (end.begin == end.end) {
    text_.replace(text_.size() - 2, 2, ">");  // "/>"
    tail_.insert(0, std::string("</").append(root).append(">"));
  }
  dropDeclaredUtf16();
}

// The document becomes UTF-8, which is what a document without a declaration is.
void ListText::dropDeclaredUtf16() {
  if (!text_.starts_with("<?xml ")) return;
  const Span declaration{0, text_.find("?>") + 2};
  if (percent::toLower(text_.substr(0, declaration.end)).find("utf-16") == std::string::npos) return;
  cuts_.push_back(declaration);
}

Span ListText::append(std::string_view name, std::initializer_list<Attribute> attributes) {
  const std::size_t begin = text_.size();
  Writer writer({}, Writer::Start::Fragment);
  writer.open(prefix_ + std::string(name));
  for (const auto& [attribute, value] : attributes) writer.attribute(attribute, value);
  text_.append(writer.close().take());
  return {begin, text_.size()};
}

void ListText::cut(Span item) {
  while (item.begin > 0 &&
         std::string_view(" \t\r\n").find(text_[item.begin - 1]) != std::string_view::npos) {
    --item.begin;
  }
  cuts_.push_back(item);
}

std::string ListText::toBytes() const {
  std::vector<Span> cuts = cuts_;
  std::ranges::sort(cuts, {}, &Span::begin);
  std::string bytes;
  bytes.reserve(text_.size() + tail_.size());
  std::size_t kept = 0;
  for (const Span& cut : cuts) {
    bytes.append(text_, kept, cut.begin - kept);
    kept = cut.end;
  }
  return bytes.append(text_, kept).append(tail_);
}

}  // namespace opc::xml
