#include <string>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/content_type.h"
#include "platform/opc/part_name.h"
#include "platform/opc/uri.h"

namespace opc::model {
namespace {

/// The identifier of what `work` raises; empty if it raises nothing.
template <class Work>
std::string ruleOf(Work work) {
  try {
    work();
    return {};
  } catch (const Exception& error) {
    return error.GetID();
  }
}

TEST(PartName, encodesWhatASegmentCannotCarryAndDecodesItOnce) {
  struct Case {
    std::u16string text;
    std::string encoded;
  };
  const Case kCases[] = {
      {u"/user/my run (1).csv", "/user/my%20run%20(1).csv"},
      {u"/Größe.csv", "/Gr%C3%B6%C3%9Fe.csv"},
      {u"/100%.txt", "/100%25.txt"},
      {u"/100%25.txt", "/100%2525.txt"},  // text that looks encoded is still text
      {u"/a%2Fb", "/a%252Fb"},
      {u"/a#b.csv", "/a%23b.csv"},
      {u"/a?b[c].csv", "/a%3Fb%5Bc%5D.csv"},
      {u"/-._~!$&'()*+,;=:@", "/-._~!$&'()*+,;=:@"},
      {u"/\x7F\x01", "/%7F%01"},
      {u"/\U0001F600", "/%F0%9F%98%80"},
      {u"/..a/.hidden", "/..a/.hidden"},
      {u"/_rels/rels", "/_rels/rels"},
      {u"/a/b.rels", "/a/b.rels"},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(PartName(c.text).encoded(), c.encoded);
    const PartName stored = PartName::fromEncoded(c.encoded);
    EXPECT_EQ(stored.text(), c.text) << c.encoded;
    EXPECT_EQ(stored.encoded(), c.encoded);
  }
}

TEST(PartName, spellingsOfOneNameMeet) {
  const char* const kSpellings[][2] = {
      {"/A.txt", "/%61.TXT"},
      {"/gr%c3%b6sse", "/Gr%C3%B6sse"},
      {"/my run.csv", "/my%20run.csv"},  // careless writers leave blanks and UTF-8 as they are
      {"/Gr\xC3\xB6sse", "/gr%C3%B6sse"},
  };
  for (const auto& [one, other] : kSpellings) {
    EXPECT_TRUE(PartName::fromEncoded(one) == PartName::fromEncoded(other)) << one;
    EXPECT_EQ(nameKey(one), PartName::fromEncoded(other).key());
  }
  // Only ASCII letters are compared without case, and nothing is normalised.
  EXPECT_FALSE(PartName(u"/Ö") == PartName(u"/ö"));
  EXPECT_FALSE(PartName(u"/\u00F6") == PartName(u"/o\u0308"));
}

TEST(PartName, refusesWhatNoPartMayBeCalled) {
  struct Case {
    std::u16string text;
    std::string rule;
  };
  const Case kCases[] = {
      {u"", "NoLeadingSlash"},
      {u"a.txt", "NoLeadingSlash"},
      {u"/", "EmptySegment"},
      {u"/a/", "EmptySegment"},
      {u"//a", "EmptySegment"},
      {u"/a//b", "EmptySegment"},
      {u"/a.", "TrailingDot"},
      {u"/a./b", "TrailingDot"},
      {u"/../a", "TrailingDot"},
      {u"/a/./b", "TrailingDot"},
      {u"/a\\b", "Backslash"},
      {std::u16string(u"/a\0b", 4), "NulCharacter"},
      {u"/a\xD800", "LoneSurrogate"},
      {u"/\xDC00\xD800", "LoneSurrogate"},
      {u"/_rels/.rels", "RelationshipPart"},
      {u"/a/_RELS/b.txt.Rels", "RelationshipPart"},
      {u"/_rels/a.rels/b", "RelationshipPart"},
      {u"/" + std::u16string(16384, u'a'), "TooLong"},
      {u"/" + std::u16string(5462, u'%'), "TooLong"},  // 16387 once encoded
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ruleOf([&] { PartName name(c.text); }), "opc:name:" + c.rule) << c.rule;
  }
  EXPECT_EQ(PartName(u"/" + std::u16string(16383, u'a')).encoded().size(), 16384u);
}

TEST(PartName, refusesStoredNamesThatHideSomething) {
  struct Case {
    std::string encoded, rule;
  };
  const Case kCases[] = {
      {"/a%2Fb", "EncodedSlash"},
      {"/a%2f", "EncodedSlash"},
      {"%2Fa", "EncodedSlash"},
      {"/a%5Cb", "EncodedSlash"},
      {"/a\\b", "Backslash"},
      {"/a%", "BadPercentEncoding"},
      {"/a%4", "BadPercentEncoding"},
      {"/a%G1", "BadPercentEncoding"},
      {"/100%.txt", "BadPercentEncoding"},
      {"/a%00", "NulCharacter"},
      {"/%2e%2E/a", "TrailingDot"},
      {"/a%2E", "TrailingDot"},
      {"/%C3", "NotUtf8"},
      {"/\xC3", "NotUtf8"},
      {"/%ED%A0%80", "NotUtf8"},
      {"/%C0%AFa", "NotUtf8"},
      {"/%5Frels/a%2Erels", "RelationshipPart"},
      {"/" + std::string(50000, 'a'), "TooLong"},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ruleOf([&] { PartName::fromEncoded(c.encoded); }), "opc:name:" + c.rule)
        << c.encoded.substr(0, 40);
    EXPECT_FALSE(PartName::tryFromEncoded(c.encoded)) << c.encoded.substr(0, 40);
  }
  // A decoded "%2F" is decoded no further.
  EXPECT_EQ(PartName::fromEncoded("/a%252Fb").text(), u"/a%2Fb");
}

TEST(PartName, namesItsRelationshipPart) {
  EXPECT_EQ(PartName(u"/a b.txt").relationshipPartName(), "/_rels/a%20b.txt.rels");
  EXPECT_EQ(PartName(u"/x/y/noext").relationshipPartName(), "/x/y/_rels/noext.rels");
  EXPECT_EQ(relationshipPartNameOf(""), "/_rels/.rels");
}

TEST(ContentType, carriesEveryExtension) {
  struct Case {
    std::u16string subType;
    std::string encoded;
  };
  const Case kCases[] = {
      {u"csv", "csv"},
      {u"", ""},
      {u"Größe", "Gr%C3%B6%C3%9Fe"},
      {u"a b", "a%20b"},
      {u"100%", "100%25"},
      {u"%41", "%2541"},
      {u"c++", "c++"},
      {u"v1;old=\"x\"", "v1%3Bold%3D%22x%22"},
      {u"\U0001F600\x01", "%F0%9F%98%80%01"},
  };
  for (const Case& c : kCases) {
    const ContentType type(u"application/vnd.tavlox.package+" + c.subType);
    EXPECT_EQ(type.encoded(), "application/vnd.tavlox.package+" + c.encoded);
    const ContentType stored = ContentType::fromEncoded(type.encoded());
    EXPECT_EQ(stored.getSubType(), u"vnd.tavlox.package+" + c.subType);
    EXPECT_EQ(stored.getType(), u"application");
  }
}

TEST(ContentType, takesAPercentThatMeansNothingAsItStands) {
  EXPECT_EQ(ContentType::fromEncoded("text/100%").getSubType(), u"100%");
  EXPECT_EQ(ContentType::fromEncoded("text/a%FF%20").getSubType(), u"a%FF%20");
}

TEST(ContentType, refusesWhatIsNoMediaType) {
  for (const char16_t* text :
       {u"", u"text", u"/csv", u"text/", u"te xt/csv", u"text/csv/x", u"tëxt/csv", u"text/\xD800"}) {
    EXPECT_FALSE(ruleOf([&] { ContentType type(text); }).empty());
  }
  for (const char* text :
       {"", "text", "/csv", "text/", "text/csv; charset=utf-8", "text/csv ", "text/a/b", "text/\xC3\xB6"}) {
    EXPECT_EQ(ruleOf([&] { ContentType::fromEncoded(text); }), "opc:name:NoContentType") << text;
  }
  EXPECT_TRUE(ContentType(u"Text/CSV") == ContentType(u"text/csv"));
}

TEST(URI, refusesWhatNoTargetCanBe) {
  EXPECT_EQ(ruleOf([] { URI uri(u""); }), "opc:name:Empty");
  EXPECT_EQ(ruleOf([] { URI uri(std::u16string_view(u"/a\0", 3)); }), "opc:name:NulCharacter");
  EXPECT_EQ(ruleOf([] { URI uri(u"/\xDFFF"); }), "opc:name:LoneSurrogate");
}

}  // namespace
}  // namespace opc::model
