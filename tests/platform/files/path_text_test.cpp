#include <cstdlib>

#include <gtest/gtest.h>

#include "platform/files/filesystem.h"

namespace fs = fl::filesystem;

TEST(PathText, Pieces) {
  struct Case {
    std::u16string path, name, extension, parent;
  };
  const Case kCases[] = {
      {u"/a/b.txt", u"b.txt", u"txt", u"/a"},
      {u"b.tar.gz", u"b.tar.gz", u"gz", u""},
      {u"/a", u"a", u"", u"/"},
      {u"/", u"", u"", u"/"},
      {u"//a", u"a", u"", u"/"},
      {u"/a//b", u"b", u"", u"/a"},
      {u"/a.d/b", u"b", u"", u"/a.d"},  // the folder's dot is not the file's
      {u"/a/", u"", u"", u"/a"},
      {u"/a/.hidden", u".hidden", u"", u"/a"},
      {u"/a/.hidden.TXT", u".hidden.TXT", u"TXT", u"/a"},
      {u"ends.", u"ends.", u"", u""},
      {u"..", u"..", u"", u""},
      {u"Größe.été", u"Größe.été", u"été", u""},
      {u"a\\b", u"a\\b", u"", u""},  // a backslash separates nothing
      {u"", u"", u"", u""},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(std::string(c.path.begin(), c.path.end()));
    EXPECT_EQ(fs::extract_filename(c.path), c.name);
    EXPECT_EQ(fs::extract_extension(c.path), c.extension);
    EXPECT_EQ(fs::extract_parent_path(c.path), c.parent);
  }
}

TEST(PathText, Concatenation) {
  struct Case {
    std::u16string folder, name, joined;
  };
  const Case kCases[] = {
      {u"/user", u"a", u"/user/a"},
      {u"/user/", u"a", u"/user/a"},
      {u"/user//", u"a", u"/user/a"},
      {u"out", u"/etc/x", u"out/etc/x"},  // stays inside the folder
      {u"/", u"a", u"/a"},
      {u"", u"a", u"a"},
      {u"a/", u"", u"a/"},
      {u"", u"", u""},
      {u"/", u"/", u"/"},
      {u"a//b", u"c", u"a//b/c"},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(fs::concatenate(c.folder, c.name), c.joined) << std::string(c.joined.begin(), c.joined.end());
  }
}

TEST(PathText, OnlyALeadingTildeExpands) {
  setenv("HOME", "/home/größe", 1);
  setenv("X", "/x", 1);
  struct Case {
    std::u16string path, expanded;
    bool absolute;
  };
  const Case kCases[] = {
      {u"~", u"/home/größe", true},
      {u"~/a", u"/home/größe/a", true},
      {u"~/", u"/home/größe", true},
      {u"~root/a", u"~root/a", false},
      {u"a/~", u"a/~", false},
      {u"/~", u"/~", true},
      {u"$X/a", u"$X/a", false},
      {u"a", u"a", false},
      {u"", u"", false},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(fs::expand(c.path), c.expanded);
    EXPECT_EQ(fs::is_absolute_path_when_expanded(c.path), c.absolute);
  }
  unsetenv("HOME");
  EXPECT_TRUE(fs::is_absolute_path_when_expanded(u"~/a")) << "the user database knows the home folder too";
}
