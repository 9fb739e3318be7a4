#include "platform/zobs/module_loader.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "platform/zobs/namespace.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

using support::raisedBy;
using zobs::COSNamespace;
using zobs::loadModule;

namespace {

std::u16string probe(const std::string& name) {
  return std::filesystem::path(PROBE_FOLDER "/" + name).u16string();
}

TEST(ModuleLoader, CallsTheOneEntryPointThatIsExported) {
  // The two kinds of symbol hash tables that linkers write.
  for (const std::string name : {"probe_gnu_hash", "probe_sysv_hash"}) {
    loadModule(probe(name + ".so"));
    ASSERT_NE(COSNamespace::getNamespace(name), nullptr);
    EXPECT_EQ(raisedBy([&] { loadModule(probe(name + ".so")); }),
              "Corvan:ObjectSystem:NameAlreadyDefined(" + name + ")")
        << "the entry point's own error, from its second call";
    EXPECT_TRUE(COSNamespace::getNamespace(name)->classes().empty()) << "the module is still there";
  }
}

TEST(ModuleLoader, RefusesWhatIsNoModule) {
  const support::TemporaryFolder folder;
  folder.write("text.so", "This is not a shared library.\n");
  const std::pair<std::u16string, std::string> kRefused[] = {
      {folder.wide("text.so"), folder.narrow("text.so") + ": "},  // the system's own reason
      {folder.wide("none.so"), "there is no such file)"},
      {probe("probe_no_entry.so"), "it exports no function named CvInitialize_...)"},
      {probe("probe_two_entries.so"), "it exports several initialisation functions"},
  };
  for (const auto& [path, reason] : kRefused) {
    const std::string raised = raisedBy([&] { loadModule(path); }), name = fl::i18n::to_string(path);
    EXPECT_TRUE(raised.starts_with("Corvan:ObjectSystem:CannotLoadModule(" + name + ", " + reason)) << raised;
  }
}

TEST(ModuleLoader, ABareNameIsAFileOfTheCurrentFolder) {
  const support::TemporaryFolder folder;
  std::filesystem::copy(probe("probe_gnu_hash.so"), folder.path() / "libm.so.6");
  std::filesystem::current_path(folder.path());
  loadModule(u"libm.so.6");
  EXPECT_NE(COSNamespace::getNamespace("probe_gnu_hash"), nullptr);
}

}  // namespace
