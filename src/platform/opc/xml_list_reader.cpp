#include "platform/opc/xml_list_reader.h"

namespace opc::xml {

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
  if (depth_ != 2) refuseElement(name);
  itemBegin_ = tag.begin;
  readItem(name, attributes);
}

void ListReader::end(Span tag) {
  const int depth = depth_--;
  if (skippedFrom_ != 0) {
    if (depth == skippedFrom_) skippedFrom_ = 0;
    return;
  }
  if (depth == 2) return endItem({itemBegin_, tag.end});
  endRoot(ListText(document_, root_, tag));
}

void ListReader::text(std::string_view piece) {
  if (skippedFrom_ == 0 && piece.find_first_not_of(" \t\n\r") != std::string_view::npos) refuseText();
}

}  // namespace opc::xml
