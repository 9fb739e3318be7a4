#pragma once

#include <string>

#include "platform/zobs/namespace.h"

namespace orra::tavloxio {

/// The namespace "tavlox", which holds "tavlox.io".
class TAVLOXZOBSNamespaceInfo final : public zobs::COSNamespaceInfo {
 public:
  std::string getName() const override { return "tavlox"; }
  void populate(zobs::COSNamespace& holder) override;
};

/// The namespace "tavlox.io", which holds the class File and the function getCompression.
class IOZOBSNamespaceInfo final : public zobs::COSNamespaceInfo {
 public:
  std::string getName() const override { return "io"; }
  void populate(zobs::COSNamespace& holder) override;
};

/// Adds the class File, then the function getCompression.
void addClassAndFunction(zobs::COSNamespace& io);

}  // namespace orra::tavloxio
