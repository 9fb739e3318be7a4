#pragma once

#include "fileclass/method_info.h"

/// The methods that answer from the recorded session.
namespace orra::tavloxio {

/// getAllRunIDs(obj): an N×1 int32 column.
class TavloxIOFileGetAllRunIDs final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// getRunInfo(obj, id): a 1×1 structure of 29 fields.
class TavloxIOFileGetRunInfo final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// getAllSignalsInfo(obj): a 1×N structure array of 19 fields.
class TavloxIOFileGetAllSignalsInfo final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// getSignalInfoByName(obj, name): the same for the signals of one name.
class TavloxIOFileGetSignalInfoByName final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

}  // namespace orra::tavloxio
