#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <boost/function.hpp>

#include "platform/errors/exceptions.h"

namespace orra {

/// One private repository of runs and signals in a database file of its own, which nobody else opens. The
/// database is closed with the object; whoever owns the object removes the file.
///
/// Database failures carry the identifiers sqldb:ssdb:Locked (busy or locked), sqldb:ssdb:Corrupt (corrupt or
/// no database) and sqldb:ssdb:Failed (any other), each with the database's own text.
class ObjectManager {
 public:
  // Made empty: creating the database may fail, and the host wants that to be a call of its own.
  ObjectManager();
  ~ObjectManager();
  ObjectManager(const ObjectManager&) = delete;
  ObjectManager& operator=(const ObjectManager&) = delete;

  /// Creates the database, see DatabaseFile: in `folder` under `name`, both UTF-8, and what is empty is
  /// chosen. Called once. If it fails, no file stays behind.
  void initializeObjectManager(const std::string& folder, const std::string& name);

  /// The database file; empty before initialisation.
  std::u16string getDatabaseLocation() const;

  /// Runs the work in one transaction, in which all reads see one state, and commits it. What the work or the
  /// database raises is collected instead, and the transaction is rolled back: database failures and errors
  /// of the system with their own identifiers, other exceptions as sqldb:ssdb:Failed with their text.
  void safeTransaction(const boost::function<void()>& work, foundation::core::except::collection& errors);

  /// The database and its tables (platform/repository/table.h), for the classes of this folder. Raises
  /// simulation_data_repository:sdr:InternalError before initialisation.
  struct Tables;
  Tables& tables() const;

 private:
  std::unique_ptr<Tables> tables_;
};

/// Names one object of a repository: which repository, and the object's key in its table.
class ObjectRef {
 public:
  ObjectRef(ObjectManager* manager, std::int64_t key) : manager_(manager), key_(key) {}
  /// The repository must outlive whoever asks it through the reference; nothing keeps it alive.
  ObjectManager* getObjectManager() const { return manager_; }
  std::int64_t key() const { return key_; }

 private:
  ObjectManager* manager_;
  std::int64_t key_;
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
