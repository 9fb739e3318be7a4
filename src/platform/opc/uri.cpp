#include "platform/opc/uri.h"

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"

namespace opc::model {

URI::URI(std::u16string_view text) : text_(text) {
  if (text.empty()) raise("opc:name:Empty");
  if (text.find(u'\0') != std::u16string_view::npos) raise("opc:name:NulCharacter", text);
  if (!fl::i18n::is_well_formed(text)) raise("opc:name:LoneSurrogate", text);
}

URI URI::asWritten(std::u16string text) {
  URI uri;
  uri.text_ = std::move(text);
  return uri;
}

}  // namespace opc::model
