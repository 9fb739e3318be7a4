#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/zobs/namespace.h"

/// What hosts do with registered classes and functions. Inputs are checked and converted against the
/// signature before an invoke operation runs; a wrong count raises Corvan:ObjectSystem:WrongInputCount, a
/// wrong input WrongInputType, and both name the method and what it expects. Errors of the invoke operations
/// pass through unchanged. Members whose access is not public raise Corvan:ObjectSystem:MemberIsNotPublic.
///
/// Conversions: a text is taken for a char row and the other way round; "int32 scalar" takes any real numeric
/// scalar whose value is an int32, "logical scalar" any real numeric scalar that is a number. A class name
/// takes objects of that class only.
namespace zobs {

/// The class of a dotted name ("tavlox.io.File"). Raises Corvan:ObjectSystem:NoSuchClass.
COSClass& findClass(std::string_view dottedName);

/// "list(tavlox.io.File[, unicodeString])": the name and the inputs, those that may be left out in brackets.
std::string signatureText(const COSMethodInfo& method);

/// A new object of the class, its constructor run. A class that is not public raises MemberIsNotPublic. When
/// the constructor raises, the half-made object's instance data is destroyed. A class without a constructor
/// takes no inputs.
COSInterfacePointer construct(COSClient& client, COSClass& objectClass, std::vector<Value> inputs);

/// Asks the property's getter, at every call anew. Raises Corvan:ObjectSystem:NoSuchProperty, or
/// NoObject for a reference that holds none, and what the getter raises.
Value getProperty(const COSInterfacePointer& object, std::string_view name);

/// Every property is read-only: raises Corvan:ObjectSystem:PropertyIsReadOnly, or NoSuchProperty.
[[noreturn]] void setProperty(const COSInterfacePointer& object, std::string_view name, const Value& value);

/// Calls a method on the object, which becomes the first input. Gives the outputs that were produced, at most
/// as many as requested. One may be requested of any method: of one without outputs it gives none. More than
/// the signature has raise Corvan:ObjectSystem:TooManyOutputs. Raises NoSuchMethod.
std::vector<Value> callMethod(COSClient& client, const COSInterfacePointer& object, std::string_view name,
                              std::vector<Value> furtherInputs, int requestedOutputs = 1);

/// Calls a function by its dotted name ("tavlox.io.getCompression"). Raises NoSuchFunction.
std::vector<Value> callFunction(COSClient& client, std::string_view dottedName, std::vector<Value> inputs,
                                int requestedOutputs = 1);

}  // namespace zobs
