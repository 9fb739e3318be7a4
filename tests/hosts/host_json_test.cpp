#include "hosts/cli/host_json.h"

#include <limits>

#include <gtest/gtest.h>

#include "platform/text/conversion.h"

namespace {

using corvan::HostArray;
using corvan::NumericClass;

std::string json(const HostArray& array) {
  fl::i18n::JsonWriter writer;
  tavlox::cli::writeJson(writer, array);
  return writer.text();
}

template <class Number>
HostArray numbers(NumericClass numericClass, std::size_t rows, std::size_t columns,
                  std::vector<Number> values) {
  HostArray array = HostArray::numeric(numericClass, rows, columns);
  std::copy(values.begin(), values.end(), array.mutableValues<Number>().begin());
  return array;
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
  const std::int32_t ids[] = {7, 3};
  struct {
    HostArray array;
    const char* expected;
  } const cases[] = {
      {HostArray::charRow(u"caf\u00E9 \"1\"\n"), R"("café \"1\"\u000a")"},
      {HostArray::charRow(u""), R"("")"},
      {HostArray::doubleScalar(0.1), "0.1"},
      {HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN()), "null"},
      {HostArray::int32Scalar(-2147483647), "-2147483647"},
      {HostArray::logicalScalar(true), "true"},
      {HostArray::int32Row(ids), "[7,3]"},
      {HostArray::int32Column(ids), "[7,3]"},
      {HostArray::int32Row({}), "[]"},
      {HostArray(), "[]"},
      {numbers<std::uint64_t>(NumericClass::UInt64, 1, 1, {18446744073709551615u}), "18446744073709551615"},
      {numbers<std::int8_t>(NumericClass::Int8, 2, 3, {1, 2, 3, 4, 5, 6}), "[[1,3,5],[2,4,6]]"},
      {cells, R"([[],"a"])"},
      {runs(1, 1), R"({"id":1,"Name":"run"})"},
      {runs(1, 2), R"([{"id":1,"Name":"run"},{"id":2,"Name":"run"}])"},
      {runs(2, 1), R"([{"id":1,"Name":"run"},{"id":2,"Name":"run"}])"},
      {runs(0, 0), "[]"},
  };
  for (const auto& expected : cases) EXPECT_EQ(json(expected.array), expected.expected);
}

TEST(HostJson, TablesShowTextsAsTheyAreAndOtherValuesAsJson) {
  EXPECT_EQ(tavlox::cli::cellText(std::u16string(u"a \"b\"")), u"a \"b\"");
  EXPECT_EQ(tavlox::cli::cellText(HostArray::charRow(u"a \"b\"")), u"a \"b\"");
  EXPECT_EQ(tavlox::cli::cellText(HostArray::int32Scalar(3)), u"3");
  EXPECT_EQ(tavlox::cli::cellText(HostArray::logicalScalar(false)), u"false");
  EXPECT_EQ(tavlox::cli::cellText(HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN())), u"");
}

}  // namespace
