#include "platform/text/conversion.h"

#include <gtest/gtest.h>

using namespace fl::i18n;
using namespace std::string_literals;
using namespace std::string_view_literals;

TEST(Conversion, BothWaysGiveTheSameText) {
  struct Case {
    std::string narrow;
    std::u16string wide;
  };
  const Case kCases[] = {
      {"", u""},
      {"a\0b"s, u"a\0b"s},
      {"\x7F", u"\x7F"},
      {"\xC2\x80", u"\x80"},
      {"\xDF\xBF", u"\x7FF"},
      {"\xE0\xA0\x80", u"\x800"},
      {"\xED\x9F\xBF", u"\xD7FF"},
      {"\xEE\x80\x80", u"\xE000"},
      {"\xEF\xBF\xBF", u"\xFFFF"},
      {"\xEF\xBB\xBF", u"\xFEFF"},  // a mark is a character like others
      {"\xF0\x90\x80\x80", u"\xD800\xDC00"},
      {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
      {"e\xCC\x81", u"e\x301"},  // nothing is normalised
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.narrow);
    EXPECT_EQ(to_ustring(c.narrow), c.wide);
    EXPECT_EQ(to_string(c.wide), c.narrow);
    EXPECT_EQ(to_ustring_lossy(c.narrow), c.wide);
    EXPECT_EQ(to_string_lossy(c.wide), c.narrow);
    EXPECT_TRUE(is_well_formed(c.narrow) && is_well_formed(c.wide));
  }
}

// One U+FFFD for each longest start of a sequence, as other programs show the same bytes.
TEST(Conversion, IllFormedUtf8) {
  struct Case {
    std::string narrow;
    const char* offset;
    std::u16string shown;
  };
  const Case kCases[] = {
      {"a\x80z", "byte 1", u"a\xFFFDz"},                            // continuation without a lead
      {"\xC0\xAF", "byte 0", u"\xFFFD\xFFFD"},                      // overlong "/"
      {"\xC1\xBF", "byte 0", u"\xFFFD\xFFFD"},                      //
      {"\xE0\x80\xAF", "byte 0", u"\xFFFD\xFFFD\xFFFD"},            //
      {"\xE0\x9F\xBF", "byte 0", u"\xFFFD\xFFFD\xFFFD"},            //
      {"\xF0\x8F\xBF\xBF", "byte 0", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  //
      {"\xED\xA0\x80", "byte 0", u"\xFFFD\xFFFD\xFFFD"},            // a surrogate
      {"\xED\xBF\xBF", "byte 0", u"\xFFFD\xFFFD\xFFFD"},            //
      {"\xF4\x90\x80\x80", "byte 0", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // over U+10FFFF
      {"\xF5\x80\x80\x80", "byte 0", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  //
      {"\xF8\x88\x80\x80\x80", "byte 0", u"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
      {"\xFE\xFF", "byte 0", u"\xFFFD\xFFFD"},
      {"ab\xC3", "byte 2", u"ab\xFFFD"},              // cut off after one, two, three bytes
      {"\xE2\x82", "byte 0", u"\xFFFD"},              //
      {"\xF0\x9F\x98", "byte 0", u"\xFFFD"},          //
      {"\xF0\x9F\x98z", "byte 0", u"\xFFFDz"},        // what follows is not swallowed
      {"\xE2\x82\xC3\xA9", "byte 0", u"\xFFFD\xE9"},  //
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", "byte 0",
       u"\xFFFD\xFFFD\xFFFD\xFFFD"
       u"A"},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(to_string(c.shown) + " " + std::to_string(c.narrow.size()));
    EXPECT_FALSE(is_well_formed(c.narrow));
    EXPECT_EQ(to_ustring_lossy(c.narrow), c.shown);
    try {
      to_ustring(c.narrow);
      ADD_FAILURE() << "accepted";
    } catch (const ConversionError& error) {
      EXPECT_NE(std::string(error.what()).find(c.offset + "."s), std::string::npos) << error.what();
    }
  }
}

TEST(Conversion, LoneSurrogates) {
  struct Case {
    std::u16string wide;
    std::string shown;
  };
  const Case kCases[] = {
      {u"a\xD800z", "a\xEF\xBF\xBDz"},
      {u"a\xDC00", "a\xEF\xBF\xBD"},
      {u"\xD800", "\xEF\xBF\xBD"},
      {u"\xDC00\xD800", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {u"\xD800\xD800\xDC00", "\xEF\xBF\xBD\xF0\x90\x80\x80"},
  };
  for (const Case& c : kCases) {
    EXPECT_FALSE(is_well_formed(c.wide));
    EXPECT_EQ(to_string_lossy(c.wide), c.shown);
    EXPECT_THROW(to_string(c.wide), ConversionError);
  }
}
