#include "platform/opc/content_type.h"

#include <algorithm>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/text/conversion.h"

namespace opc::model {
namespace {

/// What type and subtype consist of in a document. "%" is a character of tokens like the others there.
bool isStoredCharacter(char byte) { return byte == '%' || percent::kTokenLiterals.contains(byte); }

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isStoredCharacter);
}

}  // namespace

ContentType::ContentType(std::u16string_view decoded) {
  if (!fl::i18n::is_well_formed(decoded)) raise("opc:name:LoneSurrogate", decoded);
  if (decoded.find(u'\0') != std::u16string_view::npos) raise("opc:name:NulCharacter", decoded);
  const std::string narrow = fl::i18n::to_string(decoded);
  const std::size_t slash = narrow.find('/');
  if (slash == std::string::npos || narrow.find('/', slash + 1) != std::string::npos) {
    raise("opc:name:NoContentType", decoded);
  }
  // Only the subtype is encoded: a type that is no token is a fault of the caller, not a text to be
  // disguised.
  const auto type = tryFromEncoded(narrow.substr(0, slash + 1) +
                                   percent::encode(narrow.substr(slash + 1), percent::kTokenLiterals));
  if (!type) raise("opc:name:NoContentType", decoded);
  encoded_ = type->encoded_;
}

ContentType::ContentType(std::string encoded)
    : encoded_(std::make_shared<const std::string>(std::move(encoded))) {}

std::optional<ContentType> ContentType::tryFromEncoded(std::string_view encoded) {
  const std::size_t slash = encoded.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  if (!isToken(encoded.substr(0, slash)) || !isToken(encoded.substr(slash + 1))) return std::nullopt;
  return ContentType(std::string(encoded));
}

std::u16string ContentType::getSubType() const {
  const std::string subType = encoded_->substr(encoded_->find('/') + 1);
  const std::optional<std::string> decoded = percent::decode(subType);
  if (!decoded || !fl::i18n::is_well_formed(*decoded)) return fl::i18n::to_ustring(subType);
  return fl::i18n::to_ustring(*decoded);
}

bool ContentType::operator==(const ContentType& other) const {
  // Copies share one text, and most types that are compared are copies.
  return encoded_ == other.encoded_ || percent::equalsIgnoringCase(encoded(), other.encoded());
}

}  // namespace opc::model
