#include "platform/opc/xml_list_reader.h"

namespace opc::xml {

void ListReader::start(const Name& name, const Attributes& attributes) {
  ++depth_;
  if (skippedFrom_ != 0) return;
  if (depth_ == 1) return readRoot(name, attributes);
  if (name.space != space_) {
    skippedFrom_ = depth_;
    return;
  }
  if (depth_ != 2) refuseElement(name);
  readItem(name, attributes);
}

void ListReader::end() {
  if (depth_ == skippedFrom_) skippedFrom_ = 0;
  --depth_;
}

void ListReader::text(std::string_view piece) {
  if (skippedFrom_ == 0 && piece.find_first_not_of(" \t\n\r") != std::string_view::npos) refuseText();
}

}  // namespace opc::xml
