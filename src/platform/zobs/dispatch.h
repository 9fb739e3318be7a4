#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "platform/zobs/class.h"
#include "platform/zobs/namespace.h"
#include "platform/zobs/value.h"

/// What hosts do with registered classes and functions. Inputs are checked and converted against the signature before
/// an invoke operation runs; wrong ones raise Corvan:ObjectSystem:… errors that name the method and what it expects.
/// Errors of the invoke operations pass through unchanged.
namespace zobs {

/// The class of a dotted name ("tavlox.io.File"). Raises Corvan:ObjectSystem:NoSuchClass.
COSClass& findClass(std::string_view dottedName);

COSInterfacePointer construct(COSClient& client, COSClass& objectClass, std::vector<Value> inputs);

/// Raises Corvan:ObjectSystem:NoSuchProperty.
Value getProperty(const COSInterfacePointer& object, std::string_view name);

/// Every property is read-only: raises Corvan:ObjectSystem:PropertyIsReadOnly, or NoSuchProperty.
[[noreturn]] void setProperty(const COSInterfacePointer& object, std::string_view name, const Value& value);

/// Calls a method on the object, which becomes the first input. Gives the outputs that were produced.
std::vector<Value> callMethod(COSClient& client, const COSInterfacePointer& object, std::string_view name,
                              std::vector<Value> furtherInputs, int requestedOutputs = 1);

/// Calls a function by its dotted name ("tavlox.io.getCompression").
std::vector<Value> callFunction(COSClient& client, std::string_view dottedName, std::vector<Value> inputs,
                                int requestedOutputs = 1);

}  // namespace zobs
