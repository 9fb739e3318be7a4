// What the host's info classes answer where a module does not say otherwise.

#include "platform/errors/exceptions.h"
#include "platform/zobs/access.h"
#include "platform/zobs/class_info.h"
#include "platform/zobs/method_info.h"
#include "platform/zobs/namespace_info.h"
#include "platform/zobs/property.h"

namespace zobs {

COSNamespaceInfo::~COSNamespaceInfo() = default;
std::u16string COSNamespaceInfo::getDescription() const { return {}; }
std::u16string COSNamespaceInfo::getDetailedDescription() const { return {}; }
bool COSNamespaceInfo::attemptToLoadInnerNamespace(COSNamespace&, std::string_view) { return false; }
bool COSNamespaceInfo::attemptToLoadClass(COSNamespace&, std::string_view) { return false; }
bool COSNamespaceInfo::attemptToLoadFunction(COSNamespace&, std::string_view) { return false; }
bool COSNamespaceInfo::attemptToLoadType(COSNamespace&, std::string_view) { return false; }
std::string COSNamespaceInfo::getMethodSelector() const { return {}; }
bool COSNamespaceInfo::isDestructible() const { return false; }
bool COSNamespaceInfo::isLocked() const { return false; }
bool COSNamespaceInfo::canLoadDynamicContent() const { return false; }

void COSNamespaceInfo::throwErrorForDefinitionOfExistingName(std::string_view name) const {
  foundation::core::except::raise("Corvan:ObjectSystem:NameAlreadyDefined", name);
}

COSClassInfo::~COSClassInfo() = default;
std::u16string COSClassInfo::getDescription() const { return {}; }
std::u16string COSClassInfo::getDetailedDescription() const { return {}; }
int COSClassInfo::getAccess() const { return kPublicAccess; }
bool COSClassInfo::isOkToDestroy() const { return true; }
bool COSClassInfo::hasInstanceData() const { return false; }
bool COSClassInfo::canThisClassContainOtherClass() const { return false; }
bool COSClassInfo::isSealed() const { return false; }

COSMethodInfo::~COSMethodInfo() = default;
std::u16string COSMethodInfo::getDescription() const { return {}; }
bool COSMethodInfo::isLookupScope() const { return false; }
std::u16string COSMethodInfo::getDetailedDescription() const { return {}; }
int COSMethodInfo::getMemberAccess() const { return kPublicAccess; }
int COSMethodInfo::getExtendedAccess() const { return kPublicAccess; }
bool COSMethodInfo::isFirstArgDispatch() const { return true; }
bool COSMethodInfo::isStatic() const { return false; }
bool COSMethodInfo::isAbstract() const { return false; }
bool COSMethodInfo::isSealed() const { return false; }
bool COSMethodInfo::isDestructible() const { return false; }
bool COSMethodInfo::isLocked() const { return false; }
bool COSMethodInfo::isExplicit() const { return false; }
bool COSMethodInfo::doesMethodOverrideAllSignatures() const { return false; }
void COSMethodInfo::attach(COSClass&) {}

std::unique_ptr<COSMethodSignature> COSMethodSignature::createMethodSignature() {
  return std::make_unique<COSMethodSignature>();
}

PropertyAdaptor::~PropertyAdaptor() = default;

}  // namespace zobs
