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
  const std::pair<const char16_t*, const char*> kTypes[] = {
      {u"image/png", ""}, {u"application/a+b+c", "c"}, {u"application/a+", ""}};
  for (const auto& [contentType, type] : kTypes) {
    package_.add(u"/user/a", "1", contentType).link(u"/user/a");
    EXPECT_EQ(listed({}, u"Type"), type);
    EXPECT_EQ(listed({}, u"Name"), "a");
    call("deleteFile", {u"/user/a"});
  }
}

TEST_F(Searching, ADanglingRelationshipStopsOnlyWhatNeedsItsPart) {
  package_.link(u"/user/gone.txt").addLinked(u"/user/here.txt", "text");
  const std::string notFound = "opc:part:NotFound(" + package_.narrowPath() + ", /user/gone.txt)";
  EXPECT_EQ(errorOf("list", {}), notFound);
  EXPECT_EQ(raisedBy([&] { got(u"gone.txt"); }), notFound);
  EXPECT_EQ(listed({u"here.txt"}), "/user/here.txt");
  EXPECT_EQ(got(u"/user/here.txt"), "out/user/here.txt");
  call("deleteFile", {u"gone.txt"});
  EXPECT_EQ(listed(), "/user/here.txt");
}

}  // namespace
}  // namespace support
