#include "platform/zobs/class.h"

#include <algorithm>

#include "platform/errors/exceptions.h"
#include "platform/zobs/namespace.h"

namespace zobs {

COSClass::COSClass(std::unique_ptr<COSClassInfo> info, COSNamespace& holder, Access access)
    : info_(std::move(info)),
      holder_(holder),
      identifier_(internal::makeInterned(holder.getName().text() + "." + info_->getName())),
      access_(access) {}

void COSClass::addMethod(COSMethodInfo* info) {
  std::unique_ptr<COSMethodInfo> method(info);
  method->attach(*this);
  requireNewName(nameOf(*method));
  // Not among the methods, because nobody may call it on an object that is made already.
  if (nameOf(*method) == info_->getName()) {
    constructor_ = std::move(method);
    return;
  }
  methods_.push_back(std::move(method));
}

void COSClass::addProperty(COSProperty property) {
  requireNewName(property.name.text());
  properties_.push_back(std::move(property));
}

COSMethodInfo* COSClass::findMethod(std::string_view name) {
  define();
  const auto found = std::ranges::find_if(methods_, [&](const auto& one) { return nameOf(*one) == name; });
  return found != methods_.end() ? found->get() : nullptr;
}

const COSProperty* COSClass::findProperty(std::string_view name) {
  define();
  const auto found =
      std::ranges::find_if(properties_, [&](const COSProperty& one) { return one.name.text() == name; });
  return found != properties_.end() ? &*found : nullptr;
}

void COSClass::define() {
  if (isDefined_) return;
  // Set before the work is done: the info may look at the members it has added so far.
  isDefined_ = true;
  const bool hadConstructor = constructor_ != nullptr;
  const std::size_t methodCount = methods_.size(), propertyCount = properties_.size();
  try {
    info_->defineMembers(*this);
  } catch (...) {
    // A class with half of its members must not pass for a whole one. Members are only ever added at the
    // end, so cutting the lists to their old lengths removes exactly the new ones.
    if (!hadConstructor) constructor_.reset();
    methods_.resize(methodCount);
    properties_.resize(propertyCount);
    isDefined_ = false;
    throw;
  }
}

void COSClass::requireNewName(std::string_view name) const {
  requireValidName(name);
  const bool isTaken =
      (constructor_ && nameOf(*constructor_) == name) ||
      std::ranges::any_of(methods_, [&](const auto& one) { return nameOf(*one) == name; }) ||
      std::ranges::any_of(properties_, [&](const COSProperty& one) { return one.name.text() == name; });
  if (!isTaken) return;
  foundation::core::except::raise("Corvan:ObjectSystem:NameAlreadyDefined",
                                  identifier_.text() + "." + std::string(name));
}

}  // namespace zobs
