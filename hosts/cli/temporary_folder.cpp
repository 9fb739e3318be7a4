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

constexpr std::u16string_view kPrefix = u".tavlox-";
constexpr std::size_t kRandomLetters = 6;

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t signalThatCame = 0;
std::array<struct sigaction, kSignals.size()> actionsBefore;

void keepSignals() {
  struct sigaction keep {};
  keep.sa_handler = [](int signal) { signalThatCame = signal; };
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
  sweep(parent);
  keepSignals();
  constexpr int kAttempts = 8;  // a sweep of another process may take the folder before it is locked
  for (int attempt = 0; attempt < kAttempts && !folder_; ++attempt) {
    std::string name = to_string(fs::concatenate(parent, std::u16string(kPrefix))) + "XXXXXX";
    if (mkdtemp(name.data()) == nullptr) break;
    path_ = fl::i18n::to_ustring(name);
    folder_ = openLocked(path_);
    if (!folder_) removeWithContents(path_);
  }
  if (folder_) return;
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
  for (std::u16string& argument : arguments) {
    if (argument.starts_with(path_)) argument.replace(0, path_.size(), meant);
  }
  std::vector<except_with_causes> causes;
  for (const except_with_causes& cause : error.causes()) causes.push_back(inTermsOf(meant, cause));
  return except_with_causes(error.GetID(), std::move(arguments), std::move(causes));
}

}  // namespace tavlox::cli
