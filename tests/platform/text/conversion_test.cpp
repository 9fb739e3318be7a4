#include "platform/text/conversion.h"

#include <gtest/gtest.h>

#include "tests/support/raised.h"

using namespace fl::i18n;
using namespace std::string_literals;

TEST(Conversion, BothWaysGiveTheSameText) {
  const std::pair<std::string, std::u16string> kCases[] = {
      {"a\0b \x7F"s, u"a\0b \x7F"s},
      {"\xC2\x80 \xDF\xBF", u"\x80 \x7FF"},
      {"\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80", u"\x800 \xD7FF \xE000"},
      {"\xEF\xBB\xBF", u"\xFEFF"},  // a byte order mark is a character like others
      {"\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF", u"\xD800\xDC00 \xDBFF\xDFFF"},
      {"sixteen in ASCIIe\xCC\x81", u"sixteen in ASCIIe\x301"},  // nothing is normalised
  };
  for (const auto& [narrow, wide] : kCases) {
    EXPECT_EQ(to_ustring(narrow), wide);
    EXPECT_EQ(to_string(wide), narrow);
    EXPECT_EQ(to_ustring_lossy(narrow), wide);
  }
}

// One U+FFFD for each longest start of a sequence, as other programs show the same bytes.
TEST(Conversion, IllFormedUtf8IsAnErrorInANameAndShownInAMessage) {
  const std::tuple<std::string, std::string, std::u16string> kCases[] = {
      {"a\x80z", "byte 1.", u"a\xFFFDz"},                            // continuation without a lead
      {"\xC0\xAF", "byte 0.", u"\xFFFD\xFFFD"},                      // overlong "/"
      {"\xED\xA0\x80", "byte 0.", u"\xFFFD\xFFFD\xFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", "byte 0.", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // over U+10FFFF
      {"ab\xC3", "byte 2.", u"ab\xFFFD"},                            // cut off after one, two, three bytes
      {"\xE2\x82\xC3\xA9z", "byte 0.", u"\xFFFD\xE9z"},              // what follows is not swallowed
  };
  for (const auto& [narrow, offset, shown] : kCases) {
    EXPECT_FALSE(is_well_formed(narrow));
    EXPECT_EQ(to_ustring_lossy(narrow), shown) << offset;
    EXPECT_TRUE(support::raisedBy([&] { to_ustring(narrow); }).ends_with("at " + offset));
  }
}

TEST(Conversion, LoneSurrogates) {
  const std::pair<std::u16string, std::string> kCases[] = {{u"a\xD800z", "a\uFFFDz"},
                                                           {u"\xD800\xD800\xDC00", "\uFFFD\U00010000"}};
  for (const auto& [wide, shown] : kCases) {
    EXPECT_EQ(to_string_lossy(wide), shown);
    EXPECT_THROW(to_string(wide), ConversionError);
  }
}
