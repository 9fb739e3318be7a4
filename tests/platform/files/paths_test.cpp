#include "platform/files/paths.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace fs = fl::filesystem;

TEST(Paths, Pieces) {
  const struct {
    std::u16string path, name, extension, parent;
  } kCases[] = {
      {u"/a/b.txt", u"b.txt", u"txt", u"/a"},
      {u"/a", u"a", u"", u"/"},
      {u"/", u"", u"", u"/"},
      {u"/a.d/b", u"b", u"", u"/a.d"},  // the folder's dot is not the file's
      {u"/a/.hidden", u".hidden", u"", u"/a"},
      {u"ends.", u"ends.", u"", u""},
      {u"..", u"..", u"", u""},
      {u"a\\b", u"a\\b", u"", u""},  // a backslash separates nothing
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::string(test.path.begin(), test.path.end()));
    EXPECT_EQ(fs::extract_filename(test.path), test.name);
    EXPECT_EQ(fs::extract_extension(test.path), test.extension);
    EXPECT_EQ(fs::extract_parent_path(test.path), test.parent);
  }
}

TEST(Paths, Concatenation) {
  EXPECT_EQ(fs::concatenate(u"/user", u"a"), u"/user/a");
  EXPECT_EQ(fs::concatenate(u"out", u"/etc/x"), u"out/etc/x") << "stays inside the folder";
  EXPECT_EQ(fs::concatenate(u"/", u"a"), u"/a");
  EXPECT_EQ(fs::concatenate(u"", u"a"), u"a");
  EXPECT_EQ(fs::concatenate(u"/", u"/"), u"/");
}

TEST(Paths, OnlyALeadingTildeExpands) {
  setenv("HOME", "/home/größe", 1);
  setenv("X", "/x", 1);
  EXPECT_EQ(fs::expand(u"~"), u"/home/größe");
  EXPECT_EQ(fs::expand(u"~/a"), u"/home/größe/a");
  EXPECT_EQ(fs::expand(u"~/"), u"/home/größe");
  EXPECT_TRUE(fs::is_absolute_path_when_expanded(u"~/"));
  for (const auto* unchanged : {u"~root/a", u"a/~", u"$X/a", u"a", u""}) {
    EXPECT_EQ(fs::expand(unchanged), unchanged);
    EXPECT_FALSE(fs::is_absolute_path_when_expanded(unchanged));
  }
  unsetenv("HOME");
  EXPECT_TRUE(fs::is_absolute_path_when_expanded(u"~/a")) << "the user database knows the home folder too";
}
