#include "platform/export_file/session_writer.h"

#include <cmath>
#include <cstdio>
#include <functional>

#include <gtest/gtest.h>

#include "platform/opc/zip/exception.h"
#include "tests/support/memory.h"
#include "tests/support/temporary_folder.h"

using namespace tavlox;
using support::TemporaryFolder;

namespace {

struct Output {
  int status;
  std::string text;
};

Output run(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string text;
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  return {pclose(pipe), text};
}

std::string readBack(const std::string& package) {
  return run(std::string("/usr/bin/python3 ") + READ_SESSION + " '" + package + "'").text;
}

std::string identifierOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const opc::Exception& error) {
    return error.GetID();
  }
  return "no error";
}

RunRecord runOf(std::int32_t id) {
  RunRecord run;
  run.id = id;
  return run;
}

SignalRecord signalOf(std::int32_t id, std::int32_t runID) {
  SignalRecord signal;
  signal.id = id;
  signal.runID = runID;
  return signal;
}

void writeFullSession(const std::u16string& path) {
  SessionWriter session(path);
  RunRecord run = runOf(7);
  run.name = u"Größe \"1\"";
  run.dateCreated = u"2026-11-21";
  run.runNumber = 4294967295u;
  run.orderIndex = -1;
  run.startTime = 0.1;
  run.stopTime = 1e22;
  run.metadata = {{"Tag", u"a\nb"}, {"UserID", u""}};
  session.addRun(run);
  RunRecord comparison = runOf(-3);
  comparison.runClassName = "ComparisonSet";
  session.addRun(comparison);

  SignalRecord signal = signalOf(1, -3);
  signal.name = u"v[out]";
  signal.complexity = 1;
  signal.dimensions = {2, 18446744073709551615u};
  signal.channel = std::vector<std::uint64_t>{};
  session.addSignal(signal);
  session.addSignal(signalOf(2, 7));
  session.addSignal(signalOf(3, -3));
  session.addSamples(7, [](const SessionWriter::Sink& sink) {
    sink("t,v\n");
    sink("0,1\n");
  });
  session.addPart(u"/user/my run.csv", u"application/vnd.tavlox.package+csv", u"UserAssetsPartRelType", "x");
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
  EXPECT_EQ(run("unzip -tqq '" + folder.narrow("s.tavlox") + "'").status, 0);
  EXPECT_EQ(run("7z t '" + folder.narrow("s.tavlox") + "' >/dev/null").status, 0);
  const char kCoreType[] =
      R"("http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties")";
  EXPECT_EQ(
      readBack(folder.narrow("s.tavlox")),
      std::string(R"({"links":[["ORRASessionRunDataRelType","/session/runs.json"],)") +
          R"(["ORRASessionSignalsDataRelType","/session/signals/1.json"],)"
          R"(["ORRASessionSignalsDataRelType","/session/signals/2.json"],)"
          R"(["ORRASessionSamplesRelType","/session/data/1.csv"],)"
          R"(["UserAssetsPartRelType","/user/my%20run.csv"],[)" +
          kCoreType +
          R"(,"/docProps/core.xml"],["ORRASessionCompressionTypeRelType","/session/compression.json"],)"
          R"(["ORRAViewMetaDataRelType","/session/view.json"],)"
          R"(["TAVLOXThumbnailExistsFlagRelType","/session/thumbnail"]],)"
          R"("properties":{"description":"A & <B>","version":"1.0"},)"
          R"("texts":{"session/compression.json":{"CompressionType":"zlib ä"},"session/data/1.csv":"t,v\n0,1\n",)"
          R"("session/runs.json":[{"dateCreated":"2026-11-21","id":7,"metadata":{"Tag":"a\nb","UserID":""},)"
          R"("name":"Größe \"1\"","orderIndex":-1,"runClassName":"Set","runNumber":4294967295,"startTime":0.1,)"
          R"("stopTime":1e+22},{"id":-3,"runClassName":"ComparisonSet"}],)"
          R"("session/signals/1.json":[{"id":2,"runID":7}],)"
          R"("session/signals/2.json":[{"channel":[],"complexity":1,"dimensions":[2,18446744073709551615],"id":1,)"
          R"("name":"v[out]","runID":-3},{"id":3,"runID":-3}],"session/thumbnail":"png","session/view.json":{},)"
          R"("user/my%20run.csv":"x"},"types":{"/docProps/core.xml":)"
          R"("application/vnd.openxmlformats-package.core-properties+xml",)"
          R"("/session/compression.json":"application/vnd.tavlox.session-compression+json",)"
          R"("/session/data/1.csv":"text/csv","/session/runs.json":"application/vnd.tavlox.session-runs+json",)"
          R"("/session/signals/1.json":"application/vnd.tavlox.session-signals+json",)"
          R"("/session/signals/2.json":"application/vnd.tavlox.session-signals+json",)"
          R"("/session/thumbnail":"application/vnd.tavlox.session-thumbnail",)"
          R"("/session/view.json":"application/vnd.tavlox.session-view+json",)"
          R"("/user/my%20run.csv":"application/vnd.tavlox.package+csv"}})");
}

TEST(SessionWriter, WhatIsNotGivenIsNotThere) {
  const TemporaryFolder folder;
  SessionWriter(folder.wide("empty.tavlox")).close();
  const std::string empty = readBack(folder.narrow("empty.tavlox"));
  EXPECT_NE(empty.find(R"("properties":{"version":"1.0"},"texts":{},)"), std::string::npos) << empty;

  SessionWriter session(folder.wide("run.tavlox"));
  session.addRun(runOf(1));
  session.close();
  const std::string run = readBack(folder.narrow("run.tavlox"));
  EXPECT_NE(run.find(R"("session/signals/1.json":[])"), std::string::npos) << run;
}

TEST(SessionWriter, RefusesWhatCouldNotBeReadBackAndGoesOn) {
  const TemporaryFolder folder;
  SessionWriter session(folder.wide("s.tavlox"));
  session.addRun(runOf(1));
  RunRecord endless = runOf(2);
  endless.stopTime = INFINITY;
  RunRecord illFormed = runOf(2);
  illFormed.metadata["Tag"] = u"\xD800";
  SignalRecord named = signalOf(1, 1);
  named.name = u"\xDC00";
  EXPECT_EQ(identifierOf([&] { session.addRun(runOf(1)); }), "export_file:session:DuplicateRun");
  EXPECT_EQ(identifierOf([&] { session.addRun(endless); }), "export_file:session:NotFinite");
  EXPECT_EQ(identifierOf([&] { session.addRun(illFormed); }), "export_file:session:IllFormedText");
  EXPECT_EQ(identifierOf([&] { session.addSignal(named); }), "export_file:session:IllFormedText");
  EXPECT_EQ(identifierOf([&] { session.addSignal(signalOf(1, 2)); }), "export_file:session:UnknownRun");
  EXPECT_EQ(identifierOf([&] { session.addSamples(2, [](const SessionWriter::Sink&) {}); }),
            "export_file:session:UnknownRun");
  EXPECT_THROW(session.addSamples(1,
                                  [](const SessionWriter::Sink& sink) {
                                    sink("half");
                                    throw std::runtime_error("line 2");
                                  }),
               std::runtime_error);
  session.addSignal(signalOf(1, 1));
  session.close();
  EXPECT_EQ(identifierOf([&] { session.addRun(runOf(9)); }), "export_file:session:Closed");
  const std::string written = readBack(folder.narrow("s.tavlox"));
  EXPECT_NE(written.find(R"("texts":{"session/runs.json":[{"id":1,"runClassName":"Set"}],)"
                         R"("session/signals/1.json":[{"id":1,"runID":1}]})"),
            std::string::npos)
      << written;
}

TEST(SessionWriter, AFileThatExistsIsKeptUnlessReplaced) {
  const TemporaryFolder folder;
  folder.write("s.tavlox", "precious");
  std::filesystem::create_symlink("s.tavlox", folder.path() / "link");
  EXPECT_EQ(identifierOf([&] { SessionWriter(folder.wide("s.tavlox")); }), "export_file:session:FileExists");
  {
    SessionWriter abandoned(folder.wide("s.tavlox"), SessionWriter::Existing::Replace);
    abandoned.addRun(runOf(1));
  }
  EXPECT_EQ(folder.read("s.tavlox"), "precious");

  SessionWriter session(folder.wide("link"), SessionWriter::Existing::Replace);
  session.addRun(runOf(1));
  session.close();
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path() / "link"));
  EXPECT_EQ(run("unzip -tqq '" + folder.narrow("s.tavlox") + "'").status, 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2)
      << "no temporary is left";
}

TEST(SessionWriter, AFailedCloseLeavesNothing) {
  const TemporaryFolder folder;
  SessionWriter session(folder.wide("missing/s.tavlox"));
  session.addRun(runOf(1));
  EXPECT_THROW(session.close(), opc::Exception);

  SessionWriter late(folder.wide("s.tavlox"));
  folder.write("s.tavlox", "came first");
  EXPECT_THROW(late.close(), opc::Exception);
  EXPECT_EQ(folder.read("s.tavlox"), "came first");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(SessionWriter, ManySignalsTakeNoMemory) {
  const TemporaryFolder folder;
  SessionWriter session(folder.wide("s.tavlox"));
  session.addRun(runOf(1));
  session.addRun(runOf(2));
  SignalRecord signal = signalOf(0, 1);
  signal.name = std::u16string(1000, u'n');
  const auto add = [&](std::int32_t until) {
    for (; signal.id < until; ++signal.id) {
      signal.runID = 1 + signal.id % 2;
      session.addSignal(signal);
    }
  };
  add(2'000);
  const long before = support::peakKibibytes();
  add(12'000);  // some 10 MB of text
  session.close();
  EXPECT_LT(support::peakKibibytes() - before, 6'000 + support::kHeldBySanitizer);
}
