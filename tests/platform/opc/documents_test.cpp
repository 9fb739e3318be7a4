#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/target_resolution.h"
#include "platform/opc/xml_element.h"
#include "platform/opc/xml_reader.h"
#include "platform/text/conversion.h"
#include "tests/support/temporary_folder.h"

namespace opc {
namespace {

using model::CoreProperty;
using model::ExcludeMode;
using model::TargetMode;

constexpr std::string_view kPackage = "/data/a.tavlox";

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

std::string links(std::string_view items) {
  return "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">" +
         std::string(items) + "</Relationships>";
}

ContentTypesDocument parseTypes(std::string_view bytes) {
  return ContentTypesDocument::parse(bytes, kPackage);
}

RelationshipsDocument parseLinks(std::string_view bytes, std::string source = {}) {
  return RelationshipsDocument::parse(bytes, std::move(source), kPackage);
}

std::string utf16(std::u16string_view text, bool isLittleEndian, bool hasMark) {
  std::string bytes;
  for (const char16_t unit : (hasMark ? u"\uFEFF" : u"") + std::u16string(text)) {
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

// The XML rules hold for every document; relationships stand for all.
TEST(Xml, isReadStrictly) {
  const std::string empty = links("");
  const std::string deep = [] {
    std::string nested;
    for (int i = 0; i < 64; ++i) nested += "<x:a xmlns:x='urn:x'>";
    for (int i = 0; i < 64; ++i) nested += "</x:a>";
    return links(nested);
  }();
  struct Case {
    std::string bytes, rule;
  };
  const Case kCases[] = {
      {"", "xml:Malformed"},
      {"<", "xml:Malformed"},
      {empty.substr(0, empty.size() - 1), "xml:Malformed"},
      {empty + empty, "xml:Malformed"},
      {empty + "x", "xml:Malformed"},
      {links("<Relationship Id='a' Id='b'/>"), "xml:Malformed"},
      {links("&nbsp;"), "xml:Malformed"},
      {links("<x:a/>"), "xml:Malformed"},  // prefix without a declaration
      {links("\xC3("), "xml:Malformed"},
      {links("&#1;"), "xml:Malformed"},
      {links(std::string_view("\0", 1)), "xml:Malformed"},
      {"<!DOCTYPE Relationships>" + empty, "xml:DocumentTypeDeclaration"},
      {"<!DOCTYPE r [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;'>]>" + empty, "xml:DocumentTypeDeclaration"},
      {"<!DOCTYPE r SYSTEM 'file:///etc/passwd'>" + empty, "xml:DocumentTypeDeclaration"},
      {deep, "xml:TooDeep"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + empty, "xml:UnknownEncoding"},
      {"<?xml version='1.0' encoding='US-ASCII'?>" + empty, "xml:UnknownEncoding"},
      {"<?xml version='1.0' encoding='utf-16'?>" + empty, "xml:UnknownEncoding"},
      {utf16(u"<?xml version='1.0' encoding='utf-8'?><a/>", true, true), "xml:UnknownEncoding"},
      {utf16(u"<a>\xD800</a>", true, true), "xml:IllFormedUtf16"},
      {utf16(u"<a/>", false, false) + "x", "xml:IllFormedUtf16"},
      {"<?xml version='1.0' encoding='utf-8'?>" + empty, ""},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>" + empty, ""},
      {"<?xml version='1.0'?><!-- a --><?b c?>" + empty + "<!-- d -->\n", ""},
  };
  for (const Case& c : kCases)
    EXPECT_EQ(ruleOf([&] { parseLinks(c.bytes); }), c.rule) << c.bytes.substr(0, 200);
}

TEST(Xml, isReadInUtf16) {
  const std::u16string items =
      fl::i18n::to_ustring(links("<Relationship Id='a' Type='\xF0\x9F\x98\x80' Target='Gr\xC3\xB6\xC3\x9F"
                                 "e.csv'/>"));
  for (const bool isLittleEndian : {true, false}) {
    for (const bool hasMark : {true, false}) {
      const std::u16string_view declarations[] = {u"", u"<?xml version='1.0' encoding='UTF-16'?>"};
      for (const std::u16string_view declaration : declarations) {
        const auto all =
            parseLinks(utf16(std::u16string(declaration) + items, isLittleEndian, hasMark)).relationships();
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].getType(), u"\U0001F600");
        EXPECT_EQ(all[0].getTarget().text(), u"/Größe.csv");
      }
    }
  }
}

TEST(Xml, raisesOutsideOfTheParserWhatAHandlerRaises) {
  struct Raising : xml::Handler {
    int calls = 0;
    void start(const xml::Name&, const xml::Attributes&, xml::Span) override {
      ++calls;
      throw 7;
    }
    void end(xml::Span) override { ++calls; }
    void text(std::string_view) override { ++calls; }
  } handler;
  EXPECT_THROW(xml::read("<a/>", {kPackage, "a"}, 64, handler), int);
  EXPECT_EQ(handler.calls, 1);  // an empty element ends at once, but nobody wants to know any more
}

TEST(ContentTypes, overridesComeBeforeDefaults) {
  const auto document =
      parseTypes(types("<Default Extension='CSV' ContentType='text/csv'/>"
                       "<Default Extension='.json' ContentType='application/json'/>"
                       "<Default Extension='rels' ContentType='a/rels'/>"
                       "<Override PartName='/a%20b.csv' ContentType='text/x-own'/>"
                       "<Override PartName='/_rels/.rels' ContentType='b/rels'/>"));
  struct Case {
    std::string name, type;
  };
  const Case kCases[] = {
      {"/x.csv", "text/csv"},
      {"/x.CsV", "text/csv"},
      {"/x.json", "application/json"},
      {"/a.csv/x", ""},  // the extension is that of the last segment
      {"/x.csv.gz", ""},
      {"/csv", ""},
      {"/.csv", "text/csv"},
      {"/A%20B.csv", "text/x-own"},
      {"/a b.csv", "text/x-own"},
      {"/_rels/.rels", "b/rels"},
      {"/x/_rels/y.rels", "a/rels"},
  };
  for (const Case& c : kCases) EXPECT_EQ(typeOf(document, c.name), c.type) << c.name;
}

TEST(ContentTypes, changesKeepTheNeighbours) {
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
  EXPECT_EQ(parseTypes(bytes).toBytes(), bytes);
  EXPECT_EQ(typeOf(parseTypes(bytes), "/b"), "");
  EXPECT_EQ(typeOf(parseTypes(ContentTypesDocument().toBytes()), "/_rels/.rels"),
            "application/vnd.openxmlformats-package.relationships+xml");
}

TEST(ContentTypes, areRefusedWhenMalformed) {
  struct Case {
    std::string bytes, rule;
  };
  const std::string csv = "<Default Extension='csv' ContentType='text/csv'/>";
  const Case kCases[] = {
      {"<Types/>", "WrongRoot"},
      {"<Types xmlns='urn:other'/>", "WrongRoot"},
      {links(""), "WrongRoot"},
      {types(csv + csv), "DuplicateDefault"},
      {types(csv + "<Default Extension='.CSV' ContentType='text/x'/>"), "DuplicateDefault"},
      {types("<Override PartName='/a' ContentType='x/y'/><Override PartName='/%41' ContentType='x/y'/>"),
       "DuplicateOverride"},
      {types("<Default ContentType='text/csv'/>"), "MissingAttribute"},
      {types("<Default Extension='csv'/>"), "MissingAttribute"},
      {types("<Override ContentType='text/csv'/>"), "MissingAttribute"},
      {types("<Override xmlns:x='urn:x' x:PartName='/a' ContentType='text/csv'/>"), "MissingAttribute"},
      {types("<Default Extension='csv' ContentType='text/csv; charset=utf-8'/>"), "NoContentType"},
      {types("<Default Extension='csv' ContentType=''/>"), "NoContentType"},
      {types("<Override PartName='a' ContentType='x/y'/>"), "BadPartName"},
      {types("<Override PartName='/a%2Fb' ContentType='x/y'/>"), "BadPartName"},
      {types("<Override PartName='/a%' ContentType='x/y'/>"), "BadPartName"},
      {types("<Defaults/>"), "UnexpectedElement"},
      {types("<Default Extension='a' ContentType='x/y'>" + csv + "</Default>"), "UnexpectedElement"},
      {types("text"), "UnexpectedText"},
      {types("<x:a xmlns:x='urn:x'><Default/>text</x:a>\n" + csv), ""},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ruleOf([&] { parseTypes(c.bytes); }), c.rule.empty() ? "" : "contentTypes:" + c.rule)
        << c.bytes;
  }
  zip::Limits limits;
  limits.contentTypeBytes = 10;
  EXPECT_EQ(ruleOf([&] { ContentTypesDocument::parse(types(""), kPackage, limits); }),
            "contentTypes:TooLarge");
}

TEST(Relationships, leadWhereTheirTargetsSay) {
  struct Case {
    std::string source, target;
    std::u16string resolved;
  };
  const Case kCases[] = {
      // From the package.
      {"", "user/a.csv", u"/user/a.csv"},
      {"", "/user/a.csv", u"/user/a.csv"},
      {"", "./a/c/../b", u"/a/b"},
      {"", "Gr%c3%b6%C3%9Fe.csv", u"/Größe.csv"},
      {"", "a%23b%3Fc.csv", u"/a#b?c.csv"},
      {"", "100%2525.txt", u"/100%25.txt"},
      {"", " my run.csv\n", u"/my run.csv"},
      {"", "/a:b/c", u"/a:b/c"},
      // From parts.
      {"/word/document.xml", "media/1.png", u"/word/media/1.png"},
      {"/word/document.xml", "../media/1.png", u"/media/1.png"},
      {"/a%20b/c", "./d/../e", u"/a b/e"},
      {"/a/b/c", "/d", u"/d"},
      {"/a/b/c", "..x", u"/a/b/..x"},
      // The fragment stands inside the part.
      {"/a/b", "c.xml#d/../e?f", u"/a/c.xml"},
      {"/a/b", "#d", u"/a/b"},
      {"/a/b", "", u"/a/b"},
  };
  for (const Case& c : kCases) {
    const model::URI uri = resolveTarget(c.source, c.target);
    EXPECT_EQ(uri.text(), c.resolved) << c.source << " " << c.target;
    EXPECT_EQ(model::PartName(uri.text()).text(), c.resolved);
  }
}

TEST(Relationships, thatLeadToNoPartCannotBeTakenForOne) {
  struct Case {
    std::string source, target;
    std::u16string text;
  };
  const Case kCases[] = {
      {"", "../user/a.csv", u"/../user/a.csv"},  // above the root, where others would clamp
      {"/a/b", "../../../c%20d", u"/../../c d"},
      {"/a/b", "../../x/../../y", u"/../../y"},
      {"", "user/x/..", u"/../user/x/.."},  // a folder, not the part "/user"
      {"/a/b", ".", u"/../."},
      {"", "", u"/../"},
      {"", "#a", u"/../#a"},
      {"", "user/a.csv?x", u"/../user/a.csv?x"},
      {"", "user%2Fa.csv", u"/../user%2Fa.csv"},
      {"", "x/%2e%2e/user/a.csv", u"/../x/%2e%2e/user/a.csv"},
      {"", "x/%2E./a.csv", u"/../x/%2E./a.csv"},
      {"", "user\\a.csv", u"/../user\\a.csv"},
      {"", "user%5Ca.csv", u"/../user%5Ca.csv"},
      {"", "//user/a.csv", u"/..///user/a.csv"},
      {"", "user//a.csv", u"/../user//a.csv"},
      {"", "file:///user/a.csv", u"/../file:///user/a.csv"},
      {"", "user:a.csv", u"/../user:a.csv"},
      {"", "100%.txt", u"/../100%.txt"},
      {"", "%FF", u"/../%FF"},
      {"", "_rels/.rels", u"/../_rels/.rels"},
      {"", "a%00", u"/../a%00"},
  };
  for (const Case& c : kCases) {
    const std::u16string text = resolveTarget(c.source, c.target).text();
    EXPECT_EQ(text, c.text) << c.source << " " << c.target;
    EXPECT_NE(ruleOf([&] { model::PartName name(text); }), "") << c.target;
  }
}

TEST(Relationships, keepOrderAndWhatWasWritten) {
  const std::string kept =
      "<Relationship Type='t' Id='z' Target='../a%2f&amp;b' x:extra='1' xmlns:x='urn:x'/>"
      "<Relationship Id='a' Type='u' Target='http://example.org/%41?b#c' TargetMode='External'/>"
      "<x:skipped xmlns:x='urn:x'><Relationship Id='z'/></x:skipped>"
      "<Relationship Id='rId2' Type='t' Target='%61.csv' TargetMode='Internal'/>";
  auto document =
      parseLinks(links(kept + "<Relationship Id='e' Type='u' Target='' TargetMode='External'/>"), "/x/y");
  EXPECT_EQ(document.partName(), "/x/_rels/y.rels");
  ASSERT_EQ(document.size(), 4u);
  EXPECT_EQ(document.find("a")->getTarget().text(), u"http://example.org/%41?b#c");
  EXPECT_EQ(document.relationships(ExcludeMode::External).size(), 2u);
  EXPECT_EQ(document.relationshipsByType(u"t").back().getID(), "rId2");
  EXPECT_EQ(document.find("rId2")->getTarget().text(), u"/x/a.csv");

  EXPECT_TRUE(document.remove("e"));
  EXPECT_FALSE(document.remove("e"));
  document.add(u"t\t\"<\r\n", model::URI(u"/user/my run.csv"), "", kPackage);
  const std::string written = document.toBytes();
  EXPECT_EQ(written, links(kept + "<Relationship Id=\"rId1\" Type=\"t&#9;&quot;&lt;&#13;&#10;\" "
                                  "Target=\"/user/my%20run.csv\"/>"));
  const auto again = parseLinks(written, "/x/y");
  EXPECT_EQ(again.toBytes(), written);
  EXPECT_EQ(again.find("rId1")->getType(), u"t\t\"<\r\n");
  EXPECT_EQ(again.find("rId1")->getTarget(), document.find("rId1")->getTarget());
}

TEST(Relationships, areEditedInTheTextOthersWrote) {
  const std::string space = "'http://schemas.openxmlformats.org/package/2006/relationships'";
  const std::string added = "Relationship Id=\"rId1\" Type=\"t\" Target=\"/b\"/>";
  struct Case {
    std::string before, after;  // a relationship is removed and one is added
  };
  const Case kCases[] = {
      {"<?xml version='1.0'?>\n<!-- a -->\n<Relationships xmlns=" + space +
           " xmlns:v='urn:v' v:by='me'>\n\t<Relationship Id='a' Type='t' Target='x'> </Relationship>"
           "\n\t<v:extra><Relationship/></v:extra>\n</Relationships>\n<?b?>",
       "<?xml version='1.0'?>\n<!-- a -->\n<Relationships xmlns=" + space +
           " xmlns:v='urn:v' v:by='me'>\n\t<v:extra><Relationship/></v:extra>\n<" + added +
           "</Relationships>\n<?b?>"},
      {"\xEF\xBB\xBF<p:Relationships xmlns:p=" + space +
           "><p:Relationship Id='a' Type='\xC3\xB6' Target='x'/></p:Relationships>",
       "\xEF\xBB\xBF<p:Relationships xmlns:p=" + space + "><p:" + added + "</p:Relationships>"},
      {"<Relationships xmlns=" + space + " /><!-- a -->",
       "<Relationships xmlns=" + space + " ><" + added + "</Relationships><!-- a -->"},
      {"<p:Relationships xmlns:p=" + space + "/>",
       "<p:Relationships xmlns:p=" + space + "><p:" + added + "</p:Relationships>"},
      {utf16(fl::i18n::to_ustring("<?xml version='1.0' encoding='UTF-16'?>\n<Relationships xmlns=" + space +
                                  "><Relationship Id='a' Type='\xC3\xB6' Target='x'/><!-- \xC3\xB6 -->"
                                  "</Relationships>"),
             true, true),
       "\n<Relationships xmlns=" + space + "><!-- \xC3\xB6 --><" + added + "</Relationships>"},
  };
  for (const Case& c : kCases) {
    auto document = parseLinks(c.before);
    document.remove("a");
    document.add(u"t", model::URI(u"/b"), "", kPackage);
    EXPECT_EQ(document.toBytes(), c.after);
    EXPECT_EQ(parseLinks(c.after).relationships().size(), 1u);
    document.remove("rId1");
    EXPECT_TRUE(parseLinks(document.toBytes()).isEmpty());
  }
}

TEST(Relationships, getTheLowestFreeNumber) {
  RelationshipsDocument document;
  const auto add = [&](std::string_view id = {}) {
    return document.add(u"t", model::URI(u"/a"), id, kPackage).getID();
  };
  EXPECT_EQ(add("rId2"), "rId2");
  EXPECT_EQ(add("rId03"), "rId03");  // not the third
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

TEST(Relationships, refuseBadAdditions) {
  RelationshipsDocument document;
  const auto ruleOfAdding = [&](std::u16string_view type, std::u16string_view target, std::string_view id) {
    return ruleOf([&] { document.add(type, model::URI(target), id, kPackage); });
  };
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "a"), "");
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "a"), "opc:relationships:IdIsTaken");
  for (const char* id : {"1a", "a:b", "a b", "-a", "\xC3", "a\xC3\x97"}) {
    EXPECT_EQ(ruleOfAdding(u"t", u"/a", id), "opc:relationships:IdIsNoName") << id;
  }
  EXPECT_EQ(ruleOfAdding(u"t", u"/a", "_\xC3\xA9-.\xF0\x90\x80\x80"), "");
  EXPECT_EQ(ruleOfAdding(u"t", u"a", ""), "opc:name:NoLeadingSlash");
  EXPECT_EQ(ruleOfAdding(u"t", u"/../a", ""), "opc:name:TrailingDot");
  EXPECT_EQ(ruleOfAdding(u"\x01", u"/a", ""), "opc:xml:UnwritableCharacter");
  EXPECT_EQ(ruleOfAdding(u"\xFFFE", u"/a", ""), "opc:xml:UnwritableCharacter");
  EXPECT_EQ(ruleOfAdding(u"\xFFFF", u"/a", ""), "opc:xml:UnwritableCharacter");
  EXPECT_EQ(ruleOfAdding(u"\xFFFD", u"/a", ""), "");
  EXPECT_EQ(ruleOfAdding(u"\xD800", u"/a", ""), "opc:xml:IllFormedText");
  EXPECT_EQ(document.size(), 3u);  // nothing was added halfway
}

TEST(Relationships, areRefusedWhenMalformed) {
  struct Case {
    std::string bytes, rule;
  };
  const std::string a = "<Relationship Id='a' Type='t' Target='x'/>";
  const Case kCases[] = {
      {"<Relationships/>", "WrongRoot"},
      {types(""), "WrongRoot"},
      {links(a + a), "DuplicateId"},
      {links("<Relationship Type='t' Target='x'/>"), "MissingAttribute"},
      {links("<Relationship Id='a' Target='x'/>"), "MissingAttribute"},
      {links("<Relationship Id='a' Type='t'/>"), "MissingAttribute"},
      {links("<Relationship Id='' Type='t' Target='x'/>"), "BadId"},
      {links("<Relationship Id='1' Type='t' Target='x'/>"), "BadId"},
      {links("<Relationship Id='a:b' Type='t' Target='x'/>"), "BadId"},
      {links("<Relationship Id='a' Type='t' Target='x' TargetMode='external'/>"), "BadTargetMode"},
      {links("<Relationship Id='a' Type='t' Target='x' TargetMode=''/>"), "BadTargetMode"},
      {links("<Relationship Id='a' Type='t' Target='x' xml:base='/y/'/>"), "XmlBase"},
      {links("<Relation/>"), "UnexpectedElement"},
      {links("<Relationship Id='b' Type='t' Target='x'>" + a + "</Relationship>"), "UnexpectedElement"},
      {links(a + "x"), "UnexpectedText"},
      {links("\n" + a + "<!-- x --><Relationship Id='A' Type='t' Target='x'> </Relationship>"), ""},
      {"<Relationships xmlns='http://schemas.openxmlformats.org/package/2006/relationships' "
       "xmlns:mc='http://schemas.openxmlformats.org/markup-compatibility/2006' xmlns:v='urn:v' "
       "mc:Ignorable='v'>" +
           a + "</Relationships>",
       ""},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ruleOf([&] { parseLinks(c.bytes); }), c.rule.empty() ? "" : "relationships:" + c.rule)
        << c.bytes;
  }
  zip::Limits limits;
  limits.relationships = 1;
  EXPECT_EQ(ruleOf([&] {
              RelationshipsDocument::parse(links(a + "<Relationship Id='b' Type='t' Target='x'/>"), "",
                                           kPackage, limits);
            }),
            "relationships:TooMany");
  limits.relationshipBytes = 10;
  EXPECT_EQ(ruleOf([&] { RelationshipsDocument::parse(links(a), "", kPackage, limits); }),
            "relationships:TooLarge");
}

/// What Python's own reader makes of a document: tag, attributes and text of each property.
std::string readByPython(const std::string& bytes) {
  const support::TemporaryFolder folder;
  const std::string file = folder.write("core.xml", bytes).string();
  const std::string command =
      "/usr/bin/python3 -c 'import sys, xml.etree.ElementTree as xml\n"
      "for e in xml.parse(sys.argv[1]).getroot(): print(e.tag, sorted(e.attrib.items()), ascii(e.text), "
      "len(e))' " +
      file;
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  return pipe != nullptr && pclose(pipe) == 0 ? output : "failed: " + output;
}

TEST(CoreProperties, areReadByOthers) {
  CoreProperties properties;
  EXPECT_EQ(properties.get(CoreProperty::Description), std::nullopt);
  const std::u16string description = u" <Größe> & ]]> \"\r\n\t\U0001F600 ";
  properties.set(CoreProperty::Description, description, kPackage);
  properties.set(CoreProperty::Version, u"1.0", kPackage);
  properties.set(CoreProperty::Creator, u"", kPackage);
  properties.set(CoreProperty::Created, u"2026-11-21T09:30:00Z", kPackage);
  EXPECT_EQ(
      readByPython(properties.toBytes()),
      "{http://purl.org/dc/elements/1.1/}description [] "
      "' <Gr\\xf6\\xdfe> & ]]> \"\\r\\n\\t\\U0001f600 ' 0\n"
      "{http://schemas.openxmlformats.org/package/2006/metadata/core-properties}version [] '1.0' 0\n"
      "{http://purl.org/dc/elements/1.1/}creator [] None 0\n"
      "{http://purl.org/dc/terms/}created "
      "[('{http://www.w3.org/2001/XMLSchema-instance}type', 'dcterms:W3CDTF')] '2026-11-21T09:30:00Z' 0\n");
  const auto again = CoreProperties::parse(properties.toBytes(), {kPackage, "/docProps/core.xml"});
  EXPECT_EQ(again.get(CoreProperty::Description), description);
  EXPECT_EQ(again.get(CoreProperty::Creator), u"");
}

TEST(CoreProperties, settingOneKeepsTheOthers) {
  const std::string before =
      "<coreProperties xmlns='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
      "xmlns:d='http://purl.org/dc/elements/1.1/' xmlns:cp='urn:taken' cp:kept='1'>"
      "<d:title xml:lang='de'>T &amp; &lt;</d:title>"
      "<keywords>one<value xml:lang='fr'>deux</value>three</keywords>"
      "<d:description xml:lang='en'>old</d:description>"
      "<cp:unknown a='&#10;&quot;'><cp:deep/></cp:unknown>"
      "<d:description>older</d:description>"
      "<lastModifiedBy/></coreProperties>";
  auto properties = CoreProperties::parse(before, {kPackage, "/core.xml"});
  EXPECT_EQ(properties.get(CoreProperty::Description), u"old");
  properties.set(CoreProperty::Description, u"new", kPackage);
  properties.set(CoreProperty::Version, u"2", kPackage);
  properties.set(CoreProperty::Created, u"2026", kPackage);
  const std::string bytes = properties.toBytes();
  EXPECT_NE(bytes.find("cp:kept=\"1\"><d:title xml:lang=\"de\">T &amp; &lt;</d:title>"
                       "<keywords>one<value xml:lang=\"fr\">deux</value>three</keywords>"
                       "<d:description xml:lang=\"en\">new</d:description>"
                       "<cp:unknown a=\"&#10;&quot;\"><cp:deep/></cp:unknown><lastModifiedBy/>"),
            std::string::npos)
      << bytes;
  // The prefix that is usual for the conventions' own namespace means something else in here.
  EXPECT_NE(
      readByPython(bytes).find("/core-properties}version [] '2' 0\n"
                               "{http://purl.org/dc/terms/}created "
                               "[('{http://www.w3.org/2001/XMLSchema-instance}type', 'dcterms:W3CDTF')]"),
      std::string::npos)
      << bytes;
}

TEST(CoreProperties, refuseWhatTheyCannotHold) {
  const auto parse = [](std::string_view bytes) { CoreProperties::parse(bytes, {kPackage, "/core.xml"}); };
  EXPECT_EQ(ruleOf([&] { parse("<coreProperties/>"); }), "coreProperties:WrongRoot");
  EXPECT_EQ(ruleOf([&] { parse("<!DOCTYPE a><a/>"); }), "xml:DocumentTypeDeclaration");
  CoreProperties properties;
  properties.set(CoreProperty::Description, u"kept", kPackage);
  for (const char16_t* text : {u"\x01", u"a\xFFFE", u"\xFFFF", u"\x1F"}) {
    EXPECT_EQ(ruleOf([&] { properties.set(CoreProperty::Description, text, kPackage); }),
              "opc:xml:UnwritableCharacter");
  }
  EXPECT_EQ(ruleOf([&] { properties.set(CoreProperty::Description, u"\xDC00", kPackage); }),
            "opc:xml:IllFormedText");
  EXPECT_EQ(properties.get(CoreProperty::Description), u"kept");
}

}  // namespace
}  // namespace opc
