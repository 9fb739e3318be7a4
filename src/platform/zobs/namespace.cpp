#include "platform/zobs/namespace.h"

#include <algorithm>

#include "platform/zobs/member_name.h"

namespace zobs {
namespace {

/// For a name that exists already. The info's own error goes first.
[[noreturn]] void refuseSecondDefinition(const COSNamespaceInfo& info, std::string_view name) {
  info.throwErrorForDefinitionOfExistingName(name);
  foundation::core::except::raise("Corvan:ObjectSystem:NameAlreadyDefined", name);
}

COSNamespace* findNamed(const std::vector<std::unique_ptr<COSNamespace>>& namespaces, std::string_view name) {
  const auto found =
      std::ranges::find_if(namespaces, [&](const auto& one) { return one->info().getName() == name; });
  return found != namespaces.end() ? found->get() : nullptr;
}

COSClass* findNamed(const std::vector<std::unique_ptr<COSClass>>& classes, std::string_view name) {
  const auto found =
      std::ranges::find_if(classes, [&](const auto& one) { return one->info().getName() == name; });
  return found != classes.end() ? found->get() : nullptr;
}

COSMethodInfo* findNamed(const std::vector<Registered<COSMethodInfo>>& functions, std::string_view name) {
  const auto found = std::ranges::find_if(functions, [&](const auto& one) { return nameOf(*one) == name; });
  return found != functions.end() ? found->get() : nullptr;
}

template <class Element>
void truncate(std::vector<Element>& elements, std::size_t count) {
  elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(count), elements.end());
}

}  // namespace

COSNamespace::COSNamespace(Registered<COSNamespaceInfo> info, const COSNamespace* holder)
    : info_(std::move(info)) {
  const std::string name = info_->getName();
  name_ = internal::makeInterned(holder != nullptr ? holder->dottedNameOf(name) : name);
}

COSNamespace::~COSNamespace() = default;

std::vector<std::unique_ptr<COSNamespace>>& COSNamespace::registry() {
  // Never freed: at the end of the process objects in statics of a host still use their classes.
  static auto& namespaces = *new std::vector<std::unique_ptr<COSNamespace>>;
  return namespaces;
}

const std::vector<std::unique_ptr<COSNamespace>>& COSNamespace::topLevelNamespaces() { return registry(); }

COSNamespace* COSNamespace::getNamespace(Interned dottedName) { return getNamespace(dottedName.text()); }

COSNamespace* COSNamespace::getNamespace(std::string_view dottedName) {
  std::size_t dot = dottedName.find('.');
  COSNamespace* found = findNamed(registry(), dottedName.substr(0, dot));
  while (found != nullptr && dot != std::string_view::npos) {
    dottedName.remove_prefix(dot + 1);
    dot = dottedName.find('.');
    found = found->findInnerNamespace(dottedName.substr(0, dot));
  }
  return found;
}

void COSNamespace::addNamespace(COSNamespaceInfo* info) {
  Registered<COSNamespaceInfo> owned(info);
  const std::string name = owned->getName();
  requireValidName(name);
  if (const COSNamespace* existing = findNamed(registry(), name))
    refuseSecondDefinition(existing->info(), name);
  std::unique_ptr<COSNamespace> added(new COSNamespace(std::move(owned), nullptr));
  registry().push_back(std::move(added));
}

void COSNamespace::addInnerNamespace(COSNamespaceInfo* info) {
  Registered<COSNamespaceInfo> owned(info);
  requireNewName(owned->getName());
  std::unique_ptr<COSNamespace> added(new COSNamespace(std::move(owned), this));
  inner_.push_back(std::move(added));
}

void COSNamespace::addClass(COSClassInfo* info, int getAccess, int setAccess) {
  Registered<COSClassInfo> owned(info);
  requireNewName(owned->getName());
  classes_.push_back(std::make_unique<COSClass>(std::move(owned), *this, getAccess, setAccess));
}

void COSNamespace::addFunction(COSMethodInfo* info, int getAccess, int setAccess) {
  Registered<COSMethodInfo> owned(info);
  requireNewName(nameOf(*owned));
  functionAccess_.reserve(functions_.size() + 1);
  functions_.push_back(std::move(owned));
  functionAccess_.push_back({getAccess, setAccess});
}

const std::vector<std::unique_ptr<COSNamespace>>& COSNamespace::innerNamespaces() {
  populate();
  return inner_;
}

const std::vector<std::unique_ptr<COSClass>>& COSNamespace::classes() {
  populate();
  return classes_;
}

const std::vector<Registered<COSMethodInfo>>& COSNamespace::functions() {
  populate();
  return functions_;
}

template <class Find, class Load>
auto COSNamespace::findOrLoad(Find find, Load load) {
  populate();
  auto* const found = find();
  if (found != nullptr || isLoading_) return found;
  // The info's operation may itself look for members here, and must not be asked again for each.
  struct Loading {
    bool& flag;
    explicit Loading(bool& isLoading) : flag(isLoading) { flag = true; }
    ~Loading() { flag = false; }
  } const loading(isLoading_);
  return load() ? find() : nullptr;
}

COSNamespace* COSNamespace::findInnerNamespace(std::string_view name) {
  return findOrLoad([&] { return findNamed(inner_, name); },
                    [&] { return info_->attemptToLoadInnerNamespace(*this, name); });
}

COSClass* COSNamespace::findClass(std::string_view name) {
  return findOrLoad(
      [&] { return findNamed(classes_, name); },
      [&] { return info_->attemptToLoadClass(*this, name) || info_->attemptToLoadType(*this, name); });
}

COSMethodInfo* COSNamespace::findFunction(std::string_view name) {
  return findOrLoad([&] { return findNamed(functions_, name); },
                    [&] { return info_->attemptToLoadFunction(*this, name); });
}

Access COSNamespace::accessOf(const COSMethodInfo& function) const {
  for (std::size_t i = 0; i < functions_.size(); ++i) {
    if (functions_[i].get() == &function) return functionAccess_[i];
  }
  return {};
}

std::string COSNamespace::dottedNameOf(std::string_view member) const {
  return name_.text() + "." + std::string(member);
}

void COSNamespace::populate() {
  firstUse_.run(
      [this] { info_->populate(*this); },
      [this, innerCount = inner_.size(), classCount = classes_.size(), functionCount = functions_.size()] {
        removeMembersFrom(innerCount, classCount, functionCount);
      });
}

void COSNamespace::removeMembersFrom(std::size_t innerCount, std::size_t classCount,
                                     std::size_t functionCount) {
  truncate(inner_, innerCount);
  truncate(classes_, classCount);
  truncate(functions_, functionCount);
  truncate(functionAccess_, functionCount);
}

void COSNamespace::requireNewName(std::string_view name) const {
  requireValidName(name);
  const bool isTaken = findNamed(inner_, name) != nullptr || findNamed(classes_, name) != nullptr ||
                       findNamed(functions_, name) != nullptr;
  if (isTaken) refuseSecondDefinition(*info_, name);
}

}  // namespace zobs
