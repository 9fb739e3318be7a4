#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/zobs/class.h"
#include "platform/zobs/class_info.h"
#include "platform/zobs/method_info.h"
#include "platform/zobs/namespace.h"
#include "platform/zobs/namespace_info.h"

/// A module's infos, with what they do given by each test.
namespace infos {

/// How many infos are alive: what the object system has taken over and not freed again.
inline int alive = 0;

struct CountsItself {
  CountsItself() { ++alive; }
  ~CountsItself() { --alive; }
  CountsItself(const CountsItself&) = delete;
  CountsItself& operator=(const CountsItself&) = delete;
};

class Namespace : public zobs::COSNamespaceInfo, CountsItself {
 public:
  using Populate = std::function<void(zobs::COSNamespace&)>;
  explicit Namespace(
      std::string name, Populate populating = [](zobs::COSNamespace&) {})
      : name_(std::move(name)), populate_(std::move(populating)) {}
  std::string getName() const override { return name_; }
  void populate(zobs::COSNamespace& holder) override { populate_(holder); }

 private:
  std::string name_;
  Populate populate_;
};

class Class : public zobs::COSClassInfo, CountsItself {
 public:
  using Define = std::function<void(zobs::COSClass&)>;
  explicit Class(
      std::string name, Define define = [](zobs::COSClass&) {})
      : name_(std::move(name)), define_(std::move(define)) {}
  std::string getName() const override { return name_; }
  void defineMembers(zobs::COSClass& definedClass) override { define_(definedClass); }
  void* createInstanceData() override { return create(); }
  void destroyInstanceData(void* data) override { destroy(data); }
  bool hasInstanceData() const override { return create != nullptr; }

  std::function<void*()> create;
  std::function<void(void*)> destroy;

 private:
  std::string name_;
  Define define_;
};

/// What one call of a method received, and the slots it may fill.
struct Call {
  std::span<const zobs::Value> inputs;
  zobs::Value* outputs;
  int& produced;
};

class Method : public zobs::COSMethodInfo, CountsItself {
 public:
  using Body = std::function<void(Call)>;
  Method(
      std::string_view name, std::vector<std::string> inputs, std::vector<std::string> outputs,
      Body body = [](Call) {}, std::size_t optional = 0)
      : name_(zobs::internal::makeInterned(name)), body_(std::move(body)) {
    for (const auto& type : inputs) signature_.addInputType(zobs::internal::makeInterned(type));
    for (const auto& type : outputs) signature_.addOutputType(zobs::internal::makeInterned(type));
    signature_.setOptionalInputCount(optional);
  }
  const zobs::Interned* getName() const override { return &name_; }
  const zobs::COSMethodSignature& getSignature() const override { return signature_; }
  int getMemberAccess() const override { return access; }
  void invoke(zobs::COSClient&, int* produced, zobs::Value* outputs, int,
              std::span<const zobs::Value> inputs) override {
    body_({inputs, outputs, *produced});
  }

  int access = zobs::kPublicAccess;

 private:
  zobs::Interned name_;
  zobs::COSMethodSignature signature_;
  Body body_;
};

/// A top-level namespace, registered.
inline zobs::COSNamespace& registered(const std::string& name, Namespace::Populate populate) {
  zobs::COSNamespace::addNamespace(new Namespace(name, std::move(populate)));
  return *zobs::COSNamespace::getNamespace(zobs::internal::makeInterned(name));
}

}  // namespace infos
