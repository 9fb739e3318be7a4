// A temporary folder has to go in every way in which a program can end. When the command returns or raises,
// the destructor removes it. SIGINT, SIGTERM and SIGHUP are caught and turned into an exception at the next
// progress report, so that destructors run. After SIGKILL or a power failure it stays, and the next program
// that makes one in the same parent folder removes it. To tell such a folder from one in use, each is locked
// by the process that made it: the system gives the lock back when the process ends, however it ends.
#include "hosts/cli/temporary_folder.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_string;
using foundation::core::except::Arguments;
using foundation::core::except::except_with_causes;

// What is named so, with the random letters of mkdtemp behind it, may be removed by a later run.
constexpr std::u16string_view kPrefix = u".tavlox-";
constexpr std::size_t kRandomLetters = 6;

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
// Of the type that a signal handler may write to.
volatile std::sig_atomic_t signalThatCame = 0;
// What the program that started this one had set.
std::array<struct sigaction, kSignals.size()> actionsBefore;

void keepSignals() {
  struct sigaction keep {};
  keep.sa_handler = [](int signal) { signalThatCame = signal; };
  // Calls go on after the signal, so that no library sees a failure. The handler serves once: a second signal
  // acts as it always does and ends a program that hangs.
  keep.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &actionsBefore[i]);
    // Whoever starts a program with a signal ignored (nohup) means it.
    if (actionsBefore[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &keep, nullptr);
  }
}

void releaseSignals() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &actionsBefore[i], nullptr);
}

void removeWithContents(const std::u16string& folder) {
  // Errors are not raised: this runs in a destructor, and the next sweep tries again.
  std::error_code failure;
  std::filesystem::remove_all(to_string(folder), failure);
  // A disk that fails once may do it the second time.
  if (failure) std::filesystem::remove_all(to_string(folder), failure);
}

/// Opens a folder and locks it. Nothing if it is gone or another process holds the lock; where folders cannot
/// be locked, nobody is kept out.
fs::Descriptor openLocked(const std::u16string& folder) {
  fs::Descriptor opened(open(to_string(folder).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!opened || (flock(opened.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK))
    return fs::Descriptor();
  // One that was removed meanwhile can still be locked.
  if (fstat(opened.get(), &status) == 0 && status.st_nlink == 0) return fs::Descriptor();
  return opened;
}

/// Every folder is locked by the process it belongs to: one that can be locked belongs to none.
void sweep(const std::u16string& parent) {
  fs::DirectoryIterator entries(parent);
  for (;;) {
    try {
      const auto entry = entries.next();
      if (!entry) return;
      const std::u16string name = fs::extract_filename(entry->path);
      const bool isOurs = name.starts_with(kPrefix) && name.size() == kPrefix.size() + kRandomLetters;
      if (!isOurs || entry->type != fs::FileType::Directory) continue;
      if (const fs::Descriptor stale = openLocked(entry->path)) removeWithContents(entry->path);
    } catch (const fs::Error& failure) {
      if (failure.GetID() != "fl:filesystem:EntryNotUtf8") return;
    }
  }
}

}  // namespace

void endIfInterrupted() {
  if (signalThatCame != 0) throw Interrupted{signalThatCame};
}

TemporaryFolder::TemporaryFolder(const std::u16string& parent) {
  // First, so that a disk that was filled by a killed run has room again.
  sweep(parent);
  keepSignals();
  constexpr int kAttempts = 8;  // a sweep of another process may take the folder before it is locked
  for (int attempt = 0; attempt < kAttempts && !folder_; ++attempt) {
    std::string name = to_string(fs::concatenate(parent, std::u16string(kPrefix))) + "XXXXXX";
    // Made for this user only (mode 0700): nobody else may look at or change what is not finished.
    if (mkdtemp(name.data()) == nullptr) break;
    path_ = fl::i18n::to_ustring(name);
    folder_ = openLocked(path_);
    if (!folder_) removeWithContents(path_);
  }
  if (folder_) return;
  // Taken before another call can change errno.
  const std::string reason = fs::systemReason(errno);
  releaseSignals();
  foundation::core::except::raise("tavlox:cli:CannotMakeFolder", parent, reason);
}

TemporaryFolder::~TemporaryFolder() {
  removeWithContents(path_);
  releaseSignals();
}

except_with_causes TemporaryFolder::inTermsOf(const std::u16string& meant,
                                              const except_with_causes& error) const {
  Arguments arguments = error.GetArguments();
  // Paths stand in arguments only; the message is made of them when it is shown.
  for (std::u16string& argument : arguments) {
    if (argument.starts_with(path_)) argument.replace(0, path_.size(), meant);
  }
  std::vector<except_with_causes> causes;
  for (const except_with_causes& cause : error.causes()) causes.push_back(inTermsOf(meant, cause));
  return except_with_causes(error.GetID(), std::move(arguments), std::move(causes));
}

}  // namespace tavlox::cli
