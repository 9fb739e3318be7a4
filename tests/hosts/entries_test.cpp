#include "hosts/cli/entries.h"

#include <gtest/gtest.h>

namespace {

using namespace tavlox::cli;
using Texts = std::vector<std::u16string>;

const std::vector<Entry> kListed = {
    {u"/user/a.png", u"a.png"},
    {u"/user/plots/a.png", u"a.png"},
    {u"/session/a.png", u"a.png"},
    {u"/user/*", u"*"},
};

TEST(Entries, AreExtractedToWhereTheModuleWritesThem) {
  struct {
    const char16_t *search, *folder;
    Texts targets;
  } const cases[] = {
      {u"/", u"/out", {u"/out/user/a.png", u"/out/user/plots/a.png", u"/out/session/a.png", u"/out/user/*"}},
      {u"a.png", u"/out/", {u"/out/a.png", u"/out/plots/a.png"}},  // user files only
      {u"*", u"/out", {u"/out/*"}},                                // lists everything, but is a name
      {u"", u"/out", {}},
  };
  for (const auto& expected : cases) {
    EXPECT_EQ(extractionTargets(kListed, expected.search, expected.folder), expected.targets);
  }
}

TEST(Entries, OutsideTheUserFolderAreToldFromThoseInIt) {
  EXPECT_EQ(outsideUserFolder(
                {{u"/user/a", u"a"}, {u"/userdata/a", u"a"}, {u"/User/a", u"a"}, {u"/user", u"user"}}),
            (Texts{u"/userdata/a", u"/User/a", u"/user"}));
}

TEST(Entries, AreStoredUnderTheirOwnNameInTheFolderAskedFor) {
  struct {
    const char16_t *folder, *disk, *stored;
  } const cases[] = {
      {u"", u"plots/a.png", u"/user/a.png"},
      {u"/user/plots", u"a.png", u"/user/plots/a.png"},
      {u"/user/plots/", u"/tmp/a.png", u"/user/plots/a.png"},
      {u"/", u"./a b#.png", u"/a b#.png"},
  };
  for (const auto& expected : cases) EXPECT_EQ(storedName(expected.folder, expected.disk), expected.stored);
}

TEST(Entries, ManyNamesAreCutInAMessage) {
  EXPECT_EQ(namesInMessage({u"/a", u"/b"}), u"/a, /b");
  EXPECT_EQ(namesInMessage({u"1", u"2", u"3", u"4", u"5", u"6", u"7"}), u"1, 2, 3, 4, 5 and 2 more");
}

}  // namespace
