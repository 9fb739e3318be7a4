#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "platform/opc/content_type.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationship.h"
#include "tests/support/raised.h"

namespace opc::model {
namespace {

using support::ruleOf;
using Stored = std::pair<std::u16string, std::string>;

TEST(PartName, EncodesWhatASegmentCannotCarryAndDecodesItOnce) {
  const Stored kCases[] = {{u"/my run (1).csv", "/my%20run%20(1).csv"},
                           {u"/Größe.csv", "/Gr%C3%B6%C3%9Fe.csv"},
                           {u"/100%25.txt", "/100%2525.txt"},
                           {u"/a#b?c[d].csv", "/a%23b%3Fc%5Bd%5D.csv"},
                           {u"/-._~!$&'()*+,;=:@", "/-._~!$&'()*+,;=:@"},
                           {u"/..a/.\x7F\x01", "/..a/.%7F%01"}};
  for (const auto& [text, encoded] : kCases) {
    EXPECT_EQ(PartName(text).encoded(), encoded);
    EXPECT_EQ(PartName::tryFromEncoded(encoded).value().text(), text) << encoded;
  }
}

TEST(PartName, SpellingsOfOneNameMeet) {
  // Careless writers leave blanks and UTF-8 as they are.
  const char* const kSpellings[][2] = {{"/A.txt", "/%61.TXT"},
                                       {"/gr%c3%b6sse", "/Gr%C3%B6sse"},
                                       {"/my run.csv", "/my%20run.csv"},
                                       {"/Gr\xC3\xB6sse", "/gr%C3%B6sse"}};
  for (const auto& [one, other] : kSpellings) {
    EXPECT_TRUE(PartName::tryFromEncoded(one) == PartName::tryFromEncoded(other)) << one;
    EXPECT_EQ(nameKey(one), PartName::tryKey(other));
  }
  // Only ASCII letters are compared without case, and nothing is normalised.
  EXPECT_FALSE(PartName(u"/Ö") == PartName(u"/ö"));
  EXPECT_FALSE(PartName(u"/\u00F6") == PartName(u"/o\u0308"));
}

TEST(PartName, RefusesWhatNoPartMayBeCalled) {
  const std::u16string tooLong = u"/" + std::u16string(5462, u'%');  // 16387 once encoded
  const Stored kCases[] = {{u"", "NoLeadingSlash"},
                           {u"/", "EmptySegment"},
                           {u"/a.", "TrailingDot"},
                           {u"/../a", "AboveRoot"},
                           {u"/a\\b", "Backslash"},
                           {std::u16string(u"/a\0b", 4), "NulCharacter"},
                           {u"/\xDC00\xD800", "LoneSurrogate"},
                           {u"/a/_RELS/b.txt.Rels", "RelationshipPart"},
                           {u"/_rels/a.rels/b", "RelationshipPart"},
                           {tooLong, "TooLong"}};
  for (const auto& each : kCases) {
    EXPECT_EQ(ruleOf([&] { PartName name(each.first); }), "opc:name:" + each.second);
    EXPECT_FALSE(PartName::tryFromText(each.first)) << each.second;
  }
  EXPECT_EQ(PartName(u"/" + std::u16string(16383, u'a')).encoded().size(), 16384u);
}

TEST(PartName, IsNoneOfStoredTextThatHidesSomething) {
  const std::string tooLong = "/" + std::string(50000, 'a');
  for (const char* encoded :
       {"/a%2Fb", "%2Fa", "/a%5Cb", "/a\\b", "/a%", "/a%G1", "/a%00", "/%2e%2E/a", "/a%2E", "/%C3", "/\xC3",
        "/%ED%A0%80", "/%C0%AFa", "/%5Frels/a%2Erels", tooLong.c_str()}) {
    EXPECT_FALSE(PartName::tryFromEncoded(encoded)) << std::string(encoded).substr(0, 40);
  }
}

TEST(ContentType, IsTwoTokensOfWhichTheSecondIsEncoded) {
  const ContentType type(u"a/b+\U0001F600 100%;c=\"d\"");
  EXPECT_EQ(type.encoded(), "a/b+%F0%9F%98%80%20100%25%3Bc%3D%22d%22");
  EXPECT_EQ(ContentType::tryFromEncoded(type.encoded())->getSubType(), u"b+\U0001F600 100%;c=\"d\"");
  // A "%" that means nothing is taken as it stands.
  EXPECT_EQ(ContentType::tryFromEncoded("text/a%FF%20")->getSubType(), u"a%FF%20");
  EXPECT_TRUE(ContentType(u"Text/CSV") == ContentType(u"text/csv"));
  for (const char16_t* text : {u"text", u"/csv", u"te xt/csv", u"text/csv/x", u"tëxt/csv", u"text/\xD800"}) {
    EXPECT_NE(ruleOf([&] { ContentType none(text); }), "");
  }
  for (const char* text : {"text", "/csv", "text/", "text/csv; a=b", "text/a/b", "text/\xC3\xB6"}) {
    EXPECT_FALSE(ContentType::tryFromEncoded(text)) << text;
  }
}

// What leads to no part reads as a path above the root, so that it cannot be taken for one: a climb, which
// others would clamp, and a folder.
TEST(URI, IsWhereATargetLeads) {
  const struct {
    std::string source, written;
    std::u16string text;
  } kCases[] = {{"", "./a/c/../b", u"/a/b"},
                {"", "Gr%c3%b6%C3%9Fe", u"/Größe"},
                {"", "100%2525.txt", u"/100%25.txt"},
                {"", " my run.csv\n", u"/my run.csv"},
                {"", "/a:b/c", u"/a:b/c"},
                {"/a/b/c", "../d", u"/a/d"},
                {"/a/b", "c.xml#d/../e?f", u"/a/c.xml"},
                {"/a/b", "", u"/a/b"},
                {"", "../a.csv", u"/../a.csv"},
                {"/a/b", "../../x/../../y", u"/../../y"},
                {"", "user/x/..", u"/../user/x/.."},
                {"/a/b", ".", u"/../."},
                {"", "", u"/../"},
                {"", "a.csv?x", u"/../a.csv?x"},
                {"", "x/%2e%2e/a", u"/../x/%2e%2e/a"},
                {"", "user\\a.csv", u"/../user\\a.csv"},
                {"", "user//a.csv", u"/../user//a.csv"},
                {"", "file:///a", u"/../file:///a"},
                {"", "user:a.csv", u"/../user:a.csv"},
                {"", "100%.txt", u"/../100%.txt"},
                {"", "_rels/.rels", u"/../_rels/.rels"}};
  for (const auto& each : kCases) {
    EXPECT_EQ(URI::resolved(each.source, each.written).text(), each.text) << each.written;
    EXPECT_EQ(PartName::tryFromText(each.text).has_value(), !each.text.starts_with(u"/../"));
  }
  EXPECT_EQ(ruleOf([] { URI uri(u""); }), "opc:name:Empty") << "no new target";
}

}  // namespace
}  // namespace opc::model
