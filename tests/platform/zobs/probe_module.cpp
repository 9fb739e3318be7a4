// A module of the loader's tests. It is built several times, each time with other entry points.

#include "platform/zobs/namespace.h"

namespace {

struct ProbeNamespace : zobs::COSNamespaceInfo {
  std::string getName() const override { return PROBE_NAME; }
  void populate(zobs::COSNamespace&) override {}
};

[[maybe_unused]] void registerProbe() { zobs::COSNamespace::addNamespace(new ProbeNamespace); }

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

// None of these three is an entry point, whatever its name begins with.
EXPORTED const int CvInitialize_is_data;
const int CvInitialize_is_data = 1;
extern "C" void CvInitialize_is_hidden();
extern "C" void CvInitialize_is_hidden() {}
EXPORTED void CvTerminate_probe();
EXPORTED void CvTerminate_probe() {}

#ifdef PROBE_FIRST_ENTRY
EXPORTED void CvInitialize_probe();
EXPORTED void CvInitialize_probe() { registerProbe(); }
#endif
#ifdef PROBE_SECOND_ENTRY
EXPORTED void CvInitialize_probe_again();
EXPORTED void CvInitialize_probe_again() {}
#endif
