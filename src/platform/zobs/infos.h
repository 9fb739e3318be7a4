#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zobs/object.h"

/// Frees memory that came from the host's allocator. A null pointer does nothing.
extern "C" void utFree(void* memory) noexcept;

/// How a module describes itself: it derives a class from one of these infos for each namespace, class,
/// method and function, and registers an object of it. Operations with an answer here need not be overridden;
/// the object system itself uses few of those, the others are for hosts to ask.
namespace zobs {

class COSNamespace;

/// The access codes that registrations carry. Hosts may use public members only.
inline constexpr int kPublicAccess = 0;
/// Nobody may: given for the setting or replacing of a member.
inline constexpr int kNoAccess = 2;

/// Two access codes: who may use or read a member, and who may replace or write it.
struct Access {
  int get = kPublicAccess;
  int set = kNoAccess;
};

/// Base of all infos. They are allocated zero-filled with calloc, so that members nobody has set read as
/// zero, and freed through utFree by the host, which owns an info once it is registered. Raises
/// foundation::core::except::bad_alloc when memory is out.
class HostAllocated {
 public:
  static void* operator new(std::size_t size);
  static void operator delete(void* memory) noexcept;
};

/// Who calls: hosts give their name, so that a method may know on whose behalf it runs.
class COSClient {
 public:
  explicit COSClient(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

/// The types a method takes and gives: class names, or "unicodeString" (UTF-16 text), "any" (a host value),
/// "int32 scalar", "logical scalar".
class COSMethodSignature {
 public:
  /// An empty signature: no inputs, no outputs.
  static std::unique_ptr<COSMethodSignature> createMethodSignature();

  /// For a method the first input is the object itself.
  void addInputType(Interned type) { inputs_.push_back(type); }
  void addOutputType(Interned type) { outputs_.push_back(type); }
  /// How many trailing inputs may be left out; none unless set. More than there are inputs means all of them.
  void setOptionalInputCount(std::size_t count) { optionalInputs_ = count; }

  const std::vector<Interned>& inputTypes() const { return inputs_; }
  const std::vector<Interned>& outputTypes() const { return outputs_; }
  std::size_t optionalInputCount() const { return std::min(optionalInputs_, inputs_.size()); }
  std::size_t requiredInputCount() const { return inputs_.size() - optionalInputCount(); }

 private:
  std::vector<Interned> inputs_, outputs_;
  std::size_t optionalInputs_ = 0;
};

/// One method or function. The object system asks for its name, its member access (of methods; a function's
/// is given when it is registered) and its signature.
class COSMethodInfo : public HostAllocated {
 public:
  virtual ~COSMethodInfo();
  /// Null as long as no name was set.
  virtual const Interned* getName() const = 0;
  virtual std::u16string getDescription() const { return {}; }
  virtual bool isLookupScope() const { return false; }
  virtual std::u16string getDetailedDescription() const { return {}; }
  virtual int getMemberAccess() const { return kPublicAccess; }
  virtual int getExtendedAccess() const { return kPublicAccess; }
  virtual bool isFirstArgDispatch() const { return true; }
  virtual bool isStatic() const { return false; }
  virtual bool isAbstract() const { return false; }
  virtual bool isSealed() const { return false; }
  virtual bool isDestructible() const { return false; }
  virtual bool isLocked() const { return false; }
  virtual bool isExplicit() const { return false; }
  virtual bool doesMethodOverrideAllSignatures() const { return false; }

  /// Run once, when the method is added to its class: a signature that names the class is completed here.
  virtual void attach(COSClass&) {}
  virtual const COSMethodSignature& getSignature() const = 0;

  /// Does the method's work. Inputs were checked against the signature and converted: "unicodeString" arrives
  /// as text, a class name as an object, "any" as a host value. For a constructor the first output already
  /// holds the new object. `producedOutputs` is zero before the call; outputs beyond it are ignored.
  virtual void invoke(COSClient& client, int* producedOutputs, Value* outputs, int requestedOutputs,
                      std::span<const Value> inputs) = 0;
};

/// Empty as long as no name was set.
inline const std::string& nameOf(const COSMethodInfo& method) {
  const Interned* const name = method.getName();
  return (name != nullptr ? *name : Interned()).text();
}

/// Raises Corvan:ObjectSystem:InvalidName for a name under which no member could be found again.
void requireValidName(std::string_view name);

/// One class. The object system asks for its name, its members and its instance data. Whether hosts may use
/// the class is said when it is registered, not by getAccess.
class COSClassInfo : public HostAllocated {
 public:
  virtual ~COSClassInfo();
  virtual std::string getName() const = 0;
  virtual std::u16string getDescription() const { return {}; }
  virtual std::u16string getDetailedDescription() const { return {}; }
  virtual int getAccess() const { return kPublicAccess; }
  /// Adds the constructor, methods and properties; run once, when the class is first needed. If it raises,
  /// what it added is removed again, and it runs anew at the next look.
  virtual void defineMembers(COSClass& definedClass) = 0;
  /// One per object, owned by it. Not called when the class has no instance data.
  virtual void* createInstanceData() = 0;
  /// Run once per created instance data, also when the object's constructor raised. Errors it raises are
  /// dropped.
  virtual void destroyInstanceData(void* data) = 0;
  virtual bool isOkToDestroy() const { return true; }
  /// Whether objects of the class have instance data, which getInstanceData then gives.
  virtual bool hasInstanceData() const { return false; }
  virtual bool canThisClassContainOtherClass() const { return false; }
  virtual bool isSealed() const { return false; }
};

/// One namespace. It describes itself under its own name only; the dotted name follows from where it is
/// added.
class COSNamespaceInfo : public HostAllocated {
 public:
  virtual ~COSNamespaceInfo();
  virtual std::string getName() const = 0;
  virtual std::u16string getDescription() const { return {}; }
  virtual std::u16string getDetailedDescription() const { return {}; }
  /// The four attemptToLoad… operations may register a member that was looked for and not found, and answer
  /// whether they did. They are not asked again while one of them runs.
  virtual bool attemptToLoadInnerNamespace(COSNamespace&, std::string_view) { return false; }
  /// Raises the error for a second definition of a name. The object system raises its own
  /// (Corvan:ObjectSystem:NameAlreadyDefined) where this one returns.
  virtual void throwErrorForDefinitionOfExistingName(std::string_view) const {}
  virtual bool attemptToLoadClass(COSNamespace&, std::string_view) { return false; }
  virtual bool attemptToLoadFunction(COSNamespace&, std::string_view) { return false; }
  /// Asked for a class that attemptToLoadClass does not know.
  virtual bool attemptToLoadType(COSNamespace&, std::string_view) { return false; }
  virtual std::string getMethodSelector() const { return {}; }
  /// Registers the namespace's members; run once, when the namespace is first looked into. If it raises, what
  /// it registered is removed again, and it runs anew at the next look.
  virtual void populate(COSNamespace& holder) = 0;
  virtual bool isDestructible() const { return false; }
  virtual bool isLocked() const { return false; }
  virtual bool canLoadDynamicContent() const { return false; }
};

}  // namespace zobs
