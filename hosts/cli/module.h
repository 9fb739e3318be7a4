#pragma once

#include <string>
#include <vector>

#include "hosts/cli/command.h"
#include "platform/zobs/dispatch.h"

/// The plug-in module as the commands use it: loaded on first use, its class and functions found by name.
namespace tavlox::cli {

/// Loads the module if it is not loaded yet. The class that stands for one file.
zobs::COSClass& fileClass(const Request& request);

/// An object of that class.
zobs::COSInterfacePointer openFile(const Request& request, const std::u16string& path);

/// Calls a method of an object, or a function of the module's namespace; gives the first output, or nothing.
zobs::Value call(const zobs::COSInterfacePointer& object, std::string_view method,
                 std::vector<zobs::Value> inputs = {});
zobs::Value callFunction(const Request& request, std::string_view function, std::vector<zobs::Value> inputs);

}  // namespace tavlox::cli
