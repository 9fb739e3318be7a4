#pragma once

#include "fileclass/method_info.h"

namespace orra::tavloxio {

/// getCompression(filename), a function of the namespace: the compression type that the recorder noted in the
/// file.
class TavloxIOGetCompression final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

TavloxIOGetCompression* makeGetCompression();

}  // namespace orra::tavloxio
