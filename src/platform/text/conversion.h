#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// Texts are UTF-16 inside the system and UTF-8 at its edges. Ill-formed input to a name is an error,
/// because two names must never merge into one; ill-formed input to a message shows U+FFFD.
namespace fl::i18n {

/// A text that is not well-formed Unicode was given where a name is needed. what() says in English where, for
/// the caller's own message.
class ConversionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// UTF-8 to UTF-16. Raises ConversionError, with the offset in bytes, if `narrow` is ill-formed.
std::u16string to_ustring(std::string_view narrow);
/// The same into a text whose memory is used again, for many texts. When it raises, `text` is of no use.
void to_ustring(std::string_view narrow, std::u16string& text);

/// UTF-16 to UTF-8. Raises ConversionError, with the offset in code units, at a lone surrogate.
std::string to_string(std::u16string_view text);

/// The same two for messages: each ill-formed sequence becomes U+FFFD.
std::u16string to_ustring_lossy(std::string_view narrow);
std::string to_string_lossy(std::u16string_view text);

/// Whether the text would convert without an error.
bool is_well_formed(std::string_view narrow) noexcept;
bool is_well_formed(std::u16string_view text) noexcept;

}  // namespace fl::i18n
