#include "platform/errors/except_with_causes.h"

#include "platform/errors/catalog.h"
#include "platform/text/conversion.h"

namespace foundation::core::except {

std::string IUserException::GetMessageTxt() const {
  return fl::i18n::to_string_lossy(fl::i18n::catalogText(GetID(), GetArguments()));
}

const char* IUserException::what() const noexcept {
  try {
    if (what_.empty()) what_ = GetMessageTxt();
    return what_.c_str();
  } catch (const std::exception&) {
    return GetID().c_str();  // no memory for the text
  }
}

except_with_causes::except_with_causes(std::string_view identifier, Arguments arguments,
                                       std::vector<except_with_causes> causes)
    : identifier_(identifier), arguments_(std::move(arguments)), causes_(std::move(causes)) {}

except_with_causes::~except_with_causes() = default;

std::u16string toArgument(std::u16string_view text) { return std::u16string(text); }
std::u16string toArgument(std::string_view narrow) { return fl::i18n::to_ustring_lossy(narrow); }

}  // namespace foundation::core::except
