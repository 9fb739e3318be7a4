#include "hosts/cli/output.h"

#include <algorithm>
#include <limits>

#include <gtest/gtest.h>

#include "hosts/cli/host_json.h"

namespace {

using corvan::HostArray;
using corvan::NumericClass;
using tavlox::cli::Table;
using tavlox::cli::TableStyle;

std::string format(const Table& table, TableStyle style) {
  std::string text;
  tavlox::cli::writeTable(table, style, [&](std::string_view piece) {
    EXPECT_LT(piece.size(), 65u * 1024) << "a long table is handed over in pieces";
    text += piece;
  });
  return text;
}

TEST(Table, IsAlignedForPeopleAndTabSeparatedForPrograms) {
  const std::vector<std::u16string> rows[] = {{u"hot", u"10\n0"}, {u"caf\u00E9 noir", u""}};
  const Table table{{"Name", "Rows"}, 2, [&](std::size_t i) { return rows[i]; }};
  EXPECT_EQ(format(table, TableStyle::Aligned), "Name       Rows\nhot        10\\n0\ncaf\xC3\xA9 noir\n");
  EXPECT_EQ(format(table, TableStyle::TabSeparated), "hot\t10\\n0\ncaf\xC3\xA9 noir\t\n");
}

TEST(Table, OfManyRowsIsHandedOverInPieces) {
  const auto row = [](std::size_t i) {
    return std::vector<std::u16string>{u"x", std::u16string(i % 7, u'y')};
  };
  const Table table{{"n", "v"}, 20000, row};
  EXPECT_EQ(std::ranges::count(format(table, TableStyle::Aligned), '\n'), 20001);
  EXPECT_EQ(std::ranges::count(format(table, TableStyle::TabSeparated), '\n'), 20000);
}

HostArray runs(std::size_t rows, std::size_t columns) {
  const std::u16string_view fields[] = {u"id", u"Name"};
  HostArray array = HostArray::structure(rows, columns, fields);
  for (std::size_t i = 0; i < array.elementCount(); ++i) {
    array.setField(i, u"id", HostArray::int32Scalar(static_cast<std::int32_t>(i) + 1));
    array.setField(i, u"Name", HostArray::charRow(u"run"));
  }
  return array;
}

TEST(HostJson, HasTheShapeThatReadersExpect) {
  HostArray cells = HostArray::cell(1, 2);
  cells.setCell(1, HostArray::charRow(u"a"));
  HostArray largest = HostArray::numeric(NumericClass::UInt64, 1, 1);
  largest.mutableValues<std::uint64_t>()[0] = std::numeric_limits<std::uint64_t>::max();
  HostArray matrix = HostArray::numeric(NumericClass::Int8, 2, 3);
  std::ranges::copy(std::initializer_list<std::int8_t>{1, 2, 3, 4, 5, 6},
                    matrix.mutableValues<std::int8_t>().begin());
  const std::int32_t ids[] = {7, 3};
  struct {
    HostArray array;
    const char* expected;
  } const cases[] = {
      {HostArray::charRow(u"\u00E9\u009F \"1\"\n\x7F\u009B31m"), R"("é\u009f \"1\"\u000a\u007f\u009b31m")"},
      {HostArray::doubleScalar(0.1), "0.1"},
      {HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN()), "null"},
      {HostArray::logicalScalar(true), "true"},
      {HostArray::int32Row(ids), "[7,3]"},
      {largest, "18446744073709551615"},
      {matrix, "[[1,3,5],[2,4,6]]"},
      {cells, R"([[],"a"])"},
      {runs(1, 1), R"({"id":1,"Name":"run"})"},
      {runs(1, 2), R"([{"id":1,"Name":"run"},{"id":2,"Name":"run"}])"},
      {runs(0, 0), "[]"},
  };
  for (const auto& [array, expected] : cases) {
    fl::i18n::JsonWriter writer;
    tavlox::cli::writeJson(writer, array);
    EXPECT_EQ(writer.text(), expected);
  }
}

TEST(HostJson, TablesShowTextsAsTheyAreAndOtherValuesAsJson) {
  EXPECT_EQ(tavlox::cli::cellText(HostArray::charRow(u"a \"b\"")), u"a \"b\"");
  EXPECT_EQ(tavlox::cli::cellText(HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN())), u"");
}

}  // namespace
