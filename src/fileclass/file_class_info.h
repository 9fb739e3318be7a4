#pragma once

#include <string>

#include "platform/zobs/class.h"

/// What the module gives its host: the class tavlox.io.File and the function tavlox.io.getCompression.
namespace orra::tavloxio {

/// The class tavlox.io.File: one object stands for one TAVLOX file, and its instance data is a MetadataCache.
class TavloxIOFileClassInfo final : public zobs::COSClassInfo {
 public:
  std::string getName() const override { return "File"; }
  /// Adds the constructor, the methods and the properties, which are read-only.
  void defineMembers(zobs::COSClass& definedClass) override;
  /// A MetadataCache that is bound to no file yet: the constructor binds it.
  void* createInstanceData() override;
  void destroyInstanceData(void* data) override;
  bool hasInstanceData() const override { return true; }
  bool isSealed() const override { return true; }
};

/// Adds the constructor and the methods to the class. Hosts list them in this order.
void addMethods(zobs::COSClass& file);

/// A new info of the function getCompression, for the host to own: it belongs to the namespace and reads a
/// file without an object being made for it.
zobs::COSMethodInfo* makeGetCompression();

}  // namespace orra::tavloxio
