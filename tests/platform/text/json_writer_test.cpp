#include "platform/text/json_writer.h"

#include <cmath>

#include <gtest/gtest.h>

using fl::i18n::JsonWriter;

TEST(JsonWriter, PutsCommasWhereTheyBelong) {
  JsonWriter json;
  json.beginObject().member("empty").beginArray().endArray();
  json.member("list").beginArray().value(1).beginObject().endObject();
  json.beginArray().value(2).endArray().endArray();
  json.member("flag").value(true).member("none").value(-INFINITY);
  std::string whole = json.take();  // a piece taken out leaves the rest whole
  json.member("nested").beginObject().member("a").value("x");
  whole += json.take();
  json.endObject().member("high").value(std::uint64_t{18446744073709551615u});
  json.member("low").value(INT64_MIN).endObject();
  EXPECT_EQ(whole + json.take(),
            R"({"empty":[],"list":[1,{},[2]],"flag":true,"none":null,"nested":{"a":"x"},)"
            R"("high":18446744073709551615,"low":-9223372036854775808})");
}

TEST(JsonWriter, Texts) {
  JsonWriter json;
  json.beginObject().member("a\"b").beginArray();
  json.value(std::string_view("q\" b\\ s/ \n\x1F\0\x7F", 13)).value("größe");
  json.value(u"\xD83D\xDE00 ü").value(u"lo \xD800").value(u"").endArray().endObject();
  EXPECT_EQ(json.text(),
            "{\"a\\\"b\":[\"q\\\" b\\\\ s/ \\u000a\\u001f\\u0000\\u007f\",\"größe\",\"😀 ü\","
            "\"\\u006c\\u006f\\u0020\\ud800\",\"\"]}");
}

TEST(JsonWriter, NoUnitOfALongTextIsOverlooked) {
  for (const std::size_t length : {1, 8, 13, 254, 255}) {
    for (std::size_t at = 0; at < length; ++at) {
      const bool isQuote = at % 2 == 0;
      std::u16string text(length, u'x');
      text[at] = isQuote ? u'"' : u'\u0178';  // whose lower half is an x
      std::string expected(length, 'x');
      expected.replace(at, 1, isQuote ? "\\\"" : "Ÿ");
      EXPECT_EQ(JsonWriter().value(text).text(), '"' + expected + '"') << length << " units, at " << at;
    }
  }
}

TEST(JsonWriter, DoublesReadBackAsTheSameNumber) {
  for (const double number : {0.1, 1.0 / 3, 1e23, 1e-300, 1.7976931348623157e308, 9007199254740993.0}) {
    EXPECT_EQ(std::stod(JsonWriter().value(number).text()), number);
  }
}
