// Every allocation of six commands fails in turn, also those of the C libraries. The command then says so or
// succeeds nevertheless, the package is the old or the new one, nothing leaks, and the next command finds all
// in order.

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "platform/zobs/module_loader.h"
#include "tests/platform/zip/archives.h"
#include "tests/support/session_fixture.h"

namespace {

long allocationsLeft = -1;  // before one fails; none does while this is negative
long liveAllocations = 0;

bool fails() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }

void* counted(void* block) {
  liveAllocations += block != nullptr;
  return block;
}

}  // namespace

// In place of the C library's, which every other library calls, that of C++ too.
extern "C" {

void* __libc_malloc(size_t) noexcept;
void* __libc_calloc(size_t, size_t) noexcept;
void* __libc_realloc(void*, size_t) noexcept;
void __libc_free(void*) noexcept;

void* malloc(size_t size) noexcept { return fails() ? nullptr : counted(__libc_malloc(size)); }
void* calloc(size_t n, size_t size) noexcept { return fails() ? nullptr : counted(__libc_calloc(n, size)); }
void* realloc(void* block, size_t size) noexcept {
  void* const moved = fails() ? nullptr : counted(__libc_realloc(block, size));
  liveAllocations -= moved != nullptr && block != nullptr;
  return moved;
}
void free(void* block) noexcept {
  liveAllocations -= block != nullptr;
  __libc_free(block);
}

/// Nobody cuts the power here.
int fsync(int) { return 0; }

}  // extern "C"

namespace {

using namespace tavlox::cli;

const struct {
  const char* command;
  decltype(Request::values) values;
} kCommands[] = {
    {"info", {{"FILE", {u"s.tavlox"}}}},
    {"add", {{"FILE", {u"s.tavlox"}}, {"PATH", {u"b.txt"}}}},
    {"add", {{"FILE", {u"s.tavlox"}}, {"PATH", {u"a.txt"}}, {"--replace", {}}}},
    {"delete", {{"FILE", {u"s.tavlox"}}, {"ENTRY", {u"a.txt"}}}},
    {"describe", {{"FILE", {u"s.tavlox"}}, {"TEXT", {u"new"}}}},
    {"record", {{"OUT", {u"s.tavlox"}}, {"TABLE", {u"run.csv"}}, {"--force", {}}}},
};

struct OutOfMemory : testing::TestWithParam<std::size_t> {
  /// Whether the command succeeds on the old package while the allocation of this number fails.
  bool run(long failing) {
    folder.write("s.tavlox", old);
    const Request request{.modulePath = u"" MODULE, .values = kCommands[GetParam()].values};
    bool succeeded = false;
    allocationsLeft = failing;
    try {
      succeeded = findCommand(kCommands[GetParam()].command)->run(request) == ExitCode::Done;
    } catch (const std::exception&) {
      report(OutputFormat::Text, u"s.tavlox");
    }
    hasFailed |= failing >= 0 && allocationsLeft < 0;
    allocationsLeft = -1;
    return succeeded;
  }

  /// "" if the failure did no harm.
  std::string harmOf(long failing) {
    const bool succeeded = run(failing);
    const std::string left = zip::readAll("s.tavlox");
    if (!run(-1)) return "the next command fails";
    const std::string changed = zip::readAll("s.tavlox");
    if (left != changed && (succeeded || left != before)) return "a mixture is saved";
    // What is kept from one call for the next comes and goes; what leaks grows with every call.
    long live[9];
    for (int i = 0; i < 9; ++i) {
      run(failing);
      live[i] = liveAllocations;
      if (i > 1 && live[i] <= live[i - 2]) return folder.entryCount() == 5 ? "" : "a temporary is left";
    }
    return "a leak";
  }

  support::SessionFixture sessions;
  const support::TemporaryFolder& folder = sessions.folder();
  std::string old, before;  // as bytes and as items
  bool hasFailed = false;
};

// Each in a process of its own, as a command runs.
TEST_P(OutOfMemory, IsAnErrorAndNothingElse) {
  sessions.write("s.tavlox", [](support::TestSession& session) {
    support::fillTwoRuns(session);
    session.setDescription(u"old");
    session.addPart(u"/user/a.txt", u"text/plain", u"UserAssetsPartRelType", "kept");
  });
  old = folder.read("s.tavlox");
  before = zip::readAll(folder.narrow("s.tavlox"));
  for (const char* file : {"a.txt", "b.txt", "run.csv", "said"}) folder.write(file, "time,v\n0,1\n1,2\n");
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  zobs::loadModule(u"" MODULE);
  constexpr int kNone = 1, kHarm = 2;  // kNone: the command has fewer allocations
  int status = 0;
  for (long failing = 0; status == 0; failing += failing < 200 ? 1 : 9) {
    const pid_t child = fork();
    if (child == 0) {
      if (!std::freopen("said", "w", stdout) || !std::freopen("said", "w", stderr)) _exit(kHarm);
      const std::string harm = harmOf(failing);
      folder.write("said", harm);
      _exit(!harm.empty() ? kHarm : hasFailed ? 0 : kNone);
    }
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(status == 0 || WEXITSTATUS(status) == kNone)
        << kCommands[GetParam()].command << ", allocation " << failing << ": " << folder.read("said");
  }
}

INSTANTIATE_TEST_SUITE_P(Commands, OutOfMemory, testing::Range<std::size_t>(0, std::size(kCommands)));

}  // namespace
