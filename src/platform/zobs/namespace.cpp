#include "platform/zobs/namespace.h"

#include <algorithm>

#include "platform/errors/exceptions.h"

namespace zobs {
namespace {

std::string nameOf(const COSNamespace& one) { return one.info().getName(); }
std::string nameOf(const COSClass& one) { return one.info().getName(); }
const std::string& nameOf(const COSFunction& one) { return nameOf(*one.info); }

/// The member of that name, or null.
template <class Member>
Member* findNamed(const std::vector<std::unique_ptr<Member>>& members, std::string_view name) {
  const auto found = std::ranges::find_if(members, [&](const auto& one) { return nameOf(*one) == name; });
  return found != members.end() ? found->get() : nullptr;
}

/// An info that has an error of its own for this raises it; most have none.
[[noreturn]] void refuseSecondDefinition(const COSNamespaceInfo& info, std::string_view name) {
  info.throwErrorForDefinitionOfExistingName(name);
  foundation::core::except::raise("Corvan:ObjectSystem:NameAlreadyDefined", name);
}

}  // namespace

COSNamespace::COSNamespace(std::unique_ptr<COSNamespaceInfo> info, const COSNamespace* holder)
    : info_(std::move(info)) {
  const std::string prefix = holder != nullptr ? holder->name_.text() + "." : "";
  name_ = internal::makeInterned(prefix + info_->getName());
}

COSNamespace::~COSNamespace() = default;

std::vector<std::unique_ptr<COSNamespace>>& COSNamespace::registry() {
  // Never freed: objects in static variables of a host use their classes to the end.
  static auto& namespaces = *new std::vector<std::unique_ptr<COSNamespace>>;
  return namespaces;
}

COSNamespace* COSNamespace::getNamespace(std::string_view dottedName) {
  // From the outermost name inwards: an inner namespace may only come to be when its holder is looked into.
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
  std::unique_ptr<COSNamespaceInfo> owned(info);
  const std::string name = owned->getName();
  requireValidName(name);
  if (const COSNamespace* existing = findNamed(registry(), name)) {
    refuseSecondDefinition(existing->info(), name);
  }
  registry().push_back(std::unique_ptr<COSNamespace>(new COSNamespace(std::move(owned), nullptr)));
}

void COSNamespace::addInnerNamespace(COSNamespaceInfo* info) {
  std::unique_ptr<COSNamespaceInfo> owned(info);
  requireNewName(owned->getName());
  inner_.push_back(std::unique_ptr<COSNamespace>(new COSNamespace(std::move(owned), this)));
}

void COSNamespace::addClass(COSClassInfo* info, int getAccess, int setAccess) {
  std::unique_ptr<COSClassInfo> owned(info);
  requireNewName(owned->getName());
  classes_.push_back(std::make_unique<COSClass>(std::move(owned), *this, Access{getAccess, setAccess}));
}

void COSNamespace::addFunction(COSMethodInfo* info, int getAccess, int setAccess) {
  std::unique_ptr<COSMethodInfo> owned(info);
  requireNewName(nameOf(*owned));
  functions_.push_back(
      std::make_unique<COSFunction>(COSFunction{std::move(owned), Access{getAccess, setAccess}}));
}

/// Finds a member that is registered, or lets the info load it and looks once more. What the info answers is
/// not enough: it says that it registered something, and `find` sees whether that is the member asked for.
template <class Find, class Load>
auto COSNamespace::findOrLoad(Find find, Load load) {
  populate();
  auto* const found = find();
  // While the info loads, it may look for the same name itself, and would be asked for it without end.
  if (found != nullptr || isLoading_) return found;
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

COSFunction* COSNamespace::findFunction(std::string_view name) {
  return findOrLoad([&] { return findNamed(functions_, name); },
                    [&] { return info_->attemptToLoadFunction(*this, name); });
}

void COSNamespace::populate() {
  if (isPopulated_) return;
  // Set before the work is done: the info may look at the members it has added so far.
  isPopulated_ = true;
  const std::size_t innerCount = inner_.size(), classCount = classes_.size(),
                    functionCount = functions_.size();
  try {
    info_->populate(*this);
  } catch (...) {
    // A namespace with half of its members must not pass for a whole one. Members are only ever added at the
    // end, so cutting the lists to their old lengths removes exactly the new ones.
    inner_.resize(innerCount);
    classes_.resize(classCount);
    functions_.resize(functionCount);
    isPopulated_ = false;
    throw;
  }
}

void COSNamespace::requireNewName(std::string_view name) const {
  requireValidName(name);
  const bool isTaken = findNamed(inner_, name) != nullptr || findNamed(classes_, name) != nullptr ||
                       findNamed(functions_, name) != nullptr;
  if (isTaken) refuseSecondDefinition(*info_, name);
}

}  // namespace zobs
