#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <boost/function.hpp>

#include "platform/errors/exceptions.h"

namespace orra {

class Repository;

/// One private repository of runs and signals in a database file of its own, which nobody else opens. The
/// database is closed with the object; whoever owns the object removes the file.
///
/// Database failures carry the identifiers sqldb:ssdb:Locked (busy or locked), sqldb:ssdb:Corrupt (corrupt or
/// no database) and sqldb:ssdb:Failed (any other), each with the database's own text.
class ObjectManager {
 public:
  ObjectManager();
  ~ObjectManager();
  ObjectManager(const ObjectManager&) = delete;
  ObjectManager& operator=(const ObjectManager&) = delete;

  /// Creates the database: in `folder` under `name`, both UTF-8, and what is empty is
  /// chosen. A chosen folder is a private one (0700) below the system's temporary folder, in which the files
  /// of processes that died are swept first. A file that is there already is refused. Called once.
  void initializeObjectManager(const std::string& folder, const std::string& name);

  /// The database file; empty before initialisation.
  std::u16string getDatabaseLocation() const;

  /// Runs the work in one transaction, in which all reads see one state, and commits it. What the work or the
  /// database raises is collected instead, and the transaction is rolled back: database failures and errors
  /// of the system with their own identifiers, other exceptions as sqldb:ssdb:Failed with their text.
  void safeTransaction(const boost::function<void()>& work, foundation::core::except::collection& errors);

  /// The tables behind the objects, for the classes of this folder.
  Repository& repository();

 private:
  std::unique_ptr<Repository> repository_;
};

}  // namespace orra
