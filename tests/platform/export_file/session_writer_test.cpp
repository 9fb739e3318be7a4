#include "platform/export_file/session_writer.h"

#include <cmath>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/descriptor.h"
#include "tests/support/memory.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

using namespace tavlox;
using support::outputOf;
using support::ruleOf;
using support::TemporaryFolder;

namespace {

/// What another program reads of the package.
std::string readBack(const std::string& package) {
  return outputOf("/usr/bin/python3 '" PROJECT_FOLDER "/tests/support/read_package.py' '" + package + "'");
}

RunRecord runOf(std::int32_t id) { return {.id = id}; }

SignalRecord signalOf(std::int32_t id, std::int32_t runID) { return {.id = id, .runID = runID}; }

void writeFullSession(const std::u16string& path) {
  SessionWriter session(path);
  session.addRun({.id = 7,
                  .name = u"Größe \"1\"",
                  .dateCreated = u"2026-11-21",
                  .runNumber = 4294967295u,
                  .orderIndex = -1,
                  .startTime = 0.1,
                  .stopTime = 1e22,
                  .metadata = {{"Tag", u"a\nb"}, {"UserID", u""}}});
  session.addRun({.id = -3, .runClassName = "ComparisonSet"});
  session.addSignal({.id = 1,
                     .runID = -3,
                     .name = u"v[out]",
                     .complexity = 1,
                     .dimensions = std::vector<std::uint64_t>{2, 18446744073709551615u},
                     .channel = std::vector<std::uint64_t>{}});
  session.addSignal(signalOf(2, 7));
  session.addSignal(signalOf(3, -3));
  session.addRun(runOf(5));
  session.addSamples(7, [](const SessionWriter::Sink& sink) {
    sink("t,v\n");
    sink("0,1\n");
  });
  session.setThumbnail("png");
  session.setView("{}");
  session.setCompressionType(u"zlib \xE4");
  session.setDescription(u"A & <B>");
  session.close();
}

}  // namespace

TEST(SessionWriter, OtherProgramsReadWhatItWrites) {
  const TemporaryFolder folder;
  writeFullSession(folder.wide("s.tavlox"));
  EXPECT_EQ(
      readBack(folder.narrow("s.tavlox")),
      R"([Content_Types].xml
_rels/.rels
session/runs.json [application/vnd.tavlox.session-runs+json] )"
      R"([{"id":7,"runClassName":"Set","name":"Größe \"1\"","dateCreated":"2026-11-21","runNumber":4294967295,)"
      R"("orderIndex":-1,"startTime":0.1,"stopTime":1e+22,"metadata":{"Tag":"a\u000ab","UserID":""},)"
      R"("samples":"/session/data/1.csv"},
{"id":-3,"runClassName":"ComparisonSet"},
{"id":5,"runClassName":"Set"}]

session/signals/1.json [application/vnd.tavlox.session-signals+json] [{"id":2,"runID":7}]

session/signals/2.json [application/vnd.tavlox.session-signals+json] )"
      R"([{"id":1,"runID":-3,"name":"v[out]","complexity":1,"dimensions":[2,18446744073709551615],"channel":[]},
{"id":3,"runID":-3}]

session/signals/3.json [application/vnd.tavlox.session-signals+json] []

session/data/1.csv [text/csv] t,v
0,1

docProps/core.xml
session/compression.json [application/vnd.tavlox.session-compression+json] {"CompressionType":"zlib ä"}
session/view.json [application/vnd.tavlox.session-view+json] {}
session/thumbnail [application/vnd.tavlox.session-thumbnail] png
_rels/.rels: rId1 ORRASessionRunDataRelType /session/runs.json
_rels/.rels: rId2 ORRASessionSignalsDataRelType /session/signals/1.json
_rels/.rels: rId3 ORRASessionSignalsDataRelType /session/signals/2.json
_rels/.rels: rId4 ORRASessionSignalsDataRelType /session/signals/3.json
_rels/.rels: rId5 ORRASessionSamplesRelType /session/data/1.csv
_rels/.rels: rId6 core-properties /docProps/core.xml
_rels/.rels: rId7 ORRASessionCompressionTypeRelType /session/compression.json
_rels/.rels: rId8 ORRAViewMetaDataRelType /session/view.json
_rels/.rels: rId9 TAVLOXThumbnailExistsFlagRelType /session/thumbnail
description: A & <B>
version: 1.0
)");
}

TEST(SessionWriter, RefusesWhatCouldNotBeReadBackAndGoesOn) {
  const TemporaryFolder folder;
  SessionWriter session(folder.wide("s.tavlox"));
  session.addRun(runOf(1));
  const std::pair<const char*, std::function<void()>> kCalls[] = {
      {"DuplicateRun", [&] { session.addRun(runOf(1)); }},
      {"NotFinite", [&] { session.addRun({.id = 2, .stopTime = INFINITY}); }},
      {"IllFormedText",
       [&] {
         session.addRun({.id = 2, .metadata = {{"Tag", u"\xD800"}}});
       }},
      {"TextTooLong",
       [&] { session.addSignal({.id = 1, .runID = 1, .name = std::u16string(600'000, u'\xE4')}); }},
      {"UnknownRun", [&] { session.addSignal(signalOf(1, 2)); }},
  };
  for (const auto& [refusal, call] : kCalls) {
    EXPECT_EQ(ruleOf(call), std::string("export_file:session:") + refusal);
  }
  const auto half = [](const SessionWriter::Sink& sink) {
    sink("half");
    throw std::runtime_error("line 2");
  };
  EXPECT_THROW(session.addSamples(1, half), std::runtime_error);
  session.addSignal(signalOf(1, 1));
  session.close();
  const std::string written = readBack(folder.narrow("s.tavlox"));
  EXPECT_NE(written.find("] [{\"id\":1,\"runClassName\":\"Set\"}]\n"), std::string::npos) << written;
  EXPECT_NE(written.find("] [{\"id\":1,\"runID\":1}]\n"), std::string::npos) << written;
  EXPECT_EQ(written.find("/data/"), std::string::npos) << written;
}

TEST(SessionWriter, AnExistingFileIsKeptUnlessReplaced) {
  const TemporaryFolder folder;
  folder.write("s.tavlox", "precious");
  EXPECT_EQ(ruleOf([&] { SessionWriter(folder.wide("s.tavlox")); }), "export_file:session:FileExists");
  SessionWriter(folder.wide("s.tavlox"), SessionWriter::Existing::Replace).addRun(runOf(1));
  EXPECT_EQ(folder.read("s.tavlox"), "precious") << "never closed";
}

// A session is saved as every package is: by way of a temporary file, under the lock.
TEST(SessionWriter, AReplacedFileKeepsItsModeAndOneInUseItsContent) {
  const TemporaryFolder folder;
  const auto file = folder.write("s.tavlox", "old");
  std::filesystem::permissions(file, std::filesystem::perms(0600));
  const auto replace = [&] {
    SessionWriter session(folder.wide("s.tavlox"), SessionWriter::Existing::Replace);
    session.addRun(runOf(1));
    session.close();
  };
  {
    const fl::filesystem::Descriptor locked(open(file.c_str(), O_RDONLY));
    flock(locked.get(), LOCK_EX);
    EXPECT_EQ(ruleOf(replace), "opc:save:InUse");
  }
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  replace();
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

TEST(SessionWriter, ManySignalsTakeNoMemory) {
  const TemporaryFolder folder;
  SessionWriter session(folder.wide("s.tavlox"));
  session.addRun(runOf(1));
  SignalRecord signal = signalOf(0, 1);
  signal.name = std::u16string(1000, u'n');
  const long before = support::peakKibibytes();
  for (; signal.id < 12'000; ++signal.id) session.addSignal(signal);  // some 12 MB of text
  session.close();
  EXPECT_LT(support::peakKibibytes() - before, 8'000 + support::kHeldBySanitizer);
}

// Beside what another program wrote: other names of parts, identifiers, and members that nobody knows here.
TEST(SessionWriter, AppendedRunsLeaveEverythingElseAsItWas) {
  support::PackageFixture package;
  const std::string runs = "\xEF\xBB\xBF[{\"id\": 7, \"color\": 1}\n ] \n",
                    signals = R"([{"id": 40, "runID": 7}])";
  package.addLinked(u"/user/a.txt", "kept");
  package.add(u"/r", runs).link(u"/r", relationship_types::kRunData);
  package.add(u"/session/signals/2.json", signals)
      .link(u"/session/signals/2.json", relationship_types::kSignalsData);
  {
    SessionWriter session = SessionWriter::append(package.path());
    EXPECT_EQ(ruleOf([&] { session.addRun(runOf(7)); }), "export_file:session:DuplicateRun");
    EXPECT_EQ(std::pair(session.highestRunID(), session.highestSignalID()), std::pair(7, 40));
    session.addRun(runOf(8));
    session.addSamples(8, [](const SessionWriter::Sink& sink) { sink("t,v\n0,1\n"); });
    session.addSignal(signalOf(41, 8));
    session.close();
  }
  const std::string written = readBack(package.narrowPath());
  const std::string parts[] = {
      "r [text/plain] \xEF\xBB\xBF[{\"id\": 7, \"color\": 1}\n ,\n"
      R"({"id":8,"runClassName":"Set","samples":"/session/data/3.csv"}])",
      "session/signals/2.json [text/plain] " + signals,
      "user/a.txt [text/plain] kept",
      R"(session/signals/3.json [application/vnd.tavlox.session-signals+json] [{"id":41,"runID":8}])",
      "session/data/3.csv [text/csv] t,v\n0,1\n",
  };
  for (const std::string& part : parts) EXPECT_NE(written.find(part), std::string::npos) << part << written;
}
