#include "entry/entry_points.h"

#include "fileclass/file_class_info.h"
#include "platform/zobs/namespace.h"

namespace orra::tavloxio {
namespace {

void addClassAndFunction(zobs::COSNamespace& io) {
  io.addClass(new TavloxIOFileClassInfo, zobs::kPublicAccess, zobs::kNoAccess);
  io.addFunction(makeGetCompression(), zobs::kPublicAccess, zobs::kNoAccess);
}

/// The namespace "tavlox.io".
class IOZOBSNamespaceInfo final : public zobs::COSNamespaceInfo {
 public:
  std::string getName() const override { return "io"; }
  void populate(zobs::COSNamespace& holder) override { addClassAndFunction(holder); }
};

/// The namespace "tavlox".
class TAVLOXZOBSNamespaceInfo final : public zobs::COSNamespaceInfo {
 public:
  std::string getName() const override { return "tavlox"; }
  void populate(zobs::COSNamespace& holder) override { holder.addInnerNamespace(new IOZOBSNamespaceInfo); }
};

}  // namespace
}  // namespace orra::tavloxio

void CvInitialize_orra_tavlox_io() {
  using namespace orra::tavloxio;
  using zobs::COSNamespace;
  using zobs::internal::makeInterned;

  // A host that loads a module twice calls this twice. Set before anything is registered, since a second
  // attempt would meet the names of the first.
  static constinit bool initialised = false;
  if (initialised) return;
  initialised = true;

  // Another module may have registered one or both of the namespaces. A namespace that is new is filled by
  // the host when it is first looked into.
  COSNamespace* const tavlox = COSNamespace::getNamespace(makeInterned("tavlox"));
  if (tavlox == nullptr) {
    COSNamespace::addNamespace(new TAVLOXZOBSNamespaceInfo);
    return;
  }
  COSNamespace* const io = COSNamespace::getNamespace(makeInterned("tavlox.io"));
  if (io == nullptr) {
    tavlox->addInnerNamespace(new IOZOBSNamespaceInfo);
    return;
  }
  // The namespace is another module's, and its info knows nothing of these members.
  addClassAndFunction(*io);
}

void CvTerminate_orra_orra_tavlox_io() {}
