#pragma once

#include <string>
#include <string_view>

#include "platform/errors/exceptions.h"

/// The text of paths. Names are UTF-16 in this system and UTF-8 where the operating system sees them; "/"
/// separates in both, so native and generic form are the same text.
namespace fl::filesystem {

/// A file or folder operation that the system refused, or a name that no file can have. The identifier says
/// which operation; the first argument is the path, the second, where the system gave one, its reason.
class Error : public foundation::core::except::except_with_causes {
 public:
  using except_with_causes::except_with_causes;
  ~Error() override;
};

/// Raises Error. The compiler checks that the identifier has a text and how many arguments this takes.
template <class... Argument>
[[noreturn]] void raise(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  throw Error(identifier, {foundation::core::except::toArgument(arguments)...});
}

/// Whether a file can be called this: a lone surrogate cannot be written in UTF-8, and a NUL would cut the
/// name short.
bool isPossibleName(const std::u16string& path) noexcept;
/// As the operating system knows it. Raises Error unless it is a possible name.
std::string toNativeName(const std::u16string& path);
/// Raises Error if `native` is not UTF-8.
std::u16string fromNativeName(std::string_view native);

/// Both give the text as it is, since the two forms are one here; whoever calls them says which form is
/// meant.
std::u16string make_native_form(const std::u16string& path);
std::u16string make_generic_form(const std::u16string& path);
/// A leading "~" or "~/" becomes the home folder; nothing else is expanded. Left alone if there is no home
/// folder.
std::u16string expand(const std::u16string& path);
/// Whether the path starts at the root once a leading "~" was replaced.
bool is_absolute_path_when_expanded(const std::u16string& path);

/// What follows the last "/"; the whole text if there is none.
std::u16string extract_filename(const std::u16string& path);
/// What follows the last "." of the file name, without the dot; none for ".hidden" and "noext".
std::u16string extract_extension(const std::u16string& path);
/// What stands before the last "/" (or several of them); "/" for what lies in the root, empty if there is
/// none.
std::u16string extract_parent_path(const std::u16string& path);
/// Joins with exactly one "/" between the two; if one is empty, gives the other.
std::u16string concatenate(const std::u16string& folder, const std::u16string& name);

}  // namespace fl::filesystem
