#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/zobs/interned.h"

namespace zobs {

/// The types a method takes and gives. Types are class names, or "unicodeString" (UTF-16 text), "any" (a host
/// value), "int32 scalar", "logical scalar".
class COSMethodSignature {
 public:
  static std::unique_ptr<COSMethodSignature> createMethodSignature();

  void addInputType(Interned type) { inputs_.push_back(type); }
  void addOutputType(Interned type) { outputs_.push_back(type); }
  /// How many trailing inputs may be left out; none unless set. More than there are inputs means all of them.
  void setOptionalInputCount(std::size_t count) { optionalInputs_ = count; }

  const std::vector<Interned>& inputTypes() const { return inputs_; }
  const std::vector<Interned>& outputTypes() const { return outputs_; }
  std::size_t optionalInputCount() const { return std::min(optionalInputs_, inputs_.size()); }
  std::size_t requiredInputCount() const { return inputs_.size() - optionalInputCount(); }

 private:
  std::vector<Interned> inputs_, outputs_;
  std::size_t optionalInputs_ = 0;
};

}  // namespace zobs
