// The same search texts given to list, getFile and deleteFile: where their answers differ is the point.

#include "tests/module/assets/user_files_fixture.h"

namespace support {
namespace {

using Searching = UserFiles;

constexpr char kNone[] = "tavlox_io:general:EntryDoesNotExist";
constexpr char kUnsupported[] = "tavlox_io:general:UnsupportedSearch()";
constexpr char kEverything[] = "/user/a.png /user/plots/a.png /user/plots2/b /user/other/a.png /data/a.png";
constexpr char kNoPlots[] = "/user/a.png /user/plots2/b /user/other/a.png /data/a.png";

/// What list gives, which files getFile writes into "out", and what a listing after deleteFile gives; or the
/// error.
struct Search {
  const char16_t* asked;
  const char *listed, *written, *left;
};

const Search kSearches[] = {
    {u"/", kEverything, "data/a.png user/a.png user/other/a.png user/plots/a.png user/plots2/b", ""},
    {u"", kEverything, kNone, kNone},
    {u"*", kEverything, kNone, kNone},
    {u"a.png", "/user/a.png /user/plots/a.png /user/other/a.png /data/a.png", "a.png plots/a.png",
     "/user/plots2/b /user/other/a.png /data/a.png"},
    {u"A.png", "", kNone, kNone},
    {u"/user/plots", "/user/plots/a.png", "user/plots/a.png", kNoPlots},
    {u"/user/plots/", "/user/plots/a.png", "user/plots/a.png", kNoPlots},
    {u"/user/plot", "", kNone, kNone},
    {u"/user/a.png/", "", kNone, kNone},
    {u"plots/a.png", kUnsupported, kUnsupported, kUnsupported},
    {u"~", "", kNone, kNone},
};

TEST_F(Searching, AnswersOfListGetAndDelete) {
  // Two relationships mislead a walk by bare name: one leads into the user folder but is of another type, the
  // other is a user file's but leads elsewhere.
  package_.addLinked(u"/user/a.png", "1")
      .addLinked(u"/user/plots/a.png", "2")
      .addLinked(u"/user/plots2/b", "3");
  package_.add(u"/user/other/a.png", "4").link(u"/user/other/a.png", u"Other").addLinked(u"/data/a.png", "5");
  const std::string before = package_.bytes(), out = package_.folder().narrow("out");
  for (const Search& search : kSearches) {
    const std::string asked = fl::i18n::to_string(search.asked);
    const auto expectOutcome = [&](const auto& action, std::string expected) {
      std::string outcome;
      const std::string error = raisedBy([&] { outcome = action(); });
      if (expected == kNone) expected += "(" + asked + ")";
      EXPECT_EQ(error + outcome, expected) << asked;
    };
    package_.replaceBytes(before);
    std::filesystem::remove_all(out);
    expectOutcome([&] { return listed({search.asked}); }, search.listed);
    expectOutcome([&] { return got(search.asked), filesBelow(out); }, search.written);
    expectOutcome([&] { return call("deleteFile", {search.asked}), listed(); }, search.left);
    EXPECT_EQ(package_.bytes() == before, std::string(search.left).starts_with("tavlox_io")) << asked;
  }
}

TEST_F(Searching, TypesAreWhatFollowsTheLastPlus) {
  package_.add(u"/a", "1", u"image/png").add(u"/b", "2", u"application/a+b+c").add(u"/c", "3", u"text/a+");
  package_.link(u"/a").link(u"/b").link(u"/c");
  EXPECT_EQ(listed({}, u"Name"), "a b c");
  EXPECT_EQ(listed({}, u"Type"), "c ");
}

TEST_F(Searching, ADanglingRelationshipSpoilsNoAnswerAboutTheOthers) {
  for (const char16_t* part : {u"/gone", u"/user/here", u"/lost", u"/gone"}) package_.link(part);
  package_.add(u"/user/here", "text");
  const std::string rule = "opc:part:NotFound(" + package_.narrowPath();
  EXPECT_EQ(listed(), "/gone /user/here /lost /gone");
  try {
    call("getFile", {u"/", u"OutputPath", onDisk("out")});
    ADD_FAILURE() << "nothing is missed";
  } catch (const foundation::core::except::except_with_causes& error) {
    EXPECT_EQ(describe(error), rule + ", /gone)");
    ASSERT_EQ(error.causes().size(), 1u) << "each is named once";
    EXPECT_EQ(describe(error.causes()[0]), rule + ", /lost)");
  }
  EXPECT_EQ(filesBelow(package_.folder().narrow("out")), "user/here");
  call("deleteFile", {u"/gone"});
  EXPECT_EQ(listed(), "/user/here /lost");
}

TEST_F(Searching, APartIsWrittenOnceHoweverManyRelationshipsLeadToIt) {
  package_.add(u"/user/a", std::string(1 << 20, 'x'));
  for (int i = 0; i < 20; ++i) package_.link(u"/user/a");
  const auto bytesWritten = [] {
    std::string name, bytes;  // of this process, as the system counts them
    for (std::ifstream counts("/proc/self/io"); name != "wchar:";) counts >> name >> bytes;
    return std::stoull(bytes);
  };
  const auto before = bytesWritten();
  EXPECT_EQ(outputOf("getFile", {u"/", u"OutputPath", onDisk("out")}).columns(), 20u);
  EXPECT_LT(bytesWritten() - before, 3u << 20);
}

// A home folder is only looked for in a search text; everywhere else "~" is a name like others.
TEST_F(Searching, ATildeIsAName) {
  std::filesystem::current_path(package_.folder().path());
  writeOnDisk("~/a", "text");
  call("addFile", {u"~/a"});
  EXPECT_EQ(listed(), "/user/a");
  call("getFile", {u"a", u"OutputPath", u"~/out"});
  EXPECT_EQ(filesBelow(package_.folder().narrow("~")), "a out/a");
}

}  // namespace
}  // namespace support
