// The same search texts given to list, getFile and deleteFile: where their answers differ is the point.

#include "tests/module/assets/user_files_fixture.h"

namespace support {
namespace {

class Searching : public UserFiles {
 protected:
  void fill(PackageFixture& package) {
    package.addLinked(u"/user/a.png", "1").addLinked(u"/user/plots/a.png", "2");
    package.addLinked(u"/user/plots2/b.txt", "3");
    package.add(u"/session/a.png", "4").link(u"/session/a.png", u"ORRASessionSamplesRelType");
  }
};

constexpr char kNone[] = "tavlox_io:general:EntryDoesNotExist";
constexpr char kUnsupported[] = "tavlox_io:general:UnsupportedSearch()";
constexpr char kEverything[] = "/user/a.png /user/plots/a.png /user/plots2/b.txt /session/a.png";

struct Search {
  const char16_t* asked;
  const char *listed, *written, *left;
};

const Search kSearches[] = {
    {u"/", kEverything, "out/user/a.png out/user/plots/a.png out/user/plots2/b.txt out/session/a.png", ""},
    {u"", kEverything, kNone, kNone},
    {u"*", kEverything, kNone, kNone},
    {u"*.png", "", kNone, kNone},
    {u"a.png", "/user/a.png /user/plots/a.png /session/a.png", "out/a.png out/plots/a.png",
     "/user/plots2/b.txt /session/a.png"},
    {u"A.png", "", kNone, kNone},
    {u"/user/plots", "/user/plots/a.png", "out/user/plots/a.png",
     "/user/a.png /user/plots2/b.txt /session/a.png"},
    {u"/user/plots/", "/user/plots/a.png", "out/user/plots/a.png",
     "/user/a.png /user/plots2/b.txt /session/a.png"},
    {u"/user/plot", "", kNone, kNone},
    {u"/user/a", "", kNone, kNone},
    {u"/USER/a.png", "", kNone, kNone},
    {u"/user/a.png/", "", kNone, kNone},
    {u"//user/a.png", "", kNone, kNone},
    {u"/session/a.png", "/session/a.png", "out/session/a.png",
     "/user/a.png /user/plots/a.png /user/plots2/b.txt"},
    {u"plots/a.png", kUnsupported, kUnsupported, kUnsupported},
    {u"./a.png", kUnsupported, kUnsupported, kUnsupported},
    {u"a.png/", kUnsupported, kUnsupported, kUnsupported},
    {u"~", "", kNone, kNone},
};

/// An expected error without arguments stands for one with the search text.
std::string withSearch(const char* expected, const char16_t* asked) {
  if (expected != std::string(kNone)) return expected;
  return std::string(kNone) + "(" + fl::i18n::to_string(asked) + ")";
}

TEST_F(Searching, AnswersOfListGetAndDelete) {
  for (const Search& search : kSearches) {
    SCOPED_TRACE(fl::i18n::to_string(search.asked));
    const auto outcomeOf = [](const auto& action) {
      std::string outcome;
      const std::string error = raisedBy([&] { outcome = action(); });
      return error.empty() ? outcome : error;
    };
    PackageFixture fresh;
    fill(fresh);
    package_.replaceBytes(fresh.bytes());
    std::filesystem::remove_all(package_.folder().path() / "out");

    EXPECT_EQ(outcomeOf([&] { return joined(listed({search.asked})); }), search.listed);
    const std::string written = outcomeOf([&] { return joined(got(search.asked)); });
    EXPECT_EQ(written, withSearch(search.written, search.asked));
    const auto files = filesBelow(package_.folder().path() / "out");
    EXPECT_EQ(files.empty(), written.starts_with("tavlox_io"));

    const std::string before = package_.bytes();
    const std::string left = outcomeOf([&] {
      EXPECT_TRUE(call("deleteFile", {search.asked}).empty());
      return joined(listed());
    });
    EXPECT_EQ(left, withSearch(search.left, search.asked));
    EXPECT_EQ(package_.bytes() == before, left.starts_with("tavlox_io"));
  }
}

TEST_F(Searching, ListsFromTheRootWithoutASearchText) {
  fill(package_);
  EXPECT_EQ(joined(listed()), kEverything);
  EXPECT_EQ(joined(listed({}, u"Name")), "a.png a.png b.txt a.png");
}

TEST_F(Searching, TypesAreWhatFollowsTheLastPlus) {
  const std::pair<const char16_t*, const char*> kTypes[] = {{u"image/png", ""},
                                                            {u"application/a+xml", "xml"},
                                                            {u"application/a+b+c", "c"},
                                                            {u"application/a+", ""}};
  for (const auto& [contentType, type] : kTypes) {
    package_.add(u"/user/a", "1", contentType).link(u"/user/a");
    EXPECT_EQ(joined(listed({u"/user/a"}, u"Type")), type);
    call("deleteFile", {u"/user/a"});
  }
}

TEST_F(Searching, TwoRelationshipsToOnePartAreTwoEntries) {
  package_.addLinked(u"/user/a.txt", "1").link(u"/user/a.txt", u"Other");
  EXPECT_EQ(joined(listed({u"a.txt"})), "/user/a.txt /user/a.txt");
  call("deleteFile", {u"/user/a.txt"});
  EXPECT_EQ(joined(listed()), "");
}

TEST_F(Searching, ADanglingRelationshipStopsOnlyWhatNeedsItsPart) {
  package_.link(u"/user/gone.txt").addLinked(u"/user/here.txt", "text");
  const std::string notFound = "opc:part:NotFound(" + package_.narrowPath() + ", /user/gone.txt)";
  EXPECT_EQ(errorOf("list", {}), notFound);
  EXPECT_EQ(raisedBy([&] { got(u"gone.txt"); }), notFound);
  EXPECT_EQ(joined(listed({u"here.txt"})), "/user/here.txt");
  EXPECT_EQ(joined(got(u"/user/here.txt")), "out/user/here.txt");
  call("deleteFile", {u"gone.txt"});
  EXPECT_EQ(joined(listed()), "/user/here.txt");
}

}  // namespace
}  // namespace support
