#include <map>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/filesystem.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace fs = fl::filesystem;
using support::TemporaryFolder;

namespace {

std::map<std::u16string, fs::FileType> entriesOf(const std::u16string& folder) {
  std::map<std::u16string, fs::FileType> entries;
  fs::DirectoryIterator iterator(folder);
  while (const auto entry = iterator.next()) entries.emplace(entry->path, entry->type);
  return entries;
}

}  // namespace

TEST(DirectoryIterator, GivesWhatLiesDirectlyInTheFolder) {
  const TemporaryFolder folder;
  folder.write("größe.txt", "");
  folder.write("..double", "");
  folder.write("sub/c.txt", "");
  std::filesystem::create_symlink("sub", folder.path() / "link");
  std::filesystem::create_symlink("missing", folder.path() / "dangling");
  mkfifo(folder.narrow("pipe").c_str(), 0600);
  const std::map<std::u16string, fs::FileType> expected = {
      {folder.wide("größe.txt"), fs::FileType::Regular},
      {folder.wide("..double"), fs::FileType::Regular},
      {folder.wide("sub"), fs::FileType::Directory},
      {folder.wide("link"), fs::FileType::SymbolicLink},
      {folder.wide("dangling"), fs::FileType::SymbolicLink},
      {folder.wide("pipe"), fs::FileType::Other},
  };
  EXPECT_EQ(entriesOf(folder.path().u16string()), expected);
  EXPECT_EQ(entriesOf(folder.wide("")), expected) << "a trailing separator is not doubled";
  EXPECT_EQ(entriesOf(folder.wide("sub")).size(), 1u);
}

TEST(DirectoryIterator, WhatCannotBeOpenedIsNotOpen) {
  const TemporaryFolder folder;
  folder.write("file", "");
  folder.write("locked/file", "");
  chmod(folder.narrow("locked").c_str(), 0);
  const support::Unprivileged user;
  for (const char* name : {"file", "missing", "locked"}) {
    fs::DirectoryIterator iterator(folder.wide(name));
    EXPECT_FALSE(iterator.isOpen()) << name;
    EXPECT_FALSE(iterator.next().has_value()) << name;
  }
}

TEST(DirectoryIterator, ANameThatIsNotUtf8IsReportedAndPassed) {
  const TemporaryFolder folder;
  folder.write("bad\xFFname", "");
  folder.write("good", "");
  fs::DirectoryIterator iterator(folder.path().u16string());
  int good = 0, bad = 0;
  for (int i = 0; i < 2; ++i) {
    try {
      good += iterator.next().value().path == folder.wide("good");
    } catch (const fs::Error& error) {
      ++bad;
      EXPECT_EQ(error.GetID(), "fl:filesystem:EntryNotUtf8");
      EXPECT_EQ(error.GetArguments(),
                (std::vector<std::u16string>{folder.path().u16string(), u"bad\xFFFDname"}));
    }
  }
  EXPECT_EQ(good, 1);
  EXPECT_EQ(bad, 1);
  EXPECT_FALSE(iterator.next().has_value());
}
