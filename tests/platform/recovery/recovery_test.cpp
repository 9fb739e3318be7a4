#include <algorithm>
#include <functional>
#include <map>

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
using tavlox::recovery::Finding;
using tavlox::recovery::Severity;
using Packing = ArchiveBuilder::Packing;
using Parts = std::map<std::u16string, std::string>;

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

/// The rules of findings in their order, with the items they are about; notes in parentheses.
std::string rulesOf(const tavlox::recovery::Findings& findings) {
  std::string text;
  for (const auto& [severity, rule, item, offset] : findings) {
    std::string shown = rule.GetID().substr(rule.GetID().rfind(':') + 1);
    if (!item.empty()) shown += "@" + fl::i18n::to_string_lossy(item);
    text += (text.empty() ? "" : " ") + (severity == Severity::Note ? "(" + shown + ")" : shown);
  }
  return text;
}

class Recovery : public ::testing::Test {
 protected:
  std::u16string damaged(std::string_view bytes) {
    folder().write("damaged.tavlox", bytes);
    return folder().wide("damaged.tavlox");
  }
  std::string check(std::string_view bytes) { return rulesOf(tavlox::recovery::inspect(damaged(bytes))); }

  /// Rebuilds, and holds what must hold of every outcome: it opens, it passes the check, what bears the name
  /// of a part of the sound package has its bytes, and what is missing or new is told of.
  std::string recover(std::string_view bytes, const Parts& sound) {
    recovered.clear();
    const std::u16string target = folder().wide("new.tavlox");
    try {
      const auto outcome = tavlox::recovery::rebuild(damaged(bytes), target, Package::Existing::Replace);
      isWhole = std::ranges::count(outcome.findings, Severity::Error, &Finding::severity) == 0;
      recovered = partsOf(target);
      const auto findings = tavlox::recovery::inspect(target);
      EXPECT_EQ(std::ranges::count(findings, Severity::Error, &Finding::severity), 0) << rulesOf(findings);
      for (const auto& [name, content] : recovered) {
        const auto original = sound.find(name);
        EXPECT_TRUE(original == sound.end() || content == original->second) << fl::i18n::to_string(name);
      }
      const auto isKept = [&](const auto& part) { return recovered.contains(part.first); };
      EXPECT_TRUE(!isWhole || (std::ranges::all_of(sound, isKept) && recovered.size() == sound.size()));
      return rulesOf(outcome.findings);
    } catch (const opc::Exception& nothing) {
      isWhole = false;
      return nothing.GetID();
    }
  }

  const support::TemporaryFolder& folder() { return sessions_.folder(); }
  std::string write(const support::SessionFixture::Fill& fill) {
    sessions_.write("sound.tavlox", fill);
    return folder().read("sound.tavlox");
  }
  Parts soundParts() { return partsOf(folder().wide("sound.tavlox")); }

  Parts recovered;
  bool isWhole = false;

 private:
  support::SessionFixture sessions_;
};

void addRun(SessionWriter& session, std::int32_t id, const std::string& table) {
  session.addRun({.id = id});
  const auto signals = std::count(table.begin(), table.begin() + table.find('\n'), ',');
  for (int signal = 1; signal <= signals; ++signal) session.addSignal({.id = signal, .runID = id});
  session.addSamples(id, [&](const SessionWriter::Sink& keep) { keep(table); });
}

TEST_F(Recovery, KeepsEverythingBeforeACut) {
  const std::string examples = PROJECT_FOLDER "/examples/rc_filter/";
  const std::string bytes = write([&](support::TestSession& session) {
    addRun(session, 1, folder().read(examples + "nominal.csv"));
    addRun(session, 2, folder().read(examples + "hot.csv"));
    session.addPart(u"/user/a.md", u"application/vnd.tavlox.package+md", u"UserAssetsPartRelType", "notes");
  });
  EXPECT_EQ(check(bytes), "");
  const Parts sound = soundParts();
  const auto directory = zip::Directory::read(fl::filesystem::InputFile(folder().narrow("sound.tavlox")));
  for (std::size_t cut = 0; cut < bytes.size(); cut += 512) {
    recover(bytes.substr(0, cut), sound);
    std::size_t complete = 0;
    for (const zip::Entry& entry : directory.entries()) {
      const bool isPart = sound.contains(u"/" + fl::i18n::to_ustring(entry.name));
      if (isPart && entry.endOffset <= cut) ++complete;
    }
    EXPECT_EQ(recovered.size(), complete) << cut;
  }
}

TEST_F(Recovery, SurvivesEachDamagedByte) {
  ArchiveBuilder archive =
      support::foreignArchive(R"(<Relationship Id="a" Target="/a.txt" Type="t"/>)", {"a.txt"});
  for (auto& entry : archive.entries) entry.stream();
  archive.add("user/b.txt", "bbbbbbbb", Packing::Stored).stream("", 8);
  const std::uint64_t offset = archive.bytes().rfind("PK\3\4") + 30 + 10 + 8 + 20;
  archive.add("c.txt", "cc", Packing::Stored).useZip64(offset);
  archive.add("d.txt", "", Packing::Stored);
  archive.zip64End.emplace();
  const std::string bytes = archive.bytes();
  folder().write("sound.tavlox", bytes);
  const Parts sound = soundParts();
  ASSERT_EQ(recover(bytes, sound), "");
  std::size_t whole = 0;
  for (std::size_t at = 0; at < 2 * bytes.size(); ++at) {
    std::string broken = bytes;
    broken[at / 2] ^= at % 2 == 0 ? '\1' : '\x80';
    recover(broken, sound);
    EXPECT_GE(recovered.size(), sound.size() - 1) << at / 2;
    whole += isWhole ? 1 : 0;
  }
  // Damage outside of data, in what the archive says twice, costs nothing.
  EXPECT_GT(whole, bytes.size());
  // Without any directory only data descriptors tell how long streamed items are.
  EXPECT_EQ(recover(bytes.substr(0, bytes.find("PK\1\2")), sound), "(NotAnArchive)");
}

TEST_F(Recovery, TakesNothingOutOfAnItemThatIsCutOff) {
  ArchiveBuilder inner, outer;
  inner.add("user/inside.txt", "of another archive", Packing::Stored);
  outer.add("user/first.txt", "first");
  outer.add("user/archive.zip", inner.bytes() + std::string(100, 'x'), Packing::Stored);
  const std::string bytes = outer.bytes();
  recover(bytes.substr(0, bytes.find("xxxx")), {});
  EXPECT_EQ(recovered, (Parts{{u"/user/first.txt", "first"},
                              {u"/user/recovered/user/inside.txt", "of another archive"}}));
  // Of a sound item everything inside is its data.
  recover(bytes.substr(0, bytes.find("PK\1\2", bytes.find("xxxx"))), {});
  EXPECT_EQ(recovered.size(), 2);
}

TEST_F(Recovery, KeepsLinksToWhatIsThereAndOutOfThePackage) {
  const std::string out = R"(Target="https://x.org/?a&amp;b" TargetMode="External"/>)";
  const std::string links =
      R"(<Relationship Id="a" Type="u" Target="/a.txt"/><Relationship Id="b" Type="v" )" + out +
      R"(<Relationship Id="c" Type="UserAssetsPartRelType" )" + out;
  const std::string bytes = support::foreignPackage(links, {"a.txt"});
  const auto rules = recover(bytes.substr(0, bytes.find("PK\1\2")), {{u"/a.txt", "a.txt"}});
  EXPECT_EQ(rules, "(NotAnArchive) MissingTarget") << "what is to be a part cannot lie elsewhere";
  Package package(folder().wide("new.tavlox"));
  package.open(opc::interfaces::OpenMode::Read);
  std::string kept;
  for (const auto& link : package.getRelationships(opc::model::ExcludeMode::None)) {
    const bool isOut = link.getTargetMode() == opc::model::TargetMode::External;
    kept +=
        link.getID() + (isOut ? " out to " : " to ") + fl::i18n::to_string(link.getTarget().text()) + "\n";
  }
  EXPECT_EQ(kept, "a to /a.txt\nb out to https://x.org/?a&b\n");
}

TEST_F(Recovery, KeepsAsideWhatIsLeftOfSessionParts) {
  ArchiveBuilder archive;
  archive.add("session/runs.json", R"([{"id": 1}, {"id": 2, "name": "two"}, {"id": 3, "metadata": {}}])");
  archive.add("session/data/9.csv", "t,v\n0\n");
  std::string broken = archive.bytes();
  broken[broken.find("\"id\": 2") + 1] = '"';
  EXPECT_EQ(
      recover(broken, {}),
      "ChecksumDiffers@session/runs.json (TypesRebuilt) (LinksRebuilt) UnevenSamples@session/data/9.csv "
      "(KeptAside@session/data/9.csv) (ElementsKept@session/runs.json)");
  EXPECT_EQ(recovered,
            (Parts{{u"/user/recovered/session/runs.json", "[{\"id\": 1},\n{\"id\": 3, \"metadata\": {}}]\n"},
                   {u"/user/recovered/session/data/9.csv", "t,v\n0\n"}}));
}

TEST_F(Recovery, ChecksTheFormOfASession) {
  using namespace tavlox::relationship_types;
  const auto part = [](const char16_t* name, const char16_t* type, const char* content) {
    return [=](support::TestSession& session) { session.addPart(name, u"text/plain", type, content); };
  };
  const auto run = [](const char* table) {
    return [=](SessionWriter& session) { addRun(session, 1, table); };
  };
  const struct {
    support::SessionFixture::Fill first, second;
    std::string findings;
  } faults[] = {
      {part(u"/r", kRunData, R"([{"id": 1}, {"id": 1}])"), {}, "InvalidSessionData@r"},
      {part(u"/r", kRunData, R"([{"id": 1, "samples": "/gone"}, {"id": 2, "samples": "/r"}])"),
       {},
       "(NoSuchSamples@r)"},
      {part(u"/s", kSignalsData, R"([{"id": 1, "runID": 5}])"), {}, "(SignalsWithoutRuns@s)"},
      {part(u"/s", kSignalsData, R"([{"id": 1, "runID": 5}])"), run("t,v\n0,1"), "InvalidSessionData@s"},
      {part(u"/c", kCompression, R"({"CompressionType": 1})"), {}, "CompressionRecord@c"},
      {part(u"/v", kView, ""), part(u"/w", kView, ""), "(FurtherPart@w)"},
      {run("t,\"a\n,\"\"b\"\n0,1\n\n1,2"), {}, ""},
      {run("t,v\n0,1\n1"), {}, "UnevenSamples@session/data/1.csv"},
      {run("t,v\n0,1"), [](SessionWriter& session) { session.addSignal({.id = 9, .runID = 1}); },
       "SamplesDiffer@session/data/1.csv"},
      {[](SessionWriter& session) {
         session.addRun({.id = 1});
         session.addSignal({.id = 1, .runID = 1, .column = 3});
         session.addSamples(1, [&](const SessionWriter::Sink& keep) { keep("t,v\n0,1"); });
       },
       {},
       "NoSuchColumn@session/data/1.csv"},
  };
  for (const auto& [first, second, findings] : faults) {
    EXPECT_EQ(check(write([&](support::TestSession& session) {
                first(session);
                if (second) second(session);
              })),
              findings);
  }
}

TEST_F(Recovery, TellsEveryElementThatIsAtFault) {
  using namespace tavlox::relationship_types;
  const auto toldOf = [&](const std::string& runs, const std::string& signals) {
    const std::string bytes = write([&](support::TestSession& session) {
      session.addPart(u"/r", u"text/plain", kRunData, runs);
      session.addPart(u"/s", u"text/plain", kSignalsData, signals);
    });
    std::string told;
    for (const Finding& finding : tavlox::recovery::inspect(damaged(bytes))) {
      // Of a list's element the arguments are the list, the element and what is wrong with it.
      const auto& arguments = finding.rule.GetArguments();
      told += fl::i18n::to_string(finding.item + (arguments.size() == 3 ? arguments[1] : u"")) + " ";
    }
    return told;
  };
  // That an identifier is repeated is known at the end only.
  EXPECT_EQ(toldOf(R"([{"id":1},{"id":"x"},{"id":1},{"id":},5,tru,{"id":6},{"id":6}}])", "[]"),
            "r2 r4 r5 r6 r0 r3 r8 s ");
  EXPECT_EQ(toldOf(R"([{"id":1}])", R"([{"id":1,"runID":2},{"id":2,"runID":1},{"id":3},{}])"), "s1 s3 s4 ");
  std::string many = "[5";
  for (int element = 2; element <= 2'000; ++element) many += ",5";
  const std::string told = toldOf(many + "]", "[]");
  EXPECT_EQ(std::ranges::count(told, 'r'), 1'001) << "a thousand, and that there are more";
}

TEST_F(Recovery, ChecksTheArchiveAndItsDocuments) {
  const std::string core =
      "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
  const std::string links = R"(<Relationship Id="a" Type="UserAssetsPartRelType" Target="/gone.txt"/>)"
                            R"(<Relationship Id="b" Type="other" Target="/../x"/>)"
                            R"(<Relationship Id="c" Target="/a.txt" Type=")" +
                            core + "\"/>";
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
      {changed(name, '?'), "LocalNameDiffers@b.txt"},
      {sound + std::string(16, '\n'), "(TrailingBytes)"},
      {support::foreignPackage(links, {"a.txt"}),
       "(MissingTarget@_rels/.rels) Malformed@a.txt MissingTarget@_rels/.rels"},
      {support::foreignPackage("<a/>", {}), "UnexpectedElement@_rels/.rels"},
      {sound.substr(0, name + 7), "NotAnArchive EntryOutOfBounds@b.txt"},
  };
  for (const auto& damage : damages) EXPECT_EQ(check(damage.bytes), damage.findings);
}

TEST_F(Recovery, TellsEveryBrokenRuleAndDocument) {
  ArchiveBuilder archive = support::foreignArchive("<a/>", {"a.txt", "../b", "a.txt", "c.txt", "d.txt"});
  archive.entries[2].local.checksum ^= 1;
  archive.entries[2].local.size += 1;
  archive.entries[2].local.method = 0;
  archive.entries[3].central.flags = archive.entries[3].local.flags = 1;
  archive.entries[5].offset = 9'999;
  archive.entries[6].central.extra = support::extraField(1, "1").substr(0, 4);
  archive.add("_rels/a.txt.rels", "no XML");
  EXPECT_EQ(
      check(archive.bytes()),
      "NameClimbs@../b Encrypted@../b ExtraFieldBroken@d.txt DuplicateName@a.txt LocalMethodDiffers@a.txt "
      "LocalChecksumDiffers@a.txt LocalSizesDiffer@a.txt EntryOutOfBounds@c.txt DescriptorDiffers@../b "
      "UnexpectedElement@_rels/.rels Malformed@_rels/a.txt.rels");
  archive =
      support::foreignArchive("<a/>", {"a.txt", "A.TXT", "_rels/a.txt.rels", "c.txt", "_rels/c.txt.rels"});
  EXPECT_EQ(
      check(archive.bytes()),
      "EquivalentNames@A.TXT UnexpectedElement@_rels/.rels Malformed@_rels/a.txt.rels Malformed@_rels/c.txt.rels");
  archive = {};
  for (const char* document : {"[Content_Types].xml", "_rels/.rels", "a/_rels/b.rels"})
    archive.add(document, "no XML");
  EXPECT_EQ(check(archive.bytes()),
            "Malformed@[Content_Types].xml Malformed@_rels/.rels Malformed@a/_rels/b.rels");
}

}  // namespace
