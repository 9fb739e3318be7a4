#include <csignal>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/repository/repository_fixture.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/other_connection.h"

using namespace orra;
namespace fs = std::filesystem;

namespace {

/// A session whose rows take more room than the database keeps in memory.
class LoadedRepository : public RepositoryFixture {
 public:
  LoadedRepository() {
    loadRuns(R"([{"id":7}])");
    loadSignals(part(40));
  }
  static std::string part(int count) {
    std::string json = "[";
    for (int id = 1; id <= count; ++id) {
      json += (id == 1 ? "" : ",") + signalJson(id, 7, std::string(100'000, 'n') + std::to_string(id));
    }
    return json + "]";
  }
  void readAll() {
    for (const auto& signal : signalsOf(7)) signal->getName();
  }
  /// The identifier of the first error that a transaction that reads everything collects.
  std::string readingFails() {
    const auto errors = collected([&] { readAll(); });
    return errors.empty() ? "" : errors.front().substr(0, errors.front().find('('));
  }
};

void overwrite(const fs::path& path, std::streamoff offset, std::size_t count) {
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(offset);
  file << std::string(count, '\xFF');
}

unsigned modeOf(const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); }

/// Runs `work` in a process of its own, which stops as if it had been killed.
void inKilledProcess(const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    work();
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
}

std::size_t filesIn(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

}  // namespace

TEST(DatabaseFailures, LockedByASecondConnection) {
  LoadedRepository session;
  {
    const support::OtherConnection other(session.database(), "BEGIN EXCLUSIVE");
    const std::string locked = "sqldb:ssdb:Locked(" + session.database().string() + ", database is locked)";
    EXPECT_EQ(session.collected([&] { session.readAll(); }), std::vector<std::string>{locked});
    EXPECT_EQ(support::raisedBy([&] { session.named(u"n", 7); }), locked);
    EXPECT_EQ(support::raisedBy([&] { session.loadSignals("[" + signalJson(1, 7, "a") + "]"); }), locked);
  }
  EXPECT_EQ(session.readingFails(), "");
  EXPECT_EQ(session.signalsOf(7).size(), 40u);
}

TEST(DatabaseFailures, ReadingHoldsNoLockAfterwards) {
  LoadedRepository session;
  const auto signals = session.signalsOf(7);
  session.run(7)->getModel();
  signals[3]->getName();
  EXPECT_EQ(session.collected([&] { signals[4]->getName(); }).size(), 0u);
  const support::OtherConnection other(session.database(), "PRAGMA busy_timeout=0; BEGIN EXCLUSIVE");
}

TEST(DatabaseFailures, DamagedFiles) {
  const std::pair<const char*, std::function<void(const fs::path&)>> kDamages[] = {
      {"no database any more", [](const fs::path& file) { overwrite(file, 0, 4096); }},
      {"rows", [](const fs::path& file) { overwrite(file, 4096 * 3, 4096 * 100); }},
      {"a name that is not well-formed",
       [](const fs::path& file) {
         support::OtherConnection(file, "UPDATE signals SET name = CAST(x'FF' AS TEXT)");
       }},
  };
  for (const auto& [what, damage] : kDamages) {
    LoadedRepository session;
    damage(session.database());
    overwrite(session.database(), 24, 4);  // another writer counts its changes here
    EXPECT_EQ(session.readingFails(), "sqldb:ssdb:Corrupt") << what;
  }
}

TEST(DatabaseFailures, ADeletedFileLivesOnWhileItIsOpen) {
  LoadedRepository session;
  fs::remove(session.database());
  EXPECT_EQ(session.readingFails(), "");
  session.loadSignals("[" + signalJson(1, 7, "behind the others") + "]");
  EXPECT_EQ(session.named(u"behind the others", 7).size(), 1u);
  EXPECT_FALSE(fs::exists(session.database())) << "nothing brings it back";
}

TEST(DatabaseFailures, VanishedRows) {
  LoadedRepository session;
  const auto signals = session.signalsOf(7);
  support::OtherConnection(session.database(), "DELETE FROM signals WHERE rowid % 2 = 0; DELETE FROM runs");
  EXPECT_EQ(support::raisedBy([&] { signals[1]->getName(); }),
            "simulation_data_repository:sdr:InternalError()");
  EXPECT_EQ(support::raisedBy([&] { signals[0]->getRun()->getModel(); }),
            "simulation_data_repository:sdr:NoSuchRun()");
}

TEST(DatabaseFailures, FullDisk) {
  LoadedRepository session;
  {
    const support::FileSizeLimit full(6'000'000);
    const auto errors = session.collected([&] { session.loadSignals(session.part(80)); });
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_TRUE(errors[0].starts_with("sqldb:ssdb:Failed(" + session.database().string())) << errors[0];
  }
  EXPECT_EQ(session.signalsOf(7).size(), 40u);
  session.loadSignals(session.part(80));
  EXPECT_EQ(session.signalsOf(7).size(), 120u);
}

TEST(DatabaseFailures, FullDiskWhileCreatingLeavesNoFile) {
  RepositoryFixture session;
  const fs::path folder = session.database().parent_path();
  const support::FileSizeLimit full(100);
  ObjectManager another;
  EXPECT_NE(support::raisedBy([&] { another.initializeObjectManager("", ""); }), "");
  EXPECT_EQ(another.getDatabaseLocation(), u"");
  EXPECT_EQ(filesIn(folder), 1u);
}

TEST(DatabaseFile, IsPrivateAndAlone) {
  RepositoryFixture session;
  const fs::path file = session.database(), folder = file.parent_path();
  EXPECT_EQ(modeOf(folder), 0700u);
  EXPECT_EQ(modeOf(file), 0600u);
  session.loadRuns(R"([{"id":7}])");
  EXPECT_TRUE(session
                  .collected([&] {
                    session.loadSignals(LoadedRepository::part(40));
                    EXPECT_EQ(filesIn(folder), 1u) << "a journal";
                  })
                  .empty());
}

TEST(DatabaseFile, SweepsWhatDeadProcessesLeft) {
  RepositoryFixture session;
  const fs::path folder = session.database().parent_path();
  inKilledProcess([&] { (new ObjectManager)->initializeObjectManager("", ""); });
  fs::create_directory(folder / "folder.db");
  std::ofstream(folder / "not a database");
  ASSERT_EQ(filesIn(folder), 4u);
  ObjectManager next;
  next.initializeObjectManager("", "");
  EXPECT_TRUE(fs::exists(session.database())) << "of a living object";
  EXPECT_EQ(filesIn(folder), 4u) << "the killed one's is gone, the new one is there";
  inKilledProcess([&] { (new ObjectManager)->initializeObjectManager("", ""); });
  EXPECT_TRUE(fs::exists(session.database())) << "of a living process";
  EXPECT_TRUE(fs::exists(fs::path(next.getDatabaseLocation())));
}

TEST(DatabaseFile, AFolderOfSomeoneElseIsNotUsed) {
  const TemporaryFiles temporary;
  const support::TemporaryFolder elsewhere;
  fs::create_directory_symlink(elsewhere.path(),
                               temporary.folder() / ("orra-repositories-" + std::to_string(::geteuid())));
  ObjectManager manager;
  manager.initializeObjectManager("", "");
  EXPECT_EQ(filesIn(elsewhere.path()), 0u);
  EXPECT_TRUE(fs::exists(fs::path(manager.getDatabaseLocation())));
}

TEST(DatabaseFile, AFileThatIsThereIsNotTaken) {
  support::TemporaryFolder folder;
  folder.write("taken.db", "precious");
  ObjectManager manager;
  EXPECT_TRUE(support::raisedBy([&] {
                manager.initializeObjectManager(folder.path().string(), "taken.db");
              }).starts_with("sqldb:ssdb:Failed(" + folder.narrow("taken.db")));
  EXPECT_EQ(folder.read("taken.db"), "precious");
  manager.initializeObjectManager(folder.path().string(), "free.db");
  EXPECT_EQ(manager.getDatabaseLocation(), folder.wide("free.db"));
}
