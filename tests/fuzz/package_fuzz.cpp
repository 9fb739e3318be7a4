#include <array>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>

#include "platform/errors/package_errors.h"
#include "platform/opc/package.h"
#include "platform/opc/package_index.h"
#include "tests/support/temporary_folder.h"

// Whatever the bytes are: opening refuses them, or what was opened can be listed, read, changed, saved, and
// opened again.

namespace {

using namespace opc::model;
using opc::interfaces::OpenMode;

void readAll(const Part& part) {
  std::array<char, 4096> block;
  try {
    while (part.getInputStream()->read(block.data(), block.size()) > 0) continue;
    (void)part.getRelationships(ExcludeMode::None);
  } catch (const opc::Exception&) {
    // A part whose data is damaged is found only now.
  }
}

bool opens(Package& package, OpenMode mode) {
  try {
    package.open(mode);
    return true;
  } catch (const PackageOpenFailed&) {
    return false;
  }
}

void changeAndSave(Package& package) {
  const auto& parts = package.index()->parts();
  if (!parts.empty()) package.deletePart(package.index()->nameOf(parts.front()));
  try {
    package.setCoreProperty(CoreProperty::Description, u"fuzz");
    package.createPart(PartName(u"/fuzz/added"), ContentType(u"a/b"), {}).getOutputStream()->write("x", 1);
    package.createInternalRelationship(u"t", URI(u"/fuzz/added"), {});
  } catch (const opc::Exception&) {
    // The name may be taken, the core properties malformed.
  }
  package.close();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const support::TemporaryFolder folder;
  folder.write("fuzz.zip", {reinterpret_cast<const char*>(data), size});
  zip::Limits limits;
  limits.inflatedBytesPerOpen = 1 << 24;
  limits.contentTypeBytes = limits.relationshipBytes = 1 << 20;
  Package package(folder.wide("fuzz.zip"), limits);
  if (!opens(package, OpenMode::Modify)) return 0;
  for (const auto& part : package.index()->parts()) readAll(package.getPart(package.index()->nameOf(part)));
  changeAndSave(package);
  // What was saved is a package again: anything else is a fault of ours.
  if (!opens(package, OpenMode::Read)) std::abort();
  return 0;
}
