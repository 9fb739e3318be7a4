#include "platform/errors/collection.h"

namespace foundation::core::except {
namespace {

const except_with_causes& noError() {
  static const except_with_causes none("");
  return none;
}

}  // namespace

collection::~collection() = default;

const collection& collection::get_empty_instance() {
  static const collection none;
  return none;
}

except_with_causes collection::extract_except_with_causes() const {
  except_with_causes first = errors_.front();
  for (auto further = errors_.begin() + 1; further != errors_.end(); ++further) first.addCause(*further);
  return first;
}

const std::string& collection::GetID() const noexcept {
  return errors_.empty() ? noError().GetID() : errors_.front().GetID();
}

const Arguments& collection::GetArguments() const noexcept {
  return errors_.empty() ? noError().GetArguments() : errors_.front().GetArguments();
}

}  // namespace foundation::core::except
