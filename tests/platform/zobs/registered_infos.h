#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/zobs/namespace.h"

/// A module's infos, with what they do given by each test.
namespace infos {

/// How many infos are alive: what the object system has taken over and not freed again.
inline int alive = 0;

struct Counted {
  Counted() { ++alive; }
  ~Counted() { --alive; }
  Counted(const Counted&) = delete;
};

struct Namespace : zobs::COSNamespaceInfo, Counted {
  using Populate = std::function<void(zobs::COSNamespace&)>;
  explicit Namespace(std::string name, Populate populate = {}) : name_(name), populate_(populate) {}
  std::string getName() const override { return name_; }
  void populate(zobs::COSNamespace& holder) override {
    if (populate_) populate_(holder);
  }
  std::string name_;
  Populate populate_;
};

struct Class : zobs::COSClassInfo, Counted {
  using Define = std::function<void(zobs::COSClass&)>;
  explicit Class(std::string name, Define define = {}) : name_(name), define_(define) {}
  std::string getName() const override { return name_; }
  void defineMembers(zobs::COSClass& definedClass) override {
    if (define_) define_(definedClass);
  }
  void* createInstanceData() override { return create(); }
  void destroyInstanceData(void* data) override { destroy(data); }
  bool hasInstanceData() const override { return create != nullptr; }
  std::function<void*()> create;
  std::function<void(void*)> destroy;
  std::string name_;
  Define define_;
};

struct Method : zobs::COSMethodInfo, Counted {
  using Types = std::vector<std::string>;
  /// Fills the slots of the outputs and gives how many it filled.
  using Body = std::function<int(std::span<const zobs::Value> inputs, zobs::Value* outputs)>;
  explicit Method(std::string_view name, const Types& inputs = {}, const Types& outputs = {}, Body body = {})
      : name_(zobs::internal::makeInterned(name)), body_(body) {
    for (const auto& type : inputs) signature.addInputType(zobs::internal::makeInterned(type));
    for (const auto& type : outputs) signature.addOutputType(zobs::internal::makeInterned(type));
  }
  const zobs::Interned* getName() const override { return &name_; }
  const zobs::COSMethodSignature& getSignature() const override { return signature; }
  int getMemberAccess() const override { return access; }
  void invoke(zobs::COSClient&, int* produced, zobs::Value* outputs, int,
              std::span<const zobs::Value> inputs) override {
    *produced = body_(inputs, outputs);
  }
  int access = zobs::kPublicAccess;
  zobs::COSMethodSignature signature;
  zobs::Interned name_;
  Body body_;
};

/// A top-level namespace, registered.
inline zobs::COSNamespace& registered(const std::string& name, Namespace::Populate populate = {}) {
  zobs::COSNamespace::addNamespace(new Namespace(name, populate));
  return *zobs::COSNamespace::getNamespace(name);
}

}  // namespace infos
