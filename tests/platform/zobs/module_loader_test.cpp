#include "platform/zobs/module_loader.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "platform/zobs/namespace.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

using support::raisedBy;
using zobs::COSNamespace;
using zobs::loadModule;
using zobs::internal::makeInterned;

namespace {

std::u16string module(const char* name) { return (std::filesystem::path(PROBE_FOLDER) / name).u16string(); }

std::string refusal(const std::u16string& path) {
  return raisedBy([&] { loadModule(path); });
}

}  // namespace

TEST(ModuleLoader, CallsTheOneEntryPointThatIsExported) {
  // The two kinds of symbol hash tables that linkers write.
  for (const char* name : {"probe_gnu_hash", "probe_sysv_hash"}) {
    const std::u16string path = module((std::string(name) + ".so").c_str());
    ASSERT_EQ(COSNamespace::getNamespace(makeInterned(name)), nullptr);
    EXPECT_EQ(refusal(path), "");
    EXPECT_NE(COSNamespace::getNamespace(makeInterned(name)), nullptr);
    EXPECT_EQ(refusal(path), "Corvan:ObjectSystem:NameAlreadyDefined(" + std::string(name) + ")")
        << "the entry point's own error, from its second call";
    EXPECT_TRUE(COSNamespace::getNamespace(makeInterned(name))->classes().empty())
        << "the module is still there";
  }
}

TEST(ModuleLoader, RefusesWhatIsNoModule) {
  const support::TemporaryFolder folder;
  folder.write("text.so", "This is not a shared library.\n");
  folder.write("empty.so", "");
  const std::pair<std::u16string, std::string> kRefused[] = {
      {folder.wide("text.so"), folder.narrow("text.so") + ": "},  // the system's own reason
      {folder.wide("empty.so"), folder.narrow("empty.so") + ": "},
      {folder.wide("."), ""},
      {folder.wide("none.so"), "there is no such file)"},
      {module("probe_no_entry.so"), "it exports no function named CvInitialize_...)"},
      {module("probe_two_entries.so"), "it exports several initialisation functions"},
  };
  for (const auto& [path, reason] : kRefused) {
    const std::string raised = refusal(path);
    EXPECT_TRUE(raised.starts_with("Corvan:ObjectSystem:CannotLoadModule(" + fl::i18n::to_string(path) +
                                   ", " + reason))
        << raised;
  }
  EXPECT_EQ(refusal(u""), "Corvan:ObjectSystem:CannotLoadModule(there is no such file)");
  EXPECT_EQ(COSNamespace::getNamespace(makeInterned("probe_two_entries")), nullptr);
}

TEST(ModuleLoader, ABareNameIsAFileOfTheCurrentFolder) {
  const support::TemporaryFolder folder;
  std::filesystem::copy(module("probe_gnu_hash.so"), folder.path() / "libm.so.6");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  const std::string raised = refusal(u"libm.so.6");
  std::filesystem::current_path(before);
  EXPECT_EQ(raised.find("CannotLoadModule"), std::string::npos) << raised;
}
