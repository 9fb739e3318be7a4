#include "platform/text/json_writer.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>

using fl::i18n::JsonWriter;

TEST(JsonWriter, PutsCommasWhereTheyBelong) {
  JsonWriter json;
  json.beginObject();
  json.member("empty").beginArray().endArray();
  json.member("list")
      .beginArray()
      .value(1)
      .beginObject()
      .endObject()
      .beginArray()
      .value(2)
      .endArray()
      .endArray();
  json.member("flag").value(true).member("none").value(NAN);
  json.member("nested").beginObject().member("a").value("x").endObject();
  json.member("after")
      .value(std::uint64_t{18446744073709551615u})
      .member("low")
      .value(std::numeric_limits<std::int64_t>::min());
  json.endObject();
  EXPECT_EQ(json.text(), R"({"empty":[],"list":[1,{},[2]],"flag":true,"none":null,"nested":{"a":"x"},)"
                         R"("after":18446744073709551615,"low":-9223372036854775808})");
}

TEST(JsonWriter, Texts) {
  JsonWriter json;
  json.beginArray();
  json.value(std::string_view("q\" b\\ s/ \n\x1F\0\x7F", 13))
      .value(
          "gr\xC3\xB6\xC3\x9F"
          "e");
  json.value(u"\xD83D\xDE00 ü").value(u"lone \xD800").value(u"").endArray();
  EXPECT_EQ(json.text(),
            "[\"q\\\" b\\\\ s/ \\u000a\\u001f\\u0000\x7F\",\"gr\xC3\xB6\xC3\x9F"
            "e\","
            "\"\xF0\x9F\x98\x80 \xC3\xBC\","
            "\"\\u006c\\u006f\\u006e\\u0065\\u0020\\ud800\",\"\"]");
  JsonWriter key;
  key.beginObject().member("a\"b").value(0).endObject();
  EXPECT_EQ(key.text(), R"({"a\"b":0})");
}

TEST(JsonWriter, DoublesReadBackAsTheSameNumber) {
  for (const double number : {0.1, 1.0 / 3, 1e22, 1e23, 5e-324, 2.2250738585072014e-308,
                              1.7976931348623157e308, -0.0, 9007199254740993.0}) {
    JsonWriter json;
    json.value(number);
    const double back = std::strtod(json.text().c_str(), nullptr);
    EXPECT_EQ(back, number) << json.text();
    EXPECT_EQ(std::signbit(back), std::signbit(number));
  }
  JsonWriter json;
  json.beginArray().value(0.1).value(INFINITY).value(-INFINITY).endArray();
  EXPECT_EQ(json.text(), "[0.1,null,null]");
}

TEST(JsonWriter, APieceTakenOutLeavesTheRestWhole) {
  JsonWriter json;
  json.beginArray().beginObject().member("a");
  std::string whole = json.take();
  json.value(1).member("b").value(2).endObject();
  whole += json.take();
  json.value(3).endArray();
  whole += json.take();
  EXPECT_EQ(whole, R"([{"a":1,"b":2},3])");
}
