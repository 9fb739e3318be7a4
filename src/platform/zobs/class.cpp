#include "platform/zobs/class.h"

#include <algorithm>

#include "platform/zobs/member_name.h"
#include "platform/zobs/namespace.h"

namespace zobs {

using foundation::core::except::raise;

COSClass::COSClass(Registered<COSClassInfo> info, COSNamespace& holder, int getAccess, int setAccess)
    : info_(std::move(info)),
      holder_(holder),
      identifier_(internal::makeInterned(holder.getName().text() + "." + info_->getName())),
      access_{getAccess, setAccess} {}

COSClass::~COSClass() = default;

void COSClass::addMethod(COSMethodInfo* info) {
  Registered<COSMethodInfo> method(info);
  method->attach(*this);
  requireNewName(nameOf(*method));
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

const std::vector<Registered<COSMethodInfo>>& COSClass::methods() {
  define();
  return methods_;
}

const std::vector<COSProperty>& COSClass::properties() {
  define();
  return properties_;
}

COSMethodInfo* COSClass::findMethod(std::string_view name) {
  define();
  const auto found =
      std::ranges::find_if(methods_, [&](const auto& method) { return nameOf(*method) == name; });
  return found != methods_.end() ? found->get() : nullptr;
}

const COSProperty* COSClass::findProperty(std::string_view name) {
  define();
  const auto found =
      std::ranges::find_if(properties_, [&](const auto& one) { return one.name.text() == name; });
  return found != properties_.end() ? &*found : nullptr;
}

COSMethodInfo* COSClass::constructor() {
  define();
  return constructor_.get();
}

void COSClass::define() {
  firstUse_.run([this] { info_->defineMembers(*this); },
                [this, methodCount = methods_.size(), propertyCount = properties_.size(),
                 hadConstructor = constructor_ != nullptr] {
                  removeMembersFrom(methodCount, propertyCount, hadConstructor);
                });
}

void COSClass::removeMembersFrom(std::size_t methodCount, std::size_t propertyCount, bool hadConstructor) {
  methods_.erase(methods_.begin() + static_cast<std::ptrdiff_t>(methodCount), methods_.end());
  properties_.erase(properties_.begin() + static_cast<std::ptrdiff_t>(propertyCount), properties_.end());
  if (!hadConstructor) constructor_.reset();
}

void COSClass::requireNewName(std::string_view name) const {
  requireValidName(name);
  const bool isTaken =
      (constructor_ && nameOf(*constructor_) == name) ||
      std::ranges::any_of(methods_, [&](const auto& method) { return nameOf(*method) == name; }) ||
      std::ranges::any_of(properties_, [&](const auto& property) { return property.name.text() == name; });
  if (isTaken) raise("Corvan:ObjectSystem:NameAlreadyDefined", identifier_.text() + "." + std::string(name));
}

}  // namespace zobs
