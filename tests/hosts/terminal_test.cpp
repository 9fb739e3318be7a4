#include "hosts/cli/terminal.h"

#include <sstream>

#include <gtest/gtest.h>

#include "hosts/cli/command.h"

namespace {

TEST(Terminal, IsNotDrivenByTextNorAreItsLinesBroken) {
  struct {
    std::u16string_view value;
    std::string_view shown;
  } const cases[] = {
      {u"two\nlines\r\n", R"(two\nlines\r\n)"},
      {u"C:\\new", R"(C:\\new)"},
      {u"\x1b]0;title\x07", R"(\u001B]0;title\u0007)"},
      {u"\u009B31m", R"(\u009B31m)"},          // one character that begins a control sequence
      {u"\u202Egnp.exe", R"(\u202Egnp.exe)"},  // turns the direction of writing
      {u"a\u2028b", R"(a\u2028b)"},
      {u"a\xD800", "a\xEF\xBF\xBD"},  // half a character
      {u"\U0001F600 \u03B8", "\xF0\x9F\x98\x80 \xCE\xB8"},
  };
  for (const auto& expected : cases) EXPECT_EQ(tavlox::cli::singleLine(expected.value), expected.shown);
}

TEST(Terminal, CountsTheColumnsThatCharactersTake) {
  const std::string_view letters =
      "a\xE6\xBC\xA2\xF0\x9F\x98\x80"
      "e\xCC\x81.";  // a, a wide one, an emoji, e and its accent
  EXPECT_EQ(tavlox::cli::displayWidth(letters), 7u);
  EXPECT_EQ(tavlox::cli::cutToWidth(letters, 4), "a\xE6\xBC\xA2") << "half a character is none";
  EXPECT_EQ(tavlox::cli::displayWidth("\xFF\xFE"), 2u) << "bytes that are no text";
}

TEST(Help, Fits80Columns) {
  std::string all = tavlox::cli::generalHelp();
  for (const tavlox::cli::Command* command : tavlox::cli::allCommands())
    all += tavlox::cli::commandHelp(*command);
  std::istringstream lines(all);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(tavlox::cli::displayWidth(line), 80u) << line;
}

TEST(Progress, FitsTheTerminalWhateverIsReported) {
  struct {
    corvan::Progress progress;
    std::size_t width;
    const char* line;
  } const cases[] = {
      {{u"Loading signals", 25, 100}, 79, "Loading signals  [#####...............]  25 %"},
      {{u"Loading", 300, 100}, 79, "Loading  [####################] 100 %"},  // grew meanwhile
      {{u"Loading signals", 25, 0}, 79, "Loading signals ..."},
      {{u"Reading a long name.csv", 0, 9}, 41, "Reading a l  [....................]   0 %"},
      {{u"Reading a long name.csv", 0, 9}, 20, "Reading a long name."},
      {{u"Gr\u00F6\u00DFe", 0, 0}, 3, "Gr\xC3\xB6"},  // cut between characters, not in one
      {{u"a\x1b[2Jb", 0, 0}, 79, "a\\u001B[2Jb ..."},
      {{u"Reading", 0, 0}, 0, ""},
  };
  for (const auto& [progress, width, line] : cases)
    EXPECT_EQ(tavlox::cli::progressLine(progress, width), line);
  EXPECT_EQ(tavlox::cli::progressLine({u"Reading", 25000000, 100000000}, 79, 2.5e6),
            "Reading  [#####...............]  25 %  2.5 MB/s  0:30 left");
}

}  // namespace
