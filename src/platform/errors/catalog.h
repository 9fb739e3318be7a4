#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace fl::i18n {

/// The text of a message identifier "catalog:component:key" with its placeholders {0}, {1}, … filled.
///
/// Texts are data: catalog/LANGUAGE/CATALOG.json beside the platform library maps "component:key" to a text.
/// The language is that of the C++ global locale at the call ("de_DE.UTF-8" asks for de_DE, then de), with
/// English behind it. A message without a text anywhere reads "identifier: argument, argument".
std::u16string catalogText(std::string_view identifier, const std::vector<std::u16string>& arguments = {});

/// A text of at most so many UTF-16 code units, not 0: the middle of a longer one gives way to "…". Names
/// come from files, which may make them as long as they like.
std::u16string shortened(std::u16string_view text, std::size_t longest);

/// Where the texts are looked for, also if there are none: ../share/tavlox/catalog, seen from the library
/// (or, where the platform is linked in statically, from the program).
const std::filesystem::path& catalogFolder();

/// The language folders that a locale name asks for, best first, "en" last: "de_DE.UTF-8" gives de_DE, de,
/// en, and a name that is no language (empty, or with characters other than letters, digits and "_") gives en
/// alone.
std::vector<std::string> languagesOf(std::string_view localeName);

}  // namespace fl::i18n
