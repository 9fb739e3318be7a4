#include "platform/repository/object_manager.h"

#include "platform/files/paths.h"
#include "platform/repository/table.h"

namespace orra {

using foundation::core::except::collection;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;
using foundation::core::except::raise;

namespace {

/// Adds the exception being handled.
void addCurrent(collection& errors, const std::string& path) {
  try {
    throw;
  } catch (const collection& thrown) {
    // Taken one by one, so that callers find the first error at the front whichever way it came.
    for (const except_with_causes& error : thrown.errors()) errors.add(error);
    if (thrown.empty()) errors.add("sqldb:ssdb:Failed", path, "the work failed without a reason");
  } catch (const except_with_causes& error) {
    errors.add(error);
  } catch (const IUserException& error) {
    errors.add(except_with_causes(error.GetID(), error.GetArguments()));
  } catch (const std::exception& error) {
    errors.add("sqldb:ssdb:Failed", path, error.what());
  } catch (...) {
    errors.add("sqldb:ssdb:Failed", path, "the work failed without a reason");
  }
}

}  // namespace

ObjectManager::ObjectManager() = default;
ObjectManager::~ObjectManager() = default;

ObjectManager::Tables::Tables(const std::string& folder, const std::string& name)
    : file(folder, name), database(file.path()), runs(database, "runs"), signals(database, "signals") {
  // Reached only if everything above succeeded: a failed opening leaves no file. From here the owner removes
  // it.
  file.keep();
}

void ObjectManager::initializeObjectManager(const std::string& folder, const std::string& name) {
  if (tables_ != nullptr) raise("simulation_data_repository:sdr:InternalError");
  tables_ = std::make_unique<Tables>(folder, name);
}

std::u16string ObjectManager::getDatabaseLocation() const {
  return tables_ == nullptr ? std::u16string() : fl::filesystem::fromNativeName(tables_->file.path());
}

void ObjectManager::safeTransaction(const boost::function<void()>& work, collection& errors) {
  try {
    sql::Transaction transaction(tables().database);
    // Left by an exception, the transaction rolls back before the error is collected.
    work();
    transaction.commit();
  } catch (...) {
    addCurrent(errors, tables_ == nullptr ? "" : tables_->file.path());
  }
}

ObjectManager::Tables& ObjectManager::tables() const {
  if (tables_ == nullptr) raise("simulation_data_repository:sdr:InternalError");
  return *tables_;
}

}  // namespace orra
