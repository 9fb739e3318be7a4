#pragma once

#include <string>

#include "platform/zobs/class_info.h"

namespace orra::tavloxio {

/// The class tavlox.io.File: one object stands for one TAVLOX file.
class TavloxIOFileClassInfo final : public zobs::COSClassInfo {
 public:
  std::string getName() const override { return "File"; }
  void defineMembers(zobs::COSClass& definedClass) override;
  void* createInstanceData() override;
  void destroyInstanceData(void* data) override;
  bool hasInstanceData() const override { return true; }
  bool isSealed() const override { return true; }
};

}  // namespace orra::tavloxio
