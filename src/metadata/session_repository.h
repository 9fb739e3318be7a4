#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "metadata/signals.h"
#include "package/scoped_ref.h"
#include "platform/repository/object_manager.h"
#include "platform/repository/set.h"

namespace orra::tavloxio {

/// The runs and signals of one session file, loaded into a private repository when they are first asked for,
/// and again whenever the file's last-write time has changed. The repository's database file lives as long as
/// this object, at most.
class SessionRepository {
 public:
  SessionRepository() = default;
  /// A database file that cannot be removed now ends the process, as any error that leaves a destructor.
  ~SessionRepository();
  SessionRepository(const SessionRepository&) = delete;
  SessionRepository& operator=(const SessionRepository&) = delete;

  /// Loads the file unless that has been done for its present last-write time. A load that fails is not tried
  /// again until the file changes, and leaves what it loaded. Raises tavlox:general:FileNotFound or
  /// tavlox:general:UnableToReadFile with the path, and the repository's errors.
  void ensureLoaded(const std::u16string& path);

  /// Closes the repository and removes its database file. Raises BRINDD:brindd:DictFuncThrewStdException with
  /// the reason, or BRINDD:brindd:DictFuncThrewException without one, if the file cannot be removed.
  void release();

  /// The run of a file identifier. Raises tavlox:general:UnableToReadFile with an empty text for an
  /// identifier that the file does not list, and simulation_data_repository:sdr:NoSuchRun for one that the
  /// repository does not have.
  std::shared_ptr<Set> lookupRun(std::int32_t fileIdentifier);

  /// The signals of the runs, run by run in the order given, each run's in the repository's order.
  Signals allSignals(const std::vector<std::int32_t>& fileIdentifiers);
  Signals signalsByName(const std::vector<std::int32_t>& fileIdentifiers, const std::u16string& name);

 private:
  void load(const file::ScopedRef& ref);
  void loadSignals(const opc::model::Part& part);
  std::int32_t repositoryIdentifier(std::int32_t fileIdentifier) const;

  boost::posix_time::ptime loadedStamp_;
  // Never emptied: an entry of an earlier load finds nothing, since the repository does not use an identifier
  // twice.
  std::unordered_map<std::int32_t, std::int32_t> fileToRepository_;
  std::unique_ptr<ObjectManager> objectManager_;
};

}  // namespace orra::tavloxio
