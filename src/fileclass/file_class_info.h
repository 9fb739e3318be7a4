#pragma once

#include <string>

#include "platform/zobs/class.h"

/// What the module gives its host: the class tavlox.io.File and the function tavlox.io.getCompression.
namespace orra::tavloxio {

/// The class tavlox.io.File: one object stands for one TAVLOX file, and its instance data is a MetadataCache.
class TavloxIOFileClassInfo final : public zobs::COSClassInfo {
 public:
  std::string getName() const override { return "File"; }
  void defineMembers(zobs::COSClass& definedClass) override;
  void* createInstanceData() override;
  void destroyInstanceData(void* data) override;
  bool hasInstanceData() const override { return true; }
  bool isSealed() const override { return true; }
};

/// The constructor and the methods of the class, in registration order.
void addMethods(zobs::COSClass& file);

/// A new info of the function getCompression, for the host to own.
zobs::COSMethodInfo* makeGetCompression();

}  // namespace orra::tavloxio
