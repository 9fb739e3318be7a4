#include "platform/repository/repository.h"

#include <atomic>

#include "platform/errors/exceptions.h"

namespace orra {

Repository::Repository(const std::string& folder, const std::string& name)
    : file_(folder, name), database_(file_.path()), runs_(database_), signals_(database_) {
  file_.keep();
}

std::int32_t newRunIdentifier(std::int32_t inFile) {
  // Files mostly count from 1; far from there a mix-up shows.
  static std::atomic<std::int32_t> last = 1'000'000'000;
  std::int32_t identifier = ++last;
  if (identifier == inFile) identifier = ++last;
  if (identifier <= 0) foundation::core::except::raise("simulation_data_repository:sdr:InternalError");
  return identifier;
}

}  // namespace orra
