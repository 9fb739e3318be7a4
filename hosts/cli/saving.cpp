// Saving beside other programs. The package library does not wait: a save that finds the package locked, or
// changed since it was read, fails at once with everything as it was. A change made here is small and knows
// nothing of the package's content, so it can simply be made again on what the other program left. Other
// failures (a full disk, no rights, a name that is taken) would come again and are told at once.
#include "hosts/cli/saving.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <random>
#include <thread>

#include <sys/stat.h>

#include "hosts/cli/error_report.h"
#include "platform/errors/exceptions.h"
#include "platform/opc/package.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

Seconds parseWait(const Request& request) {
  const std::u16string word = request.oneOr(kWait.name, u"10");
  const std::string narrow = fl::i18n::to_string(word);
  const char* const last = narrow.data() + narrow.size();
  double seconds = -1;
  // Whatever the locale: a decimal point, never a comma.
  const auto [end, error] = std::from_chars(narrow.data(), last, seconds);
  // Written so that NaN, which compares as false with everything, is refused. The upper limit, some eleven
  // days, keeps the end of the wait within what the clock can count.
  const bool isPossible = error == std::errc() && end == last && seconds >= 0 && seconds <= 1e6;
  if (!isPossible) foundation::core::except::raise("tavlox:cli:NotSeconds", word);
  return Seconds(seconds);
}

/// Whether the save failed only because somebody else was saving. Nothing was changed then.
bool wasBusy() {
  // The module reports any failed save by one identifier, without its reason.
  const auto& failure = opc::model::lastFailedSave();
  return failure && (failure->GetID() == "opc:save:InUse" || failure->GetID() == "opc:save:FileChanged");
}

/// Nothing for a file that is not there yet, as the package that `record` makes.
std::optional<struct stat> statusOf(const std::u16string& path) {
  struct stat found {};
  if (stat(fl::i18n::to_string(path).c_str(), &found) != 0) return std::nullopt;
  return found;
}

}  // namespace

void checkWait(const Request& request) { parseWait(request); }

void save(const Request& request, const std::u16string& path, const std::function<void()>& change) {
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(parseWait(request));
  // Pauses of random length: those who wait for the same file must not all come back at the same moment.
  std::minstd_rand random(std::random_device{}());
  std::uniform_int_distribution<int> milliseconds(5, 50);
  // Before the first attempt, which may already put a new file in the place of the old one.
  const auto before = statusOf(path);
  for (;;) {
    try {
      change();
      break;
    } catch (const std::exception&) {
      if (!wasBusy() || Clock::now() >= end) throw;
    }
    // Also ends the program here if it was interrupted.
    corvan::reportProgress({.activity = u"Waiting for another program that saves the package"});
    std::this_thread::sleep_for(std::min<Clock::duration>(1ms * milliseconds(random), end - Clock::now()));
  }
  const auto after = statusOf(path);
  // Another inode: the package was written to a new file that took the name. A package that others replaced
  // meanwhile looks the same, and for its hard links the warning is true as well.
  const bool isNewFile = before && after && before->st_ino != after->st_ino;
  if (isNewFile && before->st_nlink > 1) warn(request.format, "tavlox:cli:HardLinksKeepOldFile", path);
}

}  // namespace tavlox::cli
