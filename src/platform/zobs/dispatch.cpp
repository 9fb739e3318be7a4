#include "platform/zobs/dispatch.h"

#include <algorithm>

#include "platform/zobs/input_conversion.h"
#include "platform/zobs/member_name.h"

namespace zobs {
namespace {

using foundation::core::except::raise;

/// "tavlox.io.File" is the member "File" of the namespace "tavlox.io".
struct DottedName {
  std::string_view holder, member;
};

DottedName splitDotted(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return {{}, name};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

void requirePublic(int access, const std::string& dottedName) {
  if (access != kPublicAccess) raise("Corvan:ObjectSystem:MemberIsNotPublic", dottedName);
}

/// How many outputs a call gets to see: what was requested, and one in any case, since a method may always
/// give one.
std::size_t visibleOutputs(int requested) { return static_cast<std::size_t>(std::max(requested, 1)); }

void requireOutputs(const COSMethodInfo& method, int requested) {
  const std::size_t given = method.getSignature().outputTypes().size();
  if (visibleOutputs(requested) <= std::max<std::size_t>(given, 1)) return;
  raise("Corvan:ObjectSystem:TooManyOutputs", signatureText(method), given, requested);
}

std::vector<Value> invoke(COSClient& client, COSMethodInfo& method, std::vector<Value> inputs,
                          int requestedOutputs) {
  requireOutputs(method, requestedOutputs);
  inputs = convertInputs(method, std::move(inputs));
  // Methods may fill every output of their signature without asking how many are wanted.
  std::vector<Value> outputs(
      std::max(method.getSignature().outputTypes().size(), visibleOutputs(requestedOutputs)));
  int produced = 0;
  method.invoke(client, &produced, outputs.data(), requestedOutputs, inputs);
  outputs.resize(std::min(static_cast<std::size_t>(std::max(produced, 0)), visibleOutputs(requestedOutputs)));
  return outputs;
}

COSClass& classOf(const COSInterfacePointer& object, std::string_view member) {
  if (!object) raise("Corvan:ObjectSystem:NoObject", member);
  return object->getClass();
}

const COSProperty& propertyOf(const COSInterfacePointer& object, std::string_view name) {
  COSClass& objectClass = classOf(object, name);
  const COSProperty* const property = objectClass.findProperty(name);
  if (property == nullptr)
    raise("Corvan:ObjectSystem:NoSuchProperty", objectClass.getIdentifier().text(), name);
  return *property;
}

}  // namespace

std::string signatureText(const COSMethodInfo& method) {
  const COSMethodSignature& signature = method.getSignature();
  std::string text = nameOf(method) + "(";
  for (std::size_t i = 0; i < signature.inputTypes().size(); ++i) {
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
  requirePublic(objectClass.getAccess().get, name);
  COSMethodInfo* const constructor = objectClass.constructor();
  if (constructor == nullptr) {
    if (!inputs.empty()) raise("Corvan:ObjectSystem:WrongInputCount", name + "()", inputs.size());
    return COSInterfacePointer::create(objectClass);
  }
  inputs = convertInputs(*constructor, std::move(inputs));
  COSInterfacePointer object = COSInterfacePointer::create(objectClass);
  std::vector<Value> outputs(std::max<std::size_t>(constructor->getSignature().outputTypes().size(), 1));
  outputs.front() = object;
  int produced = 0;
  constructor->invoke(client, &produced, outputs.data(), 1, inputs);
  return object;
}

Value getProperty(const COSInterfacePointer& object, std::string_view name) {
  const COSProperty& property = propertyOf(object, name);
  COSClass& objectClass = object->getClass();
  requirePublic(property.getAccess, objectClass.getIdentifier().text() + "." + property.name.text());
  return property.getter->get(object->getInstanceData(objectClass.getIdentifier()));
}

void setProperty(const COSInterfacePointer& object, std::string_view name, const Value&) {
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
  requirePublic(method->getMemberAccess(), className + "." + nameOf(*method));
  furtherInputs.insert(furtherInputs.begin(), object);
  return invoke(client, *method, std::move(furtherInputs), requestedOutputs);
}

std::vector<Value> callFunction(COSClient& client, std::string_view dottedName, std::vector<Value> inputs,
                                int requestedOutputs) {
  const auto [holder, member] = splitDotted(dottedName);
  COSNamespace* const found = COSNamespace::getNamespace(holder);
  COSMethodInfo* const function = found != nullptr ? found->findFunction(member) : nullptr;
  if (function == nullptr) raise("Corvan:ObjectSystem:NoSuchFunction", dottedName);
  requirePublic(found->accessOf(*function).get, std::string(dottedName));
  return invoke(client, *function, std::move(inputs), requestedOutputs);
}

}  // namespace zobs
