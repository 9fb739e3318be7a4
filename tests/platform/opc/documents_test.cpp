#include <functional>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/xml_reader.h"
#include "platform/text/conversion.h"
#include "tests/platform/opc/raw_archive.h"

namespace opc {
namespace {

using model::CoreProperty;
using model::ExcludeMode;
using model::URI;

constexpr std::string_view kPackage = "/data/a.tavlox";
constexpr xml::Location kCore{kPackage, "/docProps/core.xml"};
constexpr int kDepth = 64;

/// The identifier of what refuses to open a package, without "opc:"; of any other error, the whole
/// identifier.
std::string ruleOf(const std::function<void()>& work) {
  try {
    work();
    return {};
  } catch (const model::PackageOpenFailed& error) {
    EXPECT_EQ(fl::i18n::to_string(error.GetArguments().at(0)), kPackage);
    return error.GetID().substr(4);
  } catch (const Exception& error) {
    return error.GetID();
  }
}

std::string types(std::string_view items) {
  return "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">" +
         std::string(items) + "</Types>";
}

std::string links(std::string_view items) { return tests::relationships(items); }

ContentTypesDocument parseTypes(std::string_view bytes) {
  return ContentTypesDocument::parse(bytes, kPackage);
}

RelationshipsDocument parseLinks(std::string_view bytes, std::string source = {}) {
  return RelationshipsDocument::parse(bytes, std::move(source), kPackage);
}

std::string utf16(std::u16string_view text, bool isLittleEndian, bool hasByteOrderMark) {
  std::string bytes;
  for (const char16_t unit : (hasByteOrderMark ? u"\uFEFF" : u"") + std::u16string(text)) {
    const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
    bytes += isLittleEndian ? low : high;
    bytes += isLittleEndian ? high : low;
  }
  return bytes;
}

std::string typeOf(const ContentTypesDocument& document, std::string_view name) {
  const model::ContentType* type = document.contentTypeOf(name);
  return type == nullptr ? "" : type->encoded();
}

struct Refusal {
  std::string bytes, rule;
};

// The XML rules hold for every document; relationships stand for all.
TEST(Xml, IsReadStrictly) {
  const std::string empty = links("");
  std::string deep;
  for (int i = 0; i < 64; ++i) deep = "<x:a xmlns:x='urn:x'>" + deep + "</x:a>";
  const Refusal kCases[] = {
      {"", "xml:Malformed"},
      {empty.substr(0, empty.size() - 1), "xml:Malformed"},
      {links("<x:a/>"), "xml:Malformed"},  // prefix without a declaration
      {links("\xC3("), "xml:Malformed"},
      {links(std::string_view("\0", 1)), "xml:Malformed"},
      {"<!DOCTYPE r [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;'>]>" + empty, "xml:DocumentTypeDeclaration"},
      {links(deep), "xml:TooDeep"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + empty, "xml:UnknownEncoding"},
      {"<?xml version='1.0' encoding='utf-16'?>" + empty, "xml:UnknownEncoding"},
      {utf16(u"<?xml version='1.0' encoding='utf-8'?><a/>", true, true), "xml:UnknownEncoding"},
      {utf16(u"<a>\xD800</a>", true, true), "xml:IllFormedUtf16"},
      {utf16(u"<a/>", false, false) + "x", "xml:IllFormedUtf16"},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>" + empty, ""},
      {utf16(fl::i18n::to_ustring(empty), false, false), ""},
      {utf16(u"<?xml version='1.0' encoding='UTF-16'?>" + fl::i18n::to_ustring(empty), false, true), ""},
      {"<?xml version='1.0'?><!-- a --><?b c?>" + empty + "<!-- d -->\n", ""},
  };
  for (const Refusal& c : kCases)
    EXPECT_EQ(ruleOf([&] { parseLinks(c.bytes); }), c.rule) << c.bytes.substr(0, 200);
}

TEST(Lists, AreRefusedWhenMalformed) {
  const std::string csv = "<Default Extension='csv' ContentType='text/csv'/>";
  const std::string a = "<Relationship Id='a' Type='t' Target='x'/>";
  const Refusal kCases[] = {
      {types(csv + "<Default Extension='.CSV' ContentType='text/x'/>"), "contentTypes:DuplicateDefault"},
      {types("<Override PartName='/a' ContentType='x/y'/><Override PartName='/%41' ContentType='x/y'/>"),
       "contentTypes:DuplicateOverride"},
      {types("<Default ContentType='text/csv'/>"), "contentTypes:MissingAttribute"},
      {types("<Override xmlns:x='urn:x' x:PartName='/a' ContentType='text/csv'/>"),
       "contentTypes:MissingAttribute"},
      {types("<Default Extension='csv' ContentType='text/csv; charset=utf-8'/>"),
       "contentTypes:NoContentType"},
      {types("<Override PartName='/a%2Fb' ContentType='x/y'/>"), "contentTypes:BadPartName"},
      {types("<Defaults/>"), "contentTypes:UnexpectedElement"},
      {types("<Default Extension='a' ContentType='x/y'>" + csv + "</Default>"),
       "contentTypes:UnexpectedElement"},
      {types("text"), "contentTypes:UnexpectedText"},
      {types("<x:a xmlns:x='urn:x'><Default/>text</x:a>\n" + csv), ""},
      {types(""), "relationships:WrongRoot"},
      {links(a + a), "relationships:DuplicateId"},
      {links("<Relationship Type='t' Target='x'/>"), "relationships:MissingAttribute"},
      {links("<Relationship Id='a:b' Type='t' Target='x'/>"), "relationships:BadId"},
      {links("<Relationship Id='a' Type='t' Target='x' TargetMode='external'/>"),
       "relationships:BadTargetMode"},
      {links("<Relationship Id='a' Type='t' Target='x' xml:base='/y/'/>"), "relationships:XmlBase"},
      {links("<Relationship Id='b' Type='t' Target='x'>" + a + "</Relationship>"),
       "relationships:UnexpectedElement"},
      {links(a + "x"), "relationships:UnexpectedText"},
      {links("\n" + a + "<!-- x --><Relationship Id='A' Type='t' Target='x'> </Relationship>"), ""},
  };
  for (const Refusal& c : kCases) {
    const bool isTypes = c.bytes.starts_with("<Types xmlns=\"http") && c.rule != "relationships:WrongRoot";
    EXPECT_EQ(ruleOf([&] { isTypes ? (void)parseTypes(c.bytes) : (void)parseLinks(c.bytes); }), c.rule)
        << c.bytes;
  }
  EXPECT_EQ(ruleOf([&] { ContentTypesDocument::parse(types(""), kPackage, {.contentTypeBytes = 10}); }),
            "contentTypes:TooLarge");
}

TEST(ContentTypes, OverridesComeBeforeDefaults) {
  const auto document =
      parseTypes(types("<Default Extension='CSV' ContentType='text/csv'/>"
                       "<Default Extension='.json' ContentType='application/json'/>"
                       "<Default Extension='rels' ContentType='a/rels'/>"
                       "<Override PartName='/a%20b.csv' ContentType='text/x-own'/>"
                       "<Override PartName='/_rels/.rels' ContentType='b/rels'/>"));
  const std::map<std::string, std::string> kCases = {{"/x.CsV", "text/csv"},
                                                     {"/x.json", "application/json"},
                                                     {"/.csv", "text/csv"},
                                                     {"/a.csv/x", ""},
                                                     {"/x.csv.gz", ""},
                                                     {"/csv", ""},
                                                     {"/A%20B.csv", "text/x-own"},
                                                     {"/a b.csv", "text/x-own"},
                                                     {"/_rels/.rels", "b/rels"},
                                                     {"/x/_rels/y.rels", "a/rels"}};
  for (const auto& [name, type] : kCases) EXPECT_EQ(typeOf(document, name), type) << name;
}

TEST(ContentTypes, ChangesKeepTheNeighbours) {
  auto document =
      parseTypes(types("<Override PartName='/b' ContentType='x/b'/><!-- c -->"
                       "<Default Extension='.json' ContentType='application/json'/>"
                       "<Override PartName='/a%2e1' ContentType='x/a'/>"));
  document.setOverride("/new.json", model::ContentType(u"x/a b&"));
  document.removeOverride("/B");
  document.removeOverride("/none");
  document.setOverride("/a.1", model::ContentType(u"x/c"));
  const std::string bytes = document.toBytes();
  EXPECT_EQ(bytes, types("<!-- c --><Default Extension='.json' ContentType='application/json'/>"
                         "<Override PartName=\"/new.json\" ContentType=\"x/a%20b&amp;\"/>"
                         "<Override PartName=\"/a.1\" ContentType=\"x/c\"/>"));
  EXPECT_EQ(typeOf(parseTypes(bytes), "/b"), "");
}

TEST(Relationships, LeadWhereTheyAreWrittenTo) {
  const std::string kept =
      "<Relationship Type='t' Id='z' Target='../a%2f&amp;b' x:extra='1' xmlns:x='urn:x'/>"
      "<Relationship Id='a' Type='u' Target='http://example.org/%41?b#c' TargetMode='External'/>"
      "<Relationship Id='rId2' Type='t' Target='%61.csv' TargetMode='Internal'/>";
  auto document = parseLinks(links(kept), "/x/y");
  EXPECT_EQ(document.partName(), "/x/_rels/y.rels");
  EXPECT_EQ(document.find("a")->getTarget().text(), u"http://example.org/%41?b#c");
  EXPECT_EQ(document.relationships(ExcludeMode::External).size(), 2u);
  EXPECT_EQ(document.relationshipsByType(u"t").back().getID(), "rId2");
  EXPECT_EQ(document.find("rId2")->getTarget().text(), u"/x/a.csv");
  document.add(u"t\t\"<\r\n", URI(u"/user/my run.csv"), "", kPackage);
  EXPECT_EQ(document.toBytes(), links(kept + "<Relationship Id=\"rId1\" Type=\"t&#9;&quot;&lt;&#13;&#10;\" "
                                             "Target=\"/user/my%20run.csv\"/>"));
  EXPECT_EQ(parseLinks(document.toBytes()).find("rId1")->getType(), u"t\t\"<\r\n");
}

TEST(Relationships, AreEditedInTheTextOthersWrote) {
  const std::string space = "'http://schemas.openxmlformats.org/package/2006/relationships'";
  const std::string added = "Relationship Id=\"rId1\" Type=\"t\" Target=\"/b\"/>";
  // A relationship is removed and one is added.
  const std::pair<std::string, std::string> kCases[] = {
      {"<?xml version='1.0'?>\n<!-- a -->\n<Relationships xmlns=" + space +
           " xmlns:v='urn:v' v:by='me'>\n\t<Relationship Id='a' Type='t' Target='x'> </Relationship>"
           "\n\t<v:extra><Relationship/></v:extra>\n</Relationships>\n<?b?>",
       "<?xml version='1.0'?>\n<!-- a -->\n<Relationships xmlns=" + space +
           " xmlns:v='urn:v' v:by='me'>\n\t<v:extra><Relationship/></v:extra>\n<" + added +
           "</Relationships>\n<?b?>"},
      {"\xEF\xBB\xBF<p:Relationships xmlns:p=" + space +
           "><p:Relationship Id='a' Type='\xC3\xB6' Target='x'/></p:Relationships>",
       "\xEF\xBB\xBF<p:Relationships xmlns:p=" + space + "><p:" + added + "</p:Relationships>"},
      {"<p:Relationships xmlns:p=" + space + " /><!-- a -->",
       "<p:Relationships xmlns:p=" + space + " ><p:" + added + "</p:Relationships><!-- a -->"},
      {utf16(fl::i18n::to_ustring("<?xml version='1.0' encoding='UTF-16'?>\n<Relationships xmlns=" + space +
                                  "><Relationship Id='a' Type='\xC3\xB6' Target='x'/><!-- \xC3\xB6 -->"
                                  "</Relationships>"),
             true, true),
       "\n<Relationships xmlns=" + space + "><!-- \xC3\xB6 --><" + added + "</Relationships>"},
  };
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
  const auto add = [&](std::string_view id = {}) {
    return document.add(u"t", URI(u"/a"), id, kPackage).getID();
  };
  EXPECT_EQ(add("rId2"), "rId2");
  EXPECT_EQ(add("rId03"), "rId03") << "not the third";
  EXPECT_EQ(add(), "rId1");
  EXPECT_EQ(add(), "rId3");
  document.remove("rId2");
  document.remove("rId1");
  EXPECT_EQ(add("rId1"), "rId1");
  EXPECT_EQ(add(), "rId2");
  EXPECT_EQ(add(), "rId4");
  const auto copy = document;
  document.remove("rId4");
  EXPECT_TRUE(copy.find("rId4"));
  EXPECT_FALSE(document.find("rId4"));
}

TEST(Relationships, RefuseBadAdditions) {
  RelationshipsDocument document;
  const auto ruleOfAdding = [&](std::u16string_view type, std::u16string_view target, std::string_view id) {
    return ruleOf([&] { document.add(type, URI(target), id, kPackage); });
  };
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "a"), "");
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "a"), "opc:relationships:IdIsTaken");
  for (const char* id : {"1a", "a:b", "a b", "-a", "\xC3", "a\xC3\x97"}) {
    EXPECT_EQ(ruleOfAdding(u"t", u"/a", id), "opc:relationships:IdIsNoName") << id;
  }
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "_\xC3\xA9-.\xF0\x90\x80\x80"), "");
  EXPECT_EQ(ruleOfAdding(u"t", u"/../a", ""), "opc:name:AboveRoot");
  EXPECT_EQ(ruleOfAdding(u"a\xFFFE", u"/a", ""), "opc:xml:UnwritableCharacter");
  EXPECT_EQ(ruleOfAdding(u"\xFFFD", u"/a", ""), "");
  EXPECT_EQ(ruleOfAdding(u"\xD800", u"/a", ""), "opc:xml:IllFormedText");
  EXPECT_EQ(document.size(), 3u) << "nothing was added halfway";
}

TEST(CoreProperties, AreReadAsTheyWereSet) {
  std::string document = newCoreProperties();
  const auto get = [&](CoreProperty property) { return coreProperty(document, property, kCore, kDepth); };
  const auto set = [&](CoreProperty property, std::u16string_view text) {
    document = withCoreProperty(document, property, text, kCore, kDepth);
    EXPECT_EQ(get(property), text);
  };
  EXPECT_EQ(get(CoreProperty::Description), std::nullopt);
  set(CoreProperty::Description, u" <Größe> & ]]> \"\r\n\t\U0001F600 ");
  set(CoreProperty::Version, u"1.0");
  set(CoreProperty::Creator, u"");
  set(CoreProperty::Created, u"2026-11-21T09:30:00Z");
  EXPECT_NE(document.find(" ]]&gt; \"&#13;\n"), std::string::npos);
  EXPECT_TRUE(document.ends_with(
      "<cp:version>1.0</cp:version><dc:creator/>"
      "<dcterms:created "
      "xsi:type=\"dcterms:W3CDTF\">2026-11-21T09:30:00Z</dcterms:created></cp:coreProperties>"));
  EXPECT_EQ(ruleOf([&] { set(CoreProperty::Version, u"\x01"); }), "opc:xml:UnwritableCharacter");
  document = links("");
  EXPECT_EQ(ruleOf([&] { get(CoreProperty::Version); }), "coreProperties:WrongRoot");
}

TEST(CoreProperties, AreEditedInTheTextOthersWrote) {
  const std::string head =
      "<?xml version='1.0'?>\n<!-- a --><coreProperties "
      "xmlns='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
      "xmlns:d='http://purl.org/dc/elements/1.1/' xmlns:cp='urn:taken' cp:kept = '1'>\n"
      "  <d:title xml:lang='de'>T &amp; &lt;</d:title><!-- b -->"
      "<keywords>one<value xml:lang='fr'>deux</value></keywords>\n";
  const std::string tail =
      "\n<cp:description>another</cp:description><lastModifiedBy/></coreProperties><?c?>";
  struct Case {
    std::string before, after;  // the description is set
    std::optional<std::u16string> text;
  };
  const Case kCases[] = {
      {"<d:description xml:lang='en' >o<![CDATA[l]]><x>d</x></d:description>",
       "<d:description xml:lang='en' >a &lt; b</d:description>", u"old"},
      {"<d:description xml:lang='en'/>", "<d:description xml:lang='en'>a &lt; b</d:description>", u""},
      {"<d:description></d:description>\n <d:description>older</d:description><d:description/><!-- c -->",
       "<d:description>a &lt; b</d:description><!-- c -->", u""},
      {"<!-- <d:description/> --><keywords><d:description>deeper</d:description></keywords>", "", {}},
  };
  for (const Case& c : kCases) {
    const std::string before = head + c.before + tail;
    EXPECT_EQ(coreProperty(before, CoreProperty::Description, kCore, kDepth), c.text);
    const std::string after = withCoreProperty(before, CoreProperty::Description, u"a < b", kCore, kDepth);
    const std::string appended = before.substr(0, before.find("</coreProperties>")) +
                                 "<d:description>a &lt; b</d:description></coreProperties><?c?>";
    EXPECT_EQ(after, c.text ? head + c.after + tail : appended);
  }
  // The prefix that is usual for the conventions' own namespace means something else in here.
  std::string dated = withCoreProperty(head + tail, CoreProperty::Version, u"2", kCore, kDepth);
  dated = withCoreProperty(dated, CoreProperty::Created, u"2026", kCore, kDepth);
  EXPECT_NE(dated.find("<cp:version xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/"
                       "core-properties\">2</cp:version><dcterms:created "
                       "xmlns:dcterms=\"http://purl.org/dc/terms/\" "
                       "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                       "xsi:type=\"dcterms:W3CDTF\">2026</dcterms:created></coreProperties>"),
            std::string::npos)
      << dated;
}

}  // namespace
}  // namespace opc
