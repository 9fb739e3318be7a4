#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_index.h"
#include "platform/recovery/inspection.h"
#include "platform/recovery/rebuild.h"
#include "tests/support/archive_builder.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace {

using opc::model::Package;
using support::ArchiveBuilder;
using tavlox::SessionWriter;
using tavlox::recovery::Findings;
using tavlox::recovery::inspect;
using tavlox::recovery::Severity;
using Packing = ArchiveBuilder::Packing;
using Parts = std::map<std::u16string, std::string>;

constexpr char16_t kAside[] = u"/user/recovered/";
// Thousands of packages are saved here; on a disk their syncs take a minute.
[[maybe_unused]] const int kInMemory = setenv("TMPDIR", "/dev/shm", 1);

Parts partsOf(const std::u16string& path) {
  Package package(path);
  package.open(opc::interfaces::OpenMode::Read);
  Parts parts;
  for (const opc::IndexedPart& part : package.index()->parts()) {
    const auto name = package.index()->nameOf(part);
    parts[name.text()] = support::readAll(*package.getPart(name).getInputStream());
  }
  return parts;
}

/// The rules of findings, those of notes in parentheses, in their order.
std::string rulesOf(const Findings& findings) {
  std::string text;
  for (const auto& finding : findings) {
    const std::string& id = finding.rule.GetID();
    if (!text.empty()) text += ' ';
    const std::string shown = id.substr(id.rfind(':') + 1) +
                              (finding.item.empty() ? "" : "@" + fl::i18n::to_string_lossy(finding.item));
    text += finding.severity == Severity::Note ? "(" + shown + ")" : shown;
  }
  return text;
}

bool hasErrors(const Findings& findings) {
  return std::ranges::find(findings, Severity::Error, &tavlox::recovery::Finding::severity) != findings.end();
}

std::string example(const std::string& name) {
  std::stringstream text;
  text << std::ifstream(PROJECT_FOLDER "/examples/rc_filter/" + name).rdbuf();
  return text.str();
}

void addRun(SessionWriter& session, std::int32_t id, const std::string& table) {
  session.addRun({.id = id, .name = u"run"});
  const auto columns = std::count(table.begin(), table.begin() + table.find('\n'), ',');
  for (int signal = 1; signal <= columns; ++signal)
    session.addSignal({.id = signal, .runID = id, .units = u"V"});
  session.addSamples(id, [&](const SessionWriter::Sink& keep) { keep(table); });
}

class Recovery : public ::testing::Test {
 protected:
  std::u16string damaged(std::string_view bytes) {
    folder().write("damaged.tavlox", bytes);
    return folder().wide("damaged.tavlox");
  }

  std::string check(std::string_view bytes) { return rulesOf(inspect(damaged(bytes))); }

  /// Rebuilds and holds what must hold of every outcome: it opens, it passes the check, and what bears the
  /// name of an original part has its bytes. Gives the findings; the parts are in `recovered`.
  Findings recover(std::string_view bytes, const Parts& original) {
    recovered.clear();
    const std::u16string target = folder().wide("new.tavlox");
    Findings findings;
    try {
      findings = tavlox::recovery::rebuild(damaged(bytes), target, Package::Existing::Replace).findings;
    } catch (const opc::Exception& nothing) {
      EXPECT_EQ(nothing.GetID(), "recovery:recover:NothingFound");
      return {{Severity::Error, nothing, {}}};
    }
    EXPECT_FALSE(hasErrors(inspect(target))) << rulesOf(inspect(target));
    recovered = partsOf(target);
    bool isWhole = true;
    for (const auto& [name, content] : original) isWhole = isWhole && recovered.contains(name);
    for (const auto& [name, content] : recovered) {
      if (name.starts_with(kAside)) continue;
      isWhole = isWhole && original.contains(name);
      const bool isSame = !original.contains(name) || content == original.at(name);
      EXPECT_TRUE(isSame) << fl::i18n::to_string(name);
    }
    EXPECT_TRUE(isWhole || hasErrors(findings)) << rulesOf(findings);
    return findings;
  }

  const support::TemporaryFolder& folder() { return sessions_.folder(); }
  std::string write(const support::SessionFixture::Fill& fill) {
    sessions_.write("sound.tavlox", fill);
    return folder().read("sound.tavlox");
  }
  /// Of the session that was written last.
  Parts original() { return partsOf(folder().wide("sound.tavlox")); }

  Parts recovered;

 private:
  support::SessionFixture sessions_;
};

TEST_F(Recovery, KeepsEverythingBeforeACut) {
  const std::string bytes = write([](SessionWriter& session) {
    addRun(session, 1, example("nominal.csv"));
    addRun(session, 2, example("hot.csv"));
    session.addPart(u"/user/notes.md", u"application/vnd.tavlox.package+md", u"UserAssetsPartRelType",
                    "notes");
  });
  EXPECT_EQ(check(bytes), "");
  const Parts whole = original();
  const fl::filesystem::InputFile file(folder().narrow("sound.tavlox"));
  const auto directory = zip::Directory::read(file);
  for (std::size_t cut = 0; cut < bytes.size(); cut += 512) {
    const Findings findings = recover(std::string_view(bytes).substr(0, cut), whole);
    std::size_t complete = 0;
    for (const zip::Entry& entry : directory.entries()) {
      if (entry.endOffset > cut || entry.name.ends_with(".rels") || entry.name.starts_with('[')) continue;
      ++complete;
      EXPECT_TRUE(recovered.contains(u"/" + fl::i18n::to_ustring(entry.name)))
          << entry.name << " cut at " << cut;
    }
    EXPECT_EQ(recovered.size(), complete) << cut;
  }
}

TEST_F(Recovery, SurvivesEachDamagedByte) {
  ArchiveBuilder archive;
  archive.add("user/b.txt", "bbbbbbbb", Packing::Stored).useZip64(0);
  const std::string link = "\" Type=\"UserAssetsPartRelType\"/>",
                    format = "http://schemas.openxmlformats.org/package/2006/";
  archive.add("[Content_Types].xml",
              "<Types xmlns=\"" + format +
                  "content-types\"><Default Extension=\"txt\" ContentType=\"text/plain\"/></Types>");
  archive
      .add("_rels/.rels", "<Relationships xmlns=\"" + format +
                              "relationships\"><Relationship Id=\"a\" Target=\"/user/a.txt" + link +
                              "<Relationship Id=\"b\" Target=\"/user/b.txt" + link + "</Relationships>")
      .stream();
  archive.add("user/a.txt", "aaaa", Packing::Stored).stream("", 8);
  archive.add("c.txt", "", Packing::Stored);
  archive.zip64End.emplace();
  const std::string bytes = archive.bytes();
  folder().write("sound.tavlox", bytes);
  const Parts whole = original();
  ASSERT_EQ(whole.size(), 3);
  EXPECT_EQ(rulesOf(recover(bytes, whole)), "");
  std::size_t complete = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (const char change : {'\1', '\x80'}) {
      SCOPED_TRACE(at);
      std::string broken = bytes;
      broken[at] ^= change;
      complete += hasErrors(recover(broken, whole)) ? 0 : 1;
      EXPECT_GE(recovered.size(), 2);
    }
  }
  // Damage outside of data, in what the archive says twice, costs nothing.
  EXPECT_GT(complete, bytes.size());
  // Without any directory only data descriptors tell how long the streamed ones are.
  EXPECT_EQ(rulesOf(recover(bytes.substr(0, bytes.find("PK\1\2")), whole)), "(NotAnArchive)");
}

TEST_F(Recovery, TakesNothingOutOfAnItemThatIsCutOff) {
  ArchiveBuilder inner, outer;
  inner.add("user/inside.txt", "of another archive", Packing::Stored);
  outer.add("user/first.txt", "first");
  outer.add("user/archive.zip", inner.bytes() + std::string(100, 'x'), Packing::Stored);
  const std::string bytes = outer.bytes();
  recover(bytes.substr(0, bytes.find("xxxx")), {{u"/user/first.txt", "first"}});
  EXPECT_EQ(recovered.at(u"/user/first.txt"), "first");
  EXPECT_EQ(recovered.at(u"/user/recovered/user/inside.txt"), "of another archive");
  // Of a sound item everything inside is its data.
  recover(bytes.substr(0, bytes.find("PK\1\2", bytes.find("xxxx"))), {});
  EXPECT_EQ(recovered.size(), 2);
}

TEST_F(Recovery, KeepsTheReadableElementsOfDamagedParts) {
  const std::string bytes = write([](SessionWriter& session) {
    for (int id = 1; id <= 3; ++id) session.addRun({.id = id, .metadata = {{"Tag", u"abcdefgh"}}});
    session.addPart(u"/session/data/9.csv", u"text/csv", u"ORRASessionSamplesRelType", "t,v\n0\n");
  });
  ArchiveBuilder archive;
  for (const auto& [name, content] : original()) archive.add(fl::i18n::to_string(name.substr(1)), content);
  std::string broken = archive.bytes();
  broken[broken.find("\"id\":2") + 1] = '"';
  EXPECT_TRUE(hasErrors(recover(broken.substr(0, broken.find("PK\1\2")), original())));
  EXPECT_FALSE(recovered.contains(u"/session/runs.json"));
  EXPECT_EQ(recovered.at(u"/user/recovered/session/runs.json"),
            R"([{"id":1,"runClassName":"Set","metadata":{"Tag":"abcdefgh"}},
{"id":3,"runClassName":"Set","metadata":{"Tag":"abcdefgh"}}]
)");
  EXPECT_EQ(recovered.at(u"/user/recovered/session/data/9.csv"), "t,v\n0\n");
}

TEST_F(Recovery, NeverWritesOverTheDamagedFile) {
  const std::u16string path =
      damaged(write([](SessionWriter& session) { addRun(session, 1, "t,v\n0,1\n"); }));
  std::filesystem::create_hard_link(folder().path() / "damaged.tavlox", folder().path() / "other.tavlox");
  for (const auto& target : {path, folder().wide("other.tavlox")}) {
    EXPECT_EQ(support::ruleOf([&] { tavlox::recovery::rebuild(path, target, Package::Existing::Replace); }),
              "recovery:recover:SameFile");
  }
}

/// What is written wrong into a session, and what is said of it.
struct Fault {
  std::function<void(SessionWriter&)> fill;
  std::string findings;
};

TEST_F(Recovery, ChecksTheFormOfASession) {
  using namespace tavlox::relationship_types;
  const auto part = [](const char16_t* name, const char16_t* type, const char* content) {
    return [=](SessionWriter& session) { session.addPart(name, u"text/plain", type, content); };
  };
  const Fault faults[] = {
      {part(u"/r", kRunData, R"([{"id": 1}, {"id": 1}])"), "InvalidSessionData@r"},
      {part(u"/s", kSignalsData, R"([{"id": 1, "runID": 5}])"), "(SignalsWithoutRuns@s)"},
      {[&](SessionWriter& session) {
         session.addRun({.id = 1});
         part(u"/s", kSignalsData, R"([{"id": 1, "runID": 5}])")(session);
       },
       "InvalidSessionData@s"},
      {part(u"/c", kCompression, R"({"CompressionType": 1})"), "CompressionRecord@c"},
      {[](SessionWriter& session) { addRun(session, 1, "t,\"a\n,\"\"b\"\n0,1\n\n1,2"); }, ""},
      {[](SessionWriter& session) { addRun(session, 1, "t,v\n0,1\n1"); }, "UnevenSamples@session/data/1.csv"},
      {[](SessionWriter& session) {
         addRun(session, 1, "t,v\n0,1\n");
         session.addSignal({.id = 9, .runID = 1});
       },
       "SamplesDiffer@session/data/1.csv"},
  };
  for (const Fault& fault : faults) EXPECT_EQ(check(write(fault.fill)), fault.findings);
}

TEST_F(Recovery, ChecksTheArchiveAndItsDocuments) {
  const std::string core = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
  const std::string links = R"(<Relationship Id="a" Type="UserAssetsPartRelType" Target="/gone.txt"/>)"
                            R"(<Relationship Id="b" Type="other" Target="/../x"/>)"
                            R"(<Relationship Id="c" Target="/a.txt" Type=")" + core + "\"/>";
  const std::string sound = support::foreignPackage("", {"a.txt", "b.txt"});
  const auto changed = [&](std::size_t at, char byte) { return std::string(sound).replace(at, 1, 1, byte); };
  const std::size_t name = sound.find("b.txt");
  const struct {
    std::string bytes, findings;
  } damages[] = {
      {sound, ""},
      {support::foreignPackage("", {"a.txt", "a.txt/c.txt", "data", "a\\b.txt", "x/_rels/y.rels"}),
       "(DerivedName@a.txt/c.txt) (NoContentType@data) (NameOfNoPart@a\\b.txt) (OrphanedRelationships@x/_rels/y.rels)"},
      {changed(name + 10, '?'), "ChecksumDiffers@b.txt"},
      {changed(name, '?'), "LocalNameDiffers@?.txt"},
      {sound + std::string(16, '\n'), "(TrailingBytes)"},
      {support::foreignPackage(links, {"a.txt"}),
       "(MissingTarget@_rels/.rels) Malformed@a.txt MissingTarget@_rels/.rels"},
      {support::foreignPackage("<a/>", {}), "UnexpectedElement@_rels/.rels"},
      {sound.substr(0, name + 7), "NotAnArchive EntryOutOfBounds@b.txt"},
  };
  for (const auto& damage : damages) EXPECT_EQ(check(damage.bytes), damage.findings);
}

}  // namespace
