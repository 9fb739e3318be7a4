#include "metadata/transaction.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_only.hpp>

namespace orra::tavloxio {

using foundation::core::except::collection;

namespace {

void sleepHalfASecond() { boost::this_thread::sleep(boost::posix_time::milliseconds(500)); }

}  // namespace

void (*pauseBeforeRaising)() = sleepHalfASecond;

void runTransaction(ObjectManager& manager, const boost::function<void()>& work) {
  collection errors;
  manager.safeTransaction(work, errors);
  throwCollected(errors);
}

void throwCollected(const collection& errors) {
  if (errors.empty()) return;
  pauseBeforeRaising();
  const auto first = errors.extract_except_with_causes();
  if (first.GetID() == "sqldb:ssdb:Corrupt") {
    foundation::core::except::raiseCollection("simulation_data_repository:sdr:InternalError");
  }
  if (first.GetID() == "sqldb:ssdb:Locked") {
    foundation::core::except::raise("sqldb:ssdb:Locked", first.GetID(), first.GetMessageTxt());
  }
  throw errors;
}

}  // namespace orra::tavloxio
