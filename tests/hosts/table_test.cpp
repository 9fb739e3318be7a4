#include "hosts/cli/table.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "hosts/cli/terminal.h"

namespace {

using tavlox::cli::Table;
using tavlox::cli::TableStyle;

TEST(Table, IsAlignedForPeopleAndTabSeparatedForPrograms) {
  Table table({"Name", "Rows"});
  table.addRow({u"hot", u"1000"});
  table.addRow({u"caf\u00E9 noir", u""});
  EXPECT_EQ(table.format(TableStyle::Aligned), "Name       Rows\nhot        1000\ncaf\xC3\xA9 noir\n");
  EXPECT_EQ(table.format(TableStyle::TabSeparated), "hot\t1000\ncaf\xC3\xA9 noir\t\n");
  EXPECT_EQ(table.format(TableStyle::AlignedInColour).substr(0, 4), "\x1b[1m");
}

TEST(Table, OfManyRowsIsHandedOverInPieces) {
  const tavlox::cli::Rows rows{.count = 20000, .row = [](std::size_t i) {
                                 return std::vector<std::string>{std::to_string(i), "x"};
                               }};
  for (const TableStyle style : {TableStyle::Aligned, TableStyle::TabSeparated}) {
    std::string text;
    std::size_t longest = 0;
    tavlox::cli::writeTable({"n", "v"}, rows, style, [&](std::string_view piece) {
      text += piece;
      longest = std::max(longest, piece.size());
    });
    const bool isAligned = style == TableStyle::Aligned;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), isAligned ? 20001 : 20000);
    EXPECT_TRUE(text.starts_with(isAligned ? "n      v\n0      x\n" : "0\tx\n1\tx\n"));
    EXPECT_TRUE(text.ends_with(isAligned ? "19999  x\n" : "19999\tx\n"));
    EXPECT_LT(longest, 65u * 1024);
  }
}

TEST(Table, ValuesCannotBreakLinesOrDriveTheTerminal) {
  struct {
    std::u16string_view value;
    std::string_view shown;
  } const cases[] = {
      {u"two\nlines\r\n", R"(two\nlines\r\n)"},
      {u"tab\there", R"(tab\there)"},
      {u"C:\\new", R"(C:\\new)"},
      {u"\x1b]0;title\x07", R"(\u001B]0;title\u0007)"},
      {u"\u009B31m", R"(\u009B31m)"},          // one character that begins a control sequence
      {u"\u202Egnp.exe", R"(\u202Egnp.exe)"},  // turns the direction of writing
      {u"a\u2028b", R"(a\u2028b)"},
      {u"a\xD800"
       u"b",
       "a\xEF\xBF\xBD"
       "b"},  // half a character
      {u"\U0001F600 \u03B8", "\xF0\x9F\x98\x80 \xCE\xB8"},
  };
  for (const auto& expected : cases) {
    Table table;
    table.addRow({std::u16string(expected.value), u"next"});
    EXPECT_EQ(table.format(TableStyle::TabSeparated), std::string(expected.shown) + "\tnext\n");
  }
}

}  // namespace
