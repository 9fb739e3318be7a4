#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/opc/part.h"

namespace tavlox {

/// A part that holds a JSON array, written element by element in pieces of bounded size. The part's output
/// stream is opened with the first piece that is full, so that many small arrays can be written side by side.
class JsonArrayPart {
 public:
  explicit JsonArrayPart(opc::model::Part part) : part_(std::move(part)) {}

  /// Adds one element, which must be JSON. Raises opc::Exception if the data cannot be kept.
  void add(std::string_view element);
  /// Ends the array; nothing may be added afterwards.
  void finish();

 private:
  void writeOut();

  opc::model::Part part_;
  std::shared_ptr<opc::OutputStream> output_;
  std::string piece_ = "[";
  bool empty_ = true;
};

}  // namespace tavlox
