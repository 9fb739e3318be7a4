#pragma once

#include <cstdint>

namespace orra {

class ObjectManager;

/// Names one object of a repository: which repository, and the object's identifier in its database.
class ObjectRef {
 public:
  ObjectRef(ObjectManager* manager, std::int64_t identifier) : manager_(manager), identifier_(identifier) {}
  ObjectManager* getObjectManager() const { return manager_; }
  std::int64_t identifier() const { return identifier_; }

 private:
  ObjectManager* manager_;
  std::int64_t identifier_;
};

/// An object that is read from a repository.
class ORM {
 public:
  explicit ORM(ObjectRef reference) : reference_(reference) {}
  const ObjectRef& getObjectReference() const { return reference_; }

 private:
  ObjectRef reference_;
};

}  // namespace orra
