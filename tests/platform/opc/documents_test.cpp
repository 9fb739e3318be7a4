#include <string>

#include <gtest/gtest.h>

#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/xml_reader.h"
#include "platform/text/conversion.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/raised.h"

namespace opc {
namespace {

using model::ContentType;
using model::CoreProperty;
using model::PartName;
using model::URI;
using support::raisedBy;
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
    EXPECT_EQ(model::nameKey(one), PartName::tryKey(other));
  }
  // Only ASCII letters are compared without case, and nothing is normalised.
  EXPECT_FALSE(PartName(u"/Ö") == PartName(u"/ö"));
  EXPECT_FALSE(PartName(u"/\u00F6") == PartName(u"/o\u0308"));
}

TEST(PartName, RefusesWhatNoPartMayBeCalled) {
  const std::u16string nul(u"/a\0b", 4), tooLong = u"/" + std::u16string(5462, u'%');  // 16387 once encoded
  const Stored kCases[] = {{u"", "NoLeadingSlash"},
                           {u"/", "EmptySegment"},
                           {u"/a.", "TrailingDot"},
                           {u"/../a", "AboveRoot"},
                           {u"/a\\b", "Backslash"},
                           {nul, "NulCharacter"},
                           {u"/\xDC00", "LoneSurrogate"},
                           {u"/_RELS/b.Rels", "RelationshipPart"},
                           {u"/_rels/a.rels/b", "RelationshipPart"},
                           {tooLong, "TooLong"}};
  for (const auto& each : kCases) {
    EXPECT_EQ(ruleOf([&] { PartName name(each.first); }), "opc:name:" + each.second);
    EXPECT_FALSE(PartName::tryFromText(each.first)) << each.second;
  }
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
  EXPECT_EQ(ruleOf([] { ContentType none(u"a/b/c"); }), "opc:name:NoContentType");
  for (const char* text : {"text", "/csv", "text/", "text/csv; a=b", "text/a/b", "text/\xC3\xB6"}) {
    EXPECT_FALSE(ContentType::tryFromEncoded(text)) << text;
  }
}

TEST(URI, IsWhereATargetLeads) {
  const struct {
    const char *source, *written;
    std::u16string text;
  } kCases[] = {{"", "./a/c/../b", u"/a/b"},
                {"", "Gr%c3%b6%C3%9Fe", u"/Größe"},
                {"", "100%2525.txt", u"/100%25.txt"},
                {"", " my run.csv\n", u"/my run.csv"},
                {"", "/a:b/c", u"/a:b/c"},
                {"/a/b/c", "../d", u"/a/d"},
                {"/a/b", "c#d/../e?f", u"/a/c"},
                {"/a/b", "", u"/a/b"},
                {"", "../a", u"/../a"},
                {"/a/b", "../../x/../../y", u"/../../y"},
                {"/a/b", ".", u"/../."}};
  for (const auto& each : kCases) {
    EXPECT_EQ(URI::resolved(each.source, each.written).text(), each.text) << each.written;
  }
  // What leads to no part reads as a path above the root, so that it cannot be taken for one.
  for (const char* written : {"", "user/x/..", "a.csv?x", "x/%2e%2e/a", "user\\a", "user//a", "file:///a",
                              "user:a", "100%.txt", "_rels/.rels"}) {
    const std::u16string text = URI::resolved("", written).text();
    EXPECT_EQ(fl::i18n::to_string(text), std::string("/../") + written);
    EXPECT_FALSE(PartName::tryFromText(text));
  }
  EXPECT_EQ(ruleOf([] { URI uri(u""); }), "opc:name:Empty") << "no new target";
}

constexpr std::string_view kPackage = "/data/a.tavlox";
constexpr xml::Location kCore{kPackage, "/docProps/core.xml"};
constexpr int kDepth = 64;

std::string types(const std::string& items) {
  return "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">" + items +
         "</Types>";
}
std::string links(std::string_view items) { return tests::relationships(items); }

ContentTypesDocument parseTypes(const std::string& bytes) {
  return ContentTypesDocument::parse(bytes, kPackage);
}
RelationshipsDocument parseLinks(std::string_view bytes, std::string source = {}) {
  return RelationshipsDocument::parse(bytes, std::move(source), kPackage);
}

constexpr int kLittleEndian[] = {0, 8}, kBigEndian[] = {8, 0};
std::string utf16(std::u16string_view text, const int (&shifts)[2]) {
  std::string bytes;
  for (const char16_t unit : text) {
    for (const int shift : shifts) bytes += static_cast<char>(unit >> shift);
  }
  return bytes;
}

std::string typeOf(const ContentTypesDocument& document, std::string_view name) {
  const ContentType* type = document.contentTypeOf(name);
  return type == nullptr ? "" : type->encoded();
}

// The XML rules hold for every document; relationships stand for all.
TEST(Xml, IsReadStrictly) {
  const std::string empty = links("");
  std::string deep;
  for (int i = 0; i < 64; ++i) deep = "<x:a xmlns:x='urn:x'>" + deep + "</x:a>";
  const std::u16string wide = fl::i18n::to_ustring(empty);
  const std::pair<std::string, const char*> kCases[] = {
      {"", "Malformed"},
      {empty.substr(0, empty.size() - 1), "Malformed"},
      {links("<x:a/>"), "Malformed"},  // prefix without a declaration
      {"<!DOCTYPE r [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;'>]>" + empty, "DocumentTypeDeclaration"},
      {links(deep), "TooDeep"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + empty, "UnknownEncoding"},
      {"<?xml version='1.0' encoding='utf-16'?>" + empty, "UnknownEncoding"},
      {utf16(u"\uFEFF<?xml version='1.0' encoding='utf-8'?><a/>", kLittleEndian), "UnknownEncoding"},
      {utf16(u"\uFEFF<a>\xD800</a>", kLittleEndian), "IllFormedUtf16"},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?><!-- a --><?b c?>" + empty + "<!-- d -->\n", ""},
      {utf16(wide, kBigEndian), ""},
      {utf16(u"\uFEFF<?xml version='1.0' encoding='UTF-16'?>" + wide, kBigEndian), ""}};
  for (const auto& [bytes, rule] : kCases) {
    EXPECT_EQ(ruleOf([&] { parseLinks(bytes); }), *rule ? std::string("opc:xml:") + rule : "") << bytes;
  }
}

/// A rule and what breaks it; no rule for what is sound.
constexpr std::pair<const char*, const char*> kTypes[] = {
    {"DuplicateDefault",
     "<Default Extension='a' ContentType='x/y'/><Default Extension='.A' ContentType='x/z'/>"},
    {"DuplicateOverride",
     "<Override PartName='/a' ContentType='x/y'/><Override PartName='/%41' ContentType='x/y'/>"},
    {"MissingAttribute", "<Default ContentType='text/csv'/>"},
    {"NoContentType", "<Default Extension='csv' ContentType='text/csv; a=b'/>"},
    {"BadPartName", "<Override PartName='/a%2Fb' ContentType='x/y'/>"},
    {"UnexpectedElement", "<Defaults/>"},
    {"UnexpectedText", "text"},
    {"", "<x:a xmlns:x='urn:x'><Default/>text</x:a>\n<Default Extension='a' ContentType='x/y'/>"}};
constexpr std::pair<const char*, const char*> kLinks[] = {
    {"DuplicateId", "<Relationship Id='a' Type='t' Target=''/><Relationship Id='a' Type='t' Target=''/>"},
    {"MissingAttribute", "<Relationship Id='a' Type='t' x:Target='/b' xmlns:x='urn:x'/>"},
    {"BadId", "<Relationship Id='a:b' Type='t' Target='x'/>"},
    {"BadTargetMode", "<Relationship Id='a' Type='t' Target='x' TargetMode='external'/>"},
    {"XmlBase", "<Relationship Id='a' Type='t' Target='x' xml:base='/y/'/>"}};

TEST(Lists, AreRefusedWhenMalformed) {
  const auto named = [](std::string list, std::string rule) { return rule.empty() ? rule : list + rule; };
  for (const auto& [rule, items] : kTypes) {
    EXPECT_EQ(ruleOf([&] { parseTypes(types(items)); }), named("opc:contentTypes:", rule)) << items;
  }
  for (const auto& [rule, items] : kLinks) {
    EXPECT_EQ(ruleOf([&] { parseLinks(links(items)); }), named("opc:relationships:", rule)) << items;
  }
  EXPECT_EQ(raisedBy([] { parseTypes("<Types xmlns='urn:x'/>"); }),
            "opc:contentTypes:WrongRoot(/data/a.tavlox, Types, urn:x)");
  EXPECT_EQ(ruleOf([] { parseLinks(types("")); }), "opc:relationships:WrongRoot");
}

TEST(ContentTypes, OverridesComeBeforeDefaults) {
  const auto document =
      parseTypes(types("<Default Extension='CSV' ContentType='text/csv'/>"
                       "<Default Extension='.json' ContentType='application/json'/>"
                       "<Override PartName='/a%20b.csv' ContentType='text/x-own'/>"
                       "<Override PartName='/_rels/.rels' ContentType='b/rels'/>"));
  const std::pair<const char*, const char*> kCases[] = {
      {"/x.CsV", "text/csv"},     {"/x.json", "application/json"},
      {"/.csv", "text/csv"},      {"/a.csv/x", ""},
      {"/x.csv.gz", ""},          {"/csv", ""},
      {"/a b.csv", "text/x-own"}, {"/A%20B.csv", "text/x-own"},
      {"/_rels/.rels", "b/rels"}, {"/x/_rels/y.rels", ""}};
  for (const auto& [name, type] : kCases) EXPECT_EQ(typeOf(document, name), type) << name;
}

TEST(ContentTypes, ChangesKeepTheNeighbours) {
  // Careless writers leave the slash out: such an override is about nobody.
  const std::string kept =
      "<Override PartName='b' ContentType='x/z'/><!-- c --><Override PartName='b' ContentType='x/z'/>";
  auto document = parseTypes(types("<Override PartName='/b' ContentType='x/b'/>" + kept +
                                   "<Override PartName='/a%2e1' ContentType='x/a'/>"));
  document.removeOverride("/B");
  document.setOverride("/a.1", ContentType(u"x/a b&"));
  EXPECT_EQ(document.toBytes(), types(kept + "<Override PartName=\"/a.1\" ContentType=\"x/a%20b&amp;\"/>"));
  EXPECT_EQ(typeOf(document, "/b"), "");
}

TEST(Relationships, LeadWhereTheyAreWrittenTo) {
  const std::string kept =
      "<Relationship Type='t' Id='z' Target='../a%2f&amp;b' x:extra='1' xmlns:x='urn:x'/>"
      "<Relationship Id='a' Type='u' Target='http://example.org/%41?b#c' TargetMode='External'/>"
      "<Relationship Id='b' Type='u' TargetMode='External'/>"  // as others write it
      "<Relationship Id='rId2' Type='t' Target='%61.csv' TargetMode='Internal'/>";
  auto document = parseLinks(links(kept), "/x/y");
  EXPECT_EQ(document.find("a")->getTarget().text(), u"http://example.org/%41?b#c");
  EXPECT_EQ(document.find("rId2")->getTarget().text(), u"/x/a.csv");
  document.add(u"t\t\"<\r\n", URI(u"/user/my run.csv"), "", kPackage);
  EXPECT_EQ(document.toBytes(), links(kept + "<Relationship Id=\"rId1\" Type=\"t&#9;&quot;&lt;&#13;&#10;\" "
                                             "Target=\"/user/my%20run.csv\"/>"));
  EXPECT_EQ(parseLinks(document.toBytes()).find("rId1")->getType(), u"t\t\"<\r\n");
}

TEST(Relationships, AreEditedInTheTextOthersWrote) {
  const std::string space = "'http://schemas.openxmlformats.org/package/2006/relationships'";
  const std::string added = "Relationship Id=\"rId1\" Type=\"t\" Target=\"/b\"/>";
  const std::string head =
      "<?xml version='1.0'?>\n<!-- a -->\n<Relationships xmlns=" + space + " xmlns:v='urn:v' v:by='me'>";
  const std::string extra = "\n\t<v:extra><Relationship/></v:extra>\n";
  const std::string old = "<Relationship Id='a' Type='\xC3\xB6' Target='x'/></Relationships>";
  // A relationship is removed and one is added.
  const std::pair<std::string, std::string> kCases[] = {
      {head + "\n\t<Relationship Id='a' Type='t' Target='x'> </Relationship>" + extra +
           "</Relationships>\n<?b?>",
       head + extra + "<" + added + "</Relationships>\n<?b?>"},
      {"\xEF\xBB\xBF<p:Relationships xmlns:p=" + space + " /><!-- a -->",
       "\xEF\xBB\xBF<p:Relationships xmlns:p=" + space + " ><p:" + added + "</p:Relationships><!-- a -->"},
      {utf16(u"\uFEFF<?xml version='1.0' encoding='UTF-16'?>\n" +
                 fl::i18n::to_ustring("<Relationships xmlns=" + space + ">" + old),
             kLittleEndian),
       "\n<Relationships xmlns=" + space + "><" + added + "</Relationships>"}};
  for (const auto& [before, after] : kCases) {
    auto document = parseLinks(before);
    document.remove("a");
    document.add(u"t", URI(u"/b"), "", kPackage);
    EXPECT_EQ(document.toBytes(), after);
    EXPECT_EQ(parseLinks(after).size(), 1u);
    document.remove("rId1");
    EXPECT_TRUE(parseLinks(document.toBytes()).isEmpty());
  }
}

TEST(Relationships, GetTheLowestFreeNumber) {
  RelationshipsDocument document;
  // Adds what is asked for, after what was removed.
  const struct {
    const char *removed, *asked, *given;
  } kSteps[] = {{"", "rId2", "rId2"}, {"", "rId03", "rId03"}, {"", "", "rId1"},         {"", "", "rId3"},
                {"rId2", "", "rId2"}, {"rId1", "", "rId1"},   {"rId2", "rId2", "rId2"}, {"", "", "rId4"}};
  for (const auto& [removed, asked, given] : kSteps) {
    document.remove(removed);
    EXPECT_EQ(document.add(u"t", URI(u"/a"), asked, kPackage).getID(), given);
  }
}

TEST(Relationships, RefuseBadAdditions) {
  RelationshipsDocument document;
  const auto add = [&](std::u16string_view type, const char* id) {
    return ruleOf([&] { document.add(type, URI(u"/a"), id, kPackage); });
  };
  EXPECT_EQ(add(u"t", "a") + add(u"t", "_\xC3\xA9-.\xF0\x90\x80\x80"), "");
  EXPECT_EQ(add(u"t", "a"), "opc:relationships:IdIsTaken");
  for (const char* id : {"1a", "a:b", "\xC3", "a\xC3\x97"}) {
    EXPECT_EQ(add(u"t", id), "opc:relationships:IdIsNoName") << id;
  }
  EXPECT_EQ(add(u"\xFFFE", ""), "opc:xml:UnwritableCharacter");
  EXPECT_EQ(ruleOf([&] { document.add(u"t", URI(u"/../a"), "", kPackage); }), "opc:name:AboveRoot");
  EXPECT_EQ(document.size(), 2u) << "nothing was added halfway";
}

const std::string kHead =
    "<?xml version='1.0'?>\n<!-- a --><coreProperties "
    "xmlns='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
    "xmlns:d='http://purl.org/dc/elements/1.1/' xmlns:cp='urn:taken' cp:kept = '1'>\n"
    "  <d:title xml:lang='de'>T &amp; &lt;</d:title><!-- b --><keywords>one<value>deux</value></keywords>\n";
const std::string kTail = "\n<cp:description>another</cp:description><lastModifiedBy/></coreProperties><?c?>";

// The prefixes that are usual mean something else in here, or nothing.
TEST(CoreProperties, AreReadAsTheyWereSet) {
  std::string document = kHead + kTail;
  const std::pair<CoreProperty, const char16_t*> kTexts[] = {
      {CoreProperty::Description, u" <Größe> & ]]> \"\r\n\t\U0001F600 "},
      {CoreProperty::Creator, u""},
      {CoreProperty::Version, u"1.0"},
      {CoreProperty::Created, u"2026-11-21T09:30:00Z"}};
  for (const auto& [property, text] : kTexts) {
    EXPECT_EQ(coreProperty(document, property, kCore, kDepth), std::nullopt);
    document = withCoreProperty(document, property, text, kCore, kDepth);
    EXPECT_EQ(coreProperty(document, property, kCore, kDepth), text);
  }
  EXPECT_TRUE(document.ends_with(
      "<d:creator/><cp:version xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/"
      "core-properties\">1.0</cp:version><dcterms:created xmlns:dcterms=\"http://purl.org/dc/terms/\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:type=\"dcterms:W3CDTF\">"
      "2026-11-21T09:30:00Z</dcterms:created></coreProperties><?c?>"))
      << document;
  EXPECT_EQ(ruleOf([&] { coreProperty(links(""), CoreProperty::Version, kCore, kDepth); }),
            "opc:coreProperties:WrongRoot");
}

TEST(CoreProperties, AreEditedInTheTextOthersWrote) {
  const struct {
    std::string before, after;  // the description is set
    std::optional<std::u16string> text;
  } kCases[] = {
      {"<d:description xml:lang='en' >o<![CDATA[l]]><x>d</x></d:description>",
       "<d:description xml:lang='en' >a &lt; b</d:description>", u"old"},
      {"<d:description xml:lang='en'/>", "<d:description xml:lang='en'>a &lt; b</d:description>", u""},
      {"<d:description></d:description>\n <d:description>older</d:description><d:description/><!-- c -->",
       "<d:description>a &lt; b</d:description><!-- c -->", u""},
      {"<!-- <d:description/> --><keywords><d:description>deeper</d:description></keywords>", "", {}}};
  for (const auto& c : kCases) {
    const std::string before = kHead + c.before + kTail;
    EXPECT_EQ(coreProperty(before, CoreProperty::Description, kCore, kDepth), c.text);
    const std::string appended = before.substr(0, before.find("</coreProperties>")) +
                                 "<d:description>a &lt; b</d:description></coreProperties><?c?>";
    EXPECT_EQ(withCoreProperty(before, CoreProperty::Description, u"a < b", kCore, kDepth),
              c.text ? kHead + c.after + kTail : appended);
  }
}

}  // namespace
}  // namespace opc
