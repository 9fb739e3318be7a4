// A call goes through four steps: the member is found by its name, its access is asked, the inputs are
// checked and converted one by one, and only then the module's code runs. A method therefore never sees an
// input of another type than its signature says, and takes it out of the variant without asking. Outputs are
// cut to what was requested afterwards.

#include "platform/zobs/dispatch.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/errors/exceptions.h"

namespace zobs {
namespace {

using corvan::ArrayKind;
using corvan::HostArray;
using foundation::core::except::raise;

// Each makes an input one of its type where it is not yet, and tells whether it is one then.

bool toUnicodeString(Value& input) {
  if (std::holds_alternative<std::u16string>(input)) return true;
  const auto* const array = std::get_if<HostArray>(&input);
  // Several rows would run into one another column by column. The empty text may have no row at all (0×0).
  if (array == nullptr || array->kind() != ArrayKind::Char || array->rows() > 1) return false;
  input = std::u16string(array->text());
  return true;
}

bool toAny(Value& input) {
  if (const auto* const text = std::get_if<std::u16string>(&input)) input = HostArray::charRow(*text);
  return std::holds_alternative<HostArray>(input);
}

bool toInt32Scalar(Value& input) {
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr || !array->isNumeric() || !array->isScalar()) return false;
  const double number = array->scalarAsDouble();
  using Limits = std::numeric_limits<std::int32_t>;
  // A number that would have to be rounded or cut to size is more likely a mistake than meant. NaN compares
  // false.
  if (!(number >= Limits::min() && number <= Limits::max()) || number != std::trunc(number)) return false;
  input = HostArray::int32Scalar(static_cast<std::int32_t>(number));
  return true;
}

bool toLogicalScalar(Value& input) {
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr || !array->isScalar()) return false;
  if (array->kind() == ArrayKind::Logical) return true;
  // Every number but 0 is true; NaN is neither true nor false.
  if (!array->isNumeric() || std::isnan(array->scalarAsDouble())) return false;
  input = HostArray::logicalScalar(array->scalarAsDouble() != 0);
  return true;
}

/// Classes do not inherit from one another here, so an object fits its own class only.
bool isObjectOf(const std::string& className, const Value& input) {
  const auto* const object = std::get_if<COSInterfacePointer>(&input);
  return object != nullptr && *object && (*object)->getClass().getIdentifier().text() == className;
}

/// A type that is none of the four names below is taken for the dotted name of a class.
bool convert(const std::string& type, Value& input) {
  if (type == "unicodeString") return toUnicodeString(input);
  if (type == "any") return toAny(input);
  if (type == "int32 scalar") return toInt32Scalar(input);
  if (type == "logical scalar") return toLogicalScalar(input);
  return isObjectOf(type, input);
}

/// What the input is, for a message: its type, or size and class of a host value.
std::string describe(const Value& input) {
  if (std::holds_alternative<std::u16string>(input)) return "unicodeString";
  if (const auto* const object = std::get_if<COSInterfacePointer>(&input); object != nullptr && *object) {
    return (*object)->getClass().getIdentifier().text();
  }
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr) return "nothing";
  return std::to_string(array->rows()) + "-by-" + std::to_string(array->columns()) + " " +
         std::string(array->className());
}

/// The inputs, checked against the method's signature and converted to its types.
std::vector<Value> convertInputs(const COSMethodInfo& method, std::vector<Value> inputs) {
  const COSMethodSignature& signature = method.getSignature();
  const std::vector<Interned>& types = signature.inputTypes();
  if (inputs.size() < signature.requiredInputCount() || inputs.size() > types.size()) {
    raise("Corvan:ObjectSystem:WrongInputCount", signatureText(method), inputs.size());
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (convert(types[i].text(), inputs[i])) continue;
    raise("Corvan:ObjectSystem:WrongInputType", signatureText(method), i + 1, types[i].text(),
          describe(inputs[i]));
  }
  // Inputs that were left out stay left out: methods see from the count which ones they were given.
  return inputs;
}

/// "tavlox.io.File" is the member "File" of the namespace "tavlox.io".
struct DottedName {
  std::string_view holder, member;
};

DottedName splitDotted(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return {{}, name};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

/// Asked after the name was found: what is not public is still distinguished from what does not exist. The
/// member's name is empty for a class itself.
void requirePublic(int access, std::string_view holder, std::string_view member = {}) {
  if (access == kPublicAccess) return;
  const std::string dot = member.empty() ? "" : ".";
  raise("Corvan:ObjectSystem:MemberIsNotPublic", std::string(holder) + dot + std::string(member));
}

/// Runs a method or function whose access was asked already.
std::vector<Value> invoke(COSClient& client, COSMethodInfo& method, std::vector<Value> inputs,
                          int requestedOutputs) {
  const std::size_t given = method.getSignature().outputTypes().size();
  // One output may be requested of every method, also of one that gives none.
  const std::size_t requested = static_cast<std::size_t>(std::max(requestedOutputs, 1));
  const std::size_t slots = std::max<std::size_t>(given, 1);
  if (requested > slots) {
    raise("Corvan:ObjectSystem:TooManyOutputs", signatureText(method), given, requestedOutputs);
  }
  inputs = convertInputs(method, std::move(inputs));
  // Methods may fill every output of their signature without asking how many are wanted.
  std::vector<Value> outputs(slots);
  int produced = 0;
  method.invoke(client, &produced, outputs.data(), requestedOutputs, inputs);
  // The count comes from the module, which may have got it wrong: neither below zero nor above the slots.
  outputs.resize(std::min(static_cast<std::size_t>(std::max(produced, 0)), requested));
  return outputs;
}

/// The class of the object whose `member` is asked for; hosts may pass a reference that holds no object.
COSClass& classOf(const COSInterfacePointer& object, std::string_view member) {
  if (!object) raise("Corvan:ObjectSystem:NoObject", member);
  return object->getClass();
}

const COSProperty& propertyOf(const COSInterfacePointer& object, std::string_view name) {
  COSClass& objectClass = classOf(object, name);
  const COSProperty* const property = objectClass.findProperty(name);
  if (property == nullptr) {
    raise("Corvan:ObjectSystem:NoSuchProperty", objectClass.getIdentifier().text(), name);
  }
  return *property;
}

}  // namespace

std::string signatureText(const COSMethodInfo& method) {
  const COSMethodSignature& signature = method.getSignature();
  std::string text = nameOf(method) + "(";
  for (std::size_t i = 0; i < signature.inputTypes().size(); ++i) {
    // Each optional input opens a bracket of its own, since it may be given only if those before it are.
    if (i >= signature.requiredInputCount()) text += "[";
    if (i > 0) text += ", ";
    text += signature.inputTypes()[i].text();
  }
  return text.append(signature.optionalInputCount(), ']') + ")";
}

COSClass& findClass(std::string_view dottedName) {
  const auto [holder, member] = splitDotted(dottedName);
  COSNamespace* const found = COSNamespace::getNamespace(holder);
  COSClass* const objectClass = found != nullptr ? found->findClass(member) : nullptr;
  if (objectClass == nullptr) raise("Corvan:ObjectSystem:NoSuchClass", dottedName);
  return *objectClass;
}

COSInterfacePointer construct(COSClient& client, COSClass& objectClass, std::vector<Value> inputs) {
  const std::string& name = objectClass.getIdentifier().text();
  // The class's access decides about making objects; the constructor has none of its own.
  requirePublic(objectClass.getAccess().get, name);
  COSMethodInfo* const constructor = objectClass.constructor();
  if (constructor == nullptr) {
    if (!inputs.empty()) raise("Corvan:ObjectSystem:WrongInputCount", name + "()", inputs.size());
    return std::make_shared<COSObject>(objectClass);
  }
  // Before the object is made: inputs that are refused cost no instance data.
  inputs = convertInputs(*constructor, std::move(inputs));
  const auto object = std::make_shared<COSObject>(objectClass);
  std::vector<Value> outputs(std::max<std::size_t>(constructor->getSignature().outputTypes().size(), 1));
  outputs.front() = object;
  int produced = 0;
  constructor->invoke(client, &produced, outputs.data(), 1, inputs);
  return object;
}

Value getProperty(const COSInterfacePointer& object, std::string_view name) {
  const COSProperty& property = propertyOf(object, name);
  COSClass& objectClass = object->getClass();
  requirePublic(property.access.get, objectClass.getIdentifier().text(), property.name.text());
  return property.getter(object->getInstanceData(objectClass.getIdentifier()));
}

void setProperty(const COSInterfacePointer& object, std::string_view name, const Value&) {
  // Looked for all the same, so that a misspelt name is reported as such.
  const COSProperty& property = propertyOf(object, name);
  raise("Corvan:ObjectSystem:PropertyIsReadOnly", object->getClass().getIdentifier().text(),
        property.name.text());
}

std::vector<Value> callMethod(COSClient& client, const COSInterfacePointer& object, std::string_view name,
                              std::vector<Value> furtherInputs, int requestedOutputs) {
  COSClass& objectClass = classOf(object, name);
  const std::string& className = objectClass.getIdentifier().text();
  COSMethodInfo* const method = objectClass.findMethod(name);
  if (method == nullptr) raise("Corvan:ObjectSystem:NoSuchMethod", className, name);
  requirePublic(method->getMemberAccess(), className, nameOf(*method));
  // The call has a reference of its own: the object lives until it ends, even if the host drops its own
  // before.
  furtherInputs.insert(furtherInputs.begin(), object);
  return invoke(client, *method, std::move(furtherInputs), requestedOutputs);
}

std::vector<Value> callFunction(COSClient& client, std::string_view dottedName, std::vector<Value> inputs,
                                int requestedOutputs) {
  const auto [holder, member] = splitDotted(dottedName);
  COSNamespace* const found = COSNamespace::getNamespace(holder);
  COSFunction* const function = found != nullptr ? found->findFunction(member) : nullptr;
  if (function == nullptr) raise("Corvan:ObjectSystem:NoSuchFunction", dottedName);
  requirePublic(function->access.get, dottedName);
  return invoke(client, *function->info, std::move(inputs), requestedOutputs);
}

}  // namespace zobs
