#include "platform/errors/catalog.h"

#include <gtest/gtest.h>

#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"

using fl::i18n::languagesOf;

namespace {

/// An installation with catalogs of its own, in which a program asks for texts. Its locale is "C".
class Catalog : public ::testing::Test {
 protected:
  Catalog() {
    std::filesystem::copy_file(CATALOG_PROBE, folder_.write("bin/probe", "").string(), kOverwrite);
  }
  void write(const std::string& catalog, std::string_view texts) {
    folder_.write("share/tavlox/catalog/" + catalog, texts);
  }
  /// What the program prints for the identifier and arguments, each quoted by the caller where the shell asks
  /// for it.
  std::string text(const std::string& words) const {
    return support::outputOf(folder_.narrow("bin/probe") + " " + words);
  }

 private:
  static constexpr auto kOverwrite = std::filesystem::copy_options::overwrite_existing;
  support::TemporaryFolder folder_;
};

TEST_F(Catalog, FillsPlaceholders) {
  write("en/t.json", R"({
    "k:all": "{1} before {0}, {1} again, {2}{3}.",
    "k:long": "{0} and \"{0}\"",
    "k:plain": "Grö\u00dfe \ud83d\ude00",
    "k:wrong": 7
  })");
  // A name, which is quoted, is cut in the middle, and never a character outside the basic plane in two.
  const std::string longest(200, 'n'), longer = std::string(99, 'a') + "😀" + std::string(100, 'b');
  const std::pair<std::string, std::string> kCases[] = {
      {"t:k:long " + longest, longest + " and \"" + longest + "\""},
      {"t:k:long " + longer, longer + " and \"" + std::string(99, 'a') + "…" + std::string(99, 'b') + "\""},
      {"t:k:unknown " + longer, "t:k:unknown: " + std::string(99, 'a') + "…" + std::string(99, 'b')},
      {"t:k:all a b c", "b before a, b again, c."},              // one without an argument is empty
      {"t:k:all '{1}' x '{0}'", "x before {1}, x again, {0}."},  // arguments are not searched
      {"t:k:plain", "Größe 😀"},
      {"t:k:wrong a", "t:k:wrong: a"},  // not a text
      {"t:k:unknown a 'b c'", "t:k:unknown: a, b c"},
  };
  for (const auto& [words, expected] : kCases) EXPECT_EQ(text(words), expected) << words;
}

TEST_F(Catalog, TheLocalesLanguageComesFirstAndEnglishStandsBehind) {
  write("C/t.json", R"({"k:both": "of C"})");
  write("en/t.json", R"({"k:both": "of en"})");
  EXPECT_EQ(text("t:k:both"), "of C");
  write("C/t.json", R"({"k:both": "cut o)");
  EXPECT_EQ(text("t:k:both"), "of en") << "a broken catalog counts as none";

  using Languages = std::vector<std::string>;
  EXPECT_EQ(languagesOf("de_DE.UTF-8"), (Languages{"de_DE", "de", "en"}));
  EXPECT_EQ(languagesOf("../../etc"), (Languages{"en"}));
  EXPECT_EQ(languagesOf("LC_CTYPE=de_DE.UTF-8;LC_TIME=C"), (Languages{"en"}));
}

}  // namespace
