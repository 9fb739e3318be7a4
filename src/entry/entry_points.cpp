#include "entry/entry_points.h"

#include "entry/namespace_infos.h"

using namespace orra::tavloxio;
using zobs::COSNamespace;
using zobs::internal::makeInterned;

void CvInitialize_orra_tavlox_io() {
  static constinit bool initialised = false;
  if (initialised) return;
  initialised = true;

  COSNamespace* tavlox = COSNamespace::getNamespace(makeInterned("tavlox"));
  if (tavlox == nullptr) {
    COSNamespace::addNamespace(new TAVLOXZOBSNamespaceInfo);
    return;
  }
  COSNamespace* io = COSNamespace::getNamespace(makeInterned("tavlox.io"));
  if (io == nullptr) {
    tavlox->addInnerNamespace(new IOZOBSNamespaceInfo);
    return;
  }
  addClassAndFunction(*io);
}

void CvTerminate_orra_orra_tavlox_io() {}
