// Processes instead of threads, since module and platform have none; made by fork, so that they have the
// module loaded and the request understood. A piece is some files: one process a file would cost more than
// reading small packages does.
#include "hosts/cli/processes.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <deque>
#include <memory>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/cli/error_report.h"
#include "hosts/cli/output.h"
#include "hosts/cli/temporary_folder.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/errors/free_with.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using foundation::core::except::raise;
using Stream = std::unique_ptr<std::FILE, foundation::core::except::FreeWith<std::fclose>>;

constexpr std::size_t kMostJobs = 1024;

/// A file without a name in the system's folder for temporary files.
Stream makeSpool() {
  const std::u16string folder = fl::filesystem::temp_directory_path();
  std::string path = fl::filesystem::toNativeName(folder) + "/tavlox-XXXXXX";
  const int descriptor = ::mkostemp(path.data(), O_CLOEXEC);
  if (descriptor < 0) raise("tavlox:cli:CannotMakeFolder", folder, fl::filesystem::systemReason(errno));
  ::unlink(path.c_str());
  return Stream(::fdopen(descriptor, "w+b"));
}

struct Child {
  std::size_t index;
  Stream output, messages;
  pid_t process = -1;
  int status = 0;
  bool hasEnded = false;

  Child(std::size_t piece) : index(piece), output(makeSpool()), messages(makeSpool()) {}
  // On the way out of an error the others are of no use any more.
  ~Child() {
    if (process <= 0 || hasEnded) return;
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
};

/// The life of a process that does one piece. Ends without destructors: what stands on the stack is the
/// parent's.
[[noreturn]] void live(const Request& request, Child& child,
                       const std::function<ExitCode(std::size_t, std::FILE*)>& work) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  // Progress is the parent's to show, and interruptions are not kept here.
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  const corvan::ProgressSubscription silence([](const corvan::Progress&) {});
  ::dup2(fileno(child.messages.get()), STDERR_FILENO);
  ExitCode result = ExitCode::Failed;
  try {
    result = work(child.index, child.output.get());
    if (std::fflush(child.output.get()) != 0 || std::ferror(child.output.get()) != 0)
      raise("tavlox:cli:CannotWriteOutput", fl::filesystem::systemReason(errno));
  } catch (const std::exception&) {
    report(request.format);
    result = ExitCode::Failed;
  }
  std::fflush(stderr);
  ::_exit(static_cast<int>(result));
}

void start(const Request& request, Child& child,
           const std::function<ExitCode(std::size_t, std::FILE*)>& work) {
  // What waits in buffers would be written by both.
  flushOutput();
  std::fflush(stderr);
  child.process = ::fork();
  if (child.process < 0) raise("tavlox:cli:CannotStartProcess", fl::filesystem::systemReason(errno));
  if (child.process == 0) live(request, child, work);
}

/// Waits until one of them has ended.
void waitForOne(std::deque<std::unique_ptr<Child>>& children) {
  int status = 0;
  const pid_t process = ::waitpid(-1, &status, 0);
  endIfInterrupted();
  for (const std::unique_ptr<Child>& child : children) {
    if (child->process != process) continue;
    child->hasEnded = true;
    child->status = status;
  }
}

void repeatMessages(std::FILE* messages) {
  std::rewind(messages);
  char piece[4096];
  for (std::size_t count; (count = std::fread(piece, 1, sizeof piece, messages)) > 0;) {
    eraseProgress();
    printError(std::string_view(piece, count));
  }
}

}  // namespace

std::size_t jobsOf(const Request& request) {
  if (!request.has("--jobs")) return std::max(1U, std::thread::hardware_concurrency());
  const std::string word = fl::i18n::to_string(request.one("--jobs"));
  std::size_t jobs = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), jobs);
  if (error != std::errc() || end != word.data() + word.size() || jobs == 0 || jobs > kMostJobs)
    raise("tavlox:cli:NotAJobCount", request.one("--jobs"));
  return jobs;
}

void shareWork(const Request& request, std::size_t count, std::size_t jobs,
               const std::function<ExitCode(std::size_t, std::FILE*)>& work,
               const std::function<void(const PieceOfWork&)>& take) {
  // So many may be done before the first of them is: enough that one large package does not stop the others.
  const std::size_t mostAhead = 4 * jobs;
  std::deque<std::unique_ptr<Child>> children;
  std::size_t started = 0, running = 0;
  while (started < count || !children.empty()) {
    for (; started < count && running < jobs && children.size() < mostAhead; ++running) {
      children.push_back(std::make_unique<Child>(started++));
      start(request, *children.back(), work);
    }
    while (!children.empty() && children.front()->hasEnded) {
      Child& child = *children.front();
      repeatMessages(child.messages.get());
      std::rewind(child.output.get());
      const bool isDone = WIFEXITED(child.status);
      take({child.index, child.output.get(), isDone ? ExitCode{WEXITSTATUS(child.status)} : ExitCode::Failed,
            isDone});
      children.pop_front();
      corvan::reportProgress({u"Reading packages"});
    }
    if (children.empty() || (running < jobs && started < count && children.size() < mostAhead)) continue;
    waitForOne(children);
    --running;
  }
}

}  // namespace tavlox::cli
