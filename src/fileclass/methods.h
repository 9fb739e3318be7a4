#pragma once

#include "fileclass/method_info.h"

namespace orra::tavloxio {

/// Binds a new File object to the file named by the first input.
class TavloxIOFileConstructor final : public ORRATavloxIOZOBSMethodInfo {
 public:
  /// The output is the class's own type, which is known once the class holds the constructor.
  void attach(zobs::COSClass& holder) override;
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// setFileDescription(obj, description): stores the text, unchanged, in the package.
class TavloxIOFileSetFileDescription final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

}  // namespace orra::tavloxio
