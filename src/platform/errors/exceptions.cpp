#include "platform/errors/exceptions.h"

#include "platform/errors/catalog.h"
#include "platform/text/conversion.h"

namespace foundation::core::except {
namespace {

/// What an empty collection answers with: no identifier, no arguments.
const except_with_causes& noError() {
  static const except_with_causes none("");
  return none;
}

}  // namespace

// The destructors stand here so that one library owns the types' run-time information: what the module raises
// is caught in a host by the same type.
bad_alloc::~bad_alloc() = default;
except_with_causes::~except_with_causes() = default;
collection::~collection() = default;

std::string IUserException::GetMessageTxt() const {
  return fl::i18n::to_string_lossy(fl::i18n::catalogText(GetID(), GetArguments()));
}

const char* IUserException::what() const noexcept {
  try {
    // Made when it is first asked for: most errors are caught and translated without being shown.
    if (what_.empty()) what_ = GetMessageTxt();
    return what_.c_str();
  } catch (const std::exception&) {
    return GetID().c_str();  // no memory for the text
  }
}

except_with_causes::except_with_causes(std::string_view identifier, Arguments arguments,
                                       std::vector<except_with_causes> causes)
    : identifier_(identifier), arguments_(std::move(arguments)), causes_(std::move(causes)) {}

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

std::u16string toArgument(std::u16string_view text) { return std::u16string(text); }
std::u16string toArgument(std::string_view narrow) { return fl::i18n::to_ustring_lossy(narrow); }

}  // namespace foundation::core::except
