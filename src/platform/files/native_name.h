#pragma once

#include <string>
#include <string_view>

/// Between the UTF-16 names of this system and the bytes the operating system knows files by.
namespace fl::filesystem {

/// Raises Error for a text no file can be called by: with a lone surrogate or a NUL, which would cut the name
/// short.
std::string toNativeName(const std::u16string& path);

/// Raises Error if `native` is not UTF-8.
std::u16string fromNativeName(std::string_view native);

/// Whether toNativeName would give a name.
bool isPossibleName(const std::u16string& path) noexcept;

}  // namespace fl::filesystem
