// Made by fork, so that they have the module loaded and know what is asked. A piece should be some files: one
// process a file would cost more than reading small packages does.
#include "platform/processes/shared_work.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/errors/exceptions.h"
#include "platform/errors/free_with.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"

namespace corvan {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::raise;
using Stream = std::unique_ptr<std::FILE, foundation::core::except::FreeWith<std::fclose>>;

/// A file without a name in the system's folder for temporary files.
Stream makeSpool() {
  const std::u16string folder = fs::temp_directory_path();
  std::string path = fs::toNativeName(folder) + "/tavlox-XXXXXX";
  const int descriptor = ::mkostemp(path.data(), O_CLOEXEC);
  if (descriptor < 0) raise("fl:process:NoSpool", folder, fs::systemReason(errno));
  ::unlink(path.c_str());
  Stream stream(::fdopen(descriptor, "w+b"));
  constexpr std::size_t kBuffer = std::size_t{64} << 10;
  if (!stream) raise("fl:process:NoSpool", folder, fs::systemReason(errno));
  static_cast<void>(std::setvbuf(stream.get(), nullptr, _IOFBF, kBuffer));
  return stream;
}

}  // namespace

struct SharedWork::Child {
  std::size_t index;
  Stream output = makeSpool(), messages = makeSpool();
  fs::Descriptor life;  ///< a pipe whose other end is open for as long as the process lives
  pid_t process = -1;
  int status = 0;
  bool hasEnded = false;

  explicit Child(std::size_t piece) : index(piece) {}
  ~Child() {
    if (process <= 0 || hasEnded) return;
    ::kill(process, SIGKILL);
    wait();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void wait() {
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    hasEnded = true;
  }

  /// What the process does. It ends without destructors: what stands on the stack is the parent's.
  [[noreturn]] void live(const Work& work) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Interruptions are the parent's to handle.
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) static_cast<void>(std::signal(number, SIG_IGN));
    const ProgressSubscription silence([](const Progress&) {});
    ::dup2(fileno(messages.get()), STDERR_FILENO);
    // The same buffers are needed for each file. Given back to the system in between, they would be cleared
    // and mapped again each time, which is two thirds of reading a small package.
    constexpr int kKept = 64 << 20;
    ::mallopt(M_MMAP_THRESHOLD, kKept / 2);
    ::mallopt(M_TRIM_THRESHOLD, kKept);
    try {
      const int result = work(index, output.get());
      const bool isFlushed = std::fflush(output.get()) == 0 && std::fflush(nullptr) == 0;
      // A write that failed before has left nothing that flushing would fail with. Work may also write to
      // standard output, in the place of which it puts the file.
      if (isFlushed && std::ferror(output.get()) == 0 && std::ferror(stdout) == 0) ::_exit(result);
    } catch (...) {
      // As described: the same as a crash.
    }
    static_cast<void>(::raise(SIGKILL));
    ::_exit(1);
  }
};

std::size_t coreCount() {
  cpu_set_t cores;
  return ::sched_getaffinity(0, sizeof cores, &cores) == 0 ? static_cast<std::size_t>(CPU_COUNT(&cores)) : 1;
}

SharedWork::SharedWork(std::size_t count, std::size_t jobs, Work work)
    : count_(count), jobs_(jobs), work_(std::move(work)) {}
SharedWork::~SharedWork() = default;

void SharedWork::start() {
  children_.push_back(std::make_unique<Child>(started_++));
  Child& child = *children_.back();
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) raise("fl:process:CannotStart", fs::systemReason(errno));
  child.life = fs::Descriptor(ends[0]);
  const fs::Descriptor theirs(ends[1]);
  // What waits in buffers would be written by both.
  static_cast<void>(std::fflush(nullptr));
  child.process = ::fork();
  if (child.process < 0) raise("fl:process:CannotStart", fs::systemReason(errno));
  if (child.process == 0) child.live(work_);
  ++running_;
}

/// Waits for the end of a process so long at most, -1 for ever, and takes note of all that have ended.
void SharedWork::noticeEnds(int milliseconds) {
  std::vector<pollfd> lives;
  for (const auto& child : children_)
    if (!child->hasEnded) lives.push_back({.fd = child->life.get(), .events = POLLIN, .revents = 0});
  // Interrupted by a signal it is asked again, behind the report whose listener may end the work. Not by
  // waiting for any child: this process may have others.
  if (::poll(lives.data(), lives.size(), milliseconds) < 0) return;
  for (const auto& child : children_) {
    const auto life = std::ranges::find(lives, child->life.get(), &pollfd::fd);
    if (child->hasEnded || life == lives.end() || life->revents == 0) continue;
    child->wait();
    --running_;
  }
}

void SharedWork::keepBusy() {
  // So many may be done before the first of them is: enough that one large package does not stop the others.
  const std::size_t mostAhead = 4 * jobs_;
  noticeEnds(0);
  while (started_ < count_ && running_ < jobs_ && children_.size() < mostAhead) start();
}

const PieceOfWork* SharedWork::next() {
  taken_.reset();
  while (true) {
    keepBusy();
    if (children_.empty()) return nullptr;
    if (children_.front()->hasEnded) break;
    noticeEnds(-1);
    reportProgress({u"Reading packages"});
  }
  taken_ = std::move(children_.front());
  children_.pop_front();
  std::rewind(taken_->output.get());
  std::rewind(taken_->messages.get());
  piece_ = {taken_->index, taken_->output.get(), taken_->messages.get(), WIFEXITED(taken_->status) != 0,
            WEXITSTATUS(taken_->status)};
  return &piece_;
}

}  // namespace corvan
