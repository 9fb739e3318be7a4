#include "platform/repository/load_signals.h"

#include <string>
#include <unordered_map>

#include "platform/progress/progress.h"
#include "platform/repository/members.h"
#include "platform/repository/object_manager.h"
#include "platform/repository/repository.h"
#include "platform/repository/session_data_error.h"
#include "platform/repository/sql/transaction.h"

namespace orra {
namespace {

constexpr std::size_t kRunMember = 1;
constexpr std::size_t kRowsPerReport = 65'536;

/// Adds signals behind those that their runs have.
class SignalLoader {
 public:
  SignalLoader(Repository& repository, const IdentifierMap& fileToRepository)
      : repository_(repository), fileToRepository_(fileToRepository) {}

  void add(std::size_t index, const Row& row) {
    const auto& run = row[kRunMember];
    if (!run) raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is missing");
    const auto inFile = static_cast<std::int32_t>(run->get_int64().value());
    // Mostly one run's signals stand together.
    if (current_ == nullptr || inFile != currentInFile_) {
      current_ = &lastOf(inFile, index);
      currentInFile_ = inFile;
    }
    repository_.signals().add(++*current_, row);
  }

 private:
  /// The identifier of the run's last signal so far.
  std::int64_t& lastOf(std::int32_t inFile, std::size_t index) {
    if (const auto known = last_.find(inFile); known != last_.end()) return known->second;
    const auto run = fileToRepository_.find(inFile);
    // The map may have runs of an earlier load.
    if (run == fileToRepository_.end() || !repository_.runs().has(run->second)) {
      raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is no run of the run list");
    }
    const std::int64_t last = signalIdentifier(run->second, repository_.signals().countOf(run->second));
    return last_.emplace(inFile, last).first->second;
  }

  Repository& repository_;
  const IdentifierMap& fileToRepository_;
  std::unordered_map<std::int32_t, std::int64_t> last_;  ///< by the run's identifier in the file
  std::int64_t* current_ = nullptr;                      ///< the entry of the run that came last
  std::int32_t currentInFile_ = 0;
};

}  // namespace

namespace object {

void loadSignals(ObjectManager& manager, const ObjRefArrayJSON& signals, IdentifierMap& fileToRepository,
                 ProgressTracker*, bool, int, TemporalDeserializer*) {
  Repository& repository = manager.repository();
  sql::Transaction transaction(repository.database());
  SignalLoader loader(repository, fileToRepository);
  signals.forEachRow([&](std::size_t index, const Row& row) {
    if (index % kRowsPerReport == 0) corvan::reportProgress({u"Loading signals", index, signals.size()});
    loader.add(index, row);
  });
  transaction.commit();
  corvan::reportProgress({u"Loading signals", signals.size(), signals.size()});
}

}  // namespace object
}  // namespace orra
