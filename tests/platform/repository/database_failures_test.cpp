#include <csignal>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/repository/repository_fixture.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/other_connection.h"

using namespace orra;
using support::OtherConnection;
using support::raisedBy;
namespace fs = std::filesystem;

namespace {

/// Signals that take more room than the database keeps in memory.
std::string manySignals(int count) {
  std::string json;
  for (int id = 1; id <= count; ++id) {
    json += (id == 1 ? "" : ",") + signalJson(id, 7, std::string(100'000, 'n') + std::to_string(id));
  }
  return json;
}

struct LoadedRepository : RepositoryFixture {
  LoadedRepository() {
    loadRuns(R"([{"id":7}])");
    loadSignals(manySignals(40));
  }
  /// The identifier of the first error that a transaction that reads everything collects.
  std::string readingFails() {
    const auto errors = collected([this] { names(7); });
    return errors.empty() ? "" : errors.front().substr(0, errors.front().find('('));
  }
};

void overwrite(const fs::path& path, std::streamoff offset, std::size_t count) {
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(offset) << std::string(count, '\xFF');
}

/// A process that creates a database and is killed.
void leaveDatabaseBehind() {
  const pid_t child = ::fork();
  if (child == 0) {
    (new ObjectManager)->initializeObjectManager("", "");
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
}

auto filesIn(const fs::path& folder) { return std::distance(fs::directory_iterator(folder), {}); }

}  // namespace

TEST(DatabaseFailures, LockedByASecondConnection) {
  LoadedRepository session;
  session.signalsOf(7)[3].getName();
  // Refused if reading had left the database locked.
  const OtherConnection other(session.database(), "PRAGMA busy_timeout=0; BEGIN EXCLUSIVE");
  const std::string locked = "sqldb:ssdb:Locked(" + session.database().string() +
                             ", The database of the session's runs is in use by another program: "
                             "database is locked. Try again when that is done.)";
  EXPECT_EQ(session.collected([&] { session.names(7); }), std::vector<std::string>{locked});
  EXPECT_EQ(raisedBy([&] { session.loadSignals(signalJson(1, 7, "a")); }), locked);
}

TEST(DatabaseFailures, DamagedFiles) {
  static constexpr char kIllFormedName[] =
      "UPDATE signals SET records = CAST(substr(records, 1, 999) || x'FF' || substr(records, 1001) AS BLOB)";
  const std::pair<const char*, void (*)(const fs::path&)> kDamages[] = {
      {"no database any more", [](const fs::path& file) { overwrite(file, 0, 4096); }},
      {"rows", [](const fs::path& file) { overwrite(file, 4096 * 3, 4096 * 100); }},
      {"a text that is not well-formed", [](const fs::path& file) { OtherConnection(file, kIllFormedName); }},
      {"a first record that repeats another",
       [](const fs::path& file) {
         OtherConnection(
             file,
             "UPDATE signals SET records = CAST(substr(records, 1, 4) || x'FF' || substr(records, 6) AS BLOB)");
       }},
      {"a batch that is cut off",
       [](const fs::path& file) { OtherConnection(file, "UPDATE signals SET records = zeroblob(2)"); }},
  };
  for (const auto& [what, damage] : kDamages) {
    LoadedRepository session;
    damage(session.database());
    overwrite(session.database(), 24, 4);  // another writer counts its changes here
    EXPECT_EQ(session.readingFails(), "sqldb:ssdb:Corrupt") << what;
  }
}

TEST(DatabaseFailures, FullDisk) {
  LoadedRepository session;
  {
    const support::FileSizeLimit full(6'000'000);
    const auto errors = session.collected([&] { session.loadSignals(manySignals(80)); });
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_TRUE(errors[0].starts_with("sqldb:ssdb:Failed(" + session.database().string())) << errors[0];
    const support::FileSizeLimit fuller(100);
    EXPECT_NE(raisedBy([] { ObjectManager().initializeObjectManager("", ""); }), "");
    EXPECT_EQ(filesIn(session.database().parent_path()), 1) << "the file of the one that failed";
  }
  session.loadSignals(manySignals(80));
  EXPECT_EQ(session.signalsOf(7).size(), 120u);
}

TEST(DatabaseFile, IsPrivateAndAlone) {
  RepositoryFixture session;
  const fs::path file = session.database(), folder = file.parent_path();
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700));
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
  session.loadRuns(R"([{"id":7}])");
  session.collected([&] {
    session.loadSignals(manySignals(40));
    EXPECT_EQ(filesIn(folder), 1) << "a journal";
  });
}

TEST(DatabaseFile, SweepsWhatDeadProcessesLeft) {
  RepositoryFixture session;
  const fs::path folder = session.database().parent_path();
  leaveDatabaseBehind();
  fs::create_directory(folder / "folder.db");
  std::ofstream(folder / "not a database");
  ASSERT_EQ(filesIn(folder), 4);
  ObjectManager next;
  next.initializeObjectManager("", "");
  EXPECT_TRUE(fs::exists(session.database())) << "of a living object";
  EXPECT_EQ(filesIn(folder), 4) << "the killed one's is gone, the new one is there";
  leaveDatabaseBehind();
  EXPECT_TRUE(fs::exists(session.database())) << "of a living process";
}

TEST(DatabaseFile, AFolderOfSomeoneElseIsNotUsed) {
  const TemporaryFiles temporary;
  const support::TemporaryFolder elsewhere;
  fs::create_directory_symlink(elsewhere.path(),
                               temporary.folder() / ("orra-repositories-" + std::to_string(::geteuid())));
  ObjectManager manager;
  manager.initializeObjectManager("", "");
  EXPECT_EQ(filesIn(elsewhere.path()), 0);
  EXPECT_TRUE(fs::exists(fs::path(manager.getDatabaseLocation())));
}
