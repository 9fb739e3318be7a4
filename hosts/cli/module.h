#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hosts/cli/command.h"
#include "platform/zobs/dispatch.h"

/// The plug-in module as the commands use it: loaded on first use, its class and functions found by name.
namespace tavlox::cli {

/// Loads the module if it is not loaded yet, and gives the class that stands for one file. It lives as long
/// as the process. Raises Corvan:ObjectSystem:CannotLoadModule.
zobs::COSClass& fileClass(const Request& request);

/// An object of that class for the package at `path`, with the module loaded if need be. Raises what the
/// class raises: tavlox:general:FileNotFound, or tavlox:general:UnableToReadFile for a file that is no sound
/// package.
zobs::COSInterfacePointer openFile(const Request& request, const std::u16string& path);

/// Calls a method of an object, or a function of the module's namespace, and gives the first output; an empty
/// value if there is none. The module's errors pass through.
zobs::Value call(const zobs::COSInterfacePointer& file, std::string_view method,
                 std::vector<zobs::Value> inputs = {});
zobs::Value callFunction(const Request& request, std::string_view function, std::vector<zobs::Value> inputs);

/// The same for a method whose answer is an array; raises std::bad_variant_access for any other.
corvan::HostArray callForArray(const zobs::COSInterfacePointer& file, std::string_view method,
                               std::vector<zobs::Value> inputs = {});

/// The full paths of the entries that a search finds, decoded, in the package's order, one as often as
/// relationships lead to it. The module's methods do not ask before they replace or
/// remove something; this is how a command knows beforehand, and tells afterwards.
std::vector<std::u16string> listedPaths(const zobs::COSInterfacePointer& file, const std::u16string& search);

/// Where people's own files lie; what lies elsewhere belongs to the recorded session.
inline constexpr std::u16string_view kUserFolder = u"/user/";
/// The type of the relationships that lead to them.
inline constexpr std::u16string_view kUserFileType = u"UserAssetsPartRelType";

/// What a search that found nothing may have meant: the full paths of all entries if it is a path, else their
/// names.
std::vector<std::u16string> namesOf(const zobs::COSInterfacePointer& file, std::u16string_view search);

}  // namespace tavlox::cli
