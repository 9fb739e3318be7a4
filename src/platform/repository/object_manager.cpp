#include "platform/repository/object_manager.h"

#include "platform/files/paths.h"
#include "platform/repository/repository.h"
#include "platform/repository/sql/transaction.h"

namespace orra {

using foundation::core::except::collection;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;

namespace {

/// Adds the exception being handled.
void addCurrent(collection& errors, const std::string& path) {
  try {
    throw;
  } catch (const collection& thrown) {
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

void ObjectManager::initializeObjectManager(const std::string& folder, const std::string& name) {
  if (repository_ != nullptr) foundation::core::except::raise("simulation_data_repository:sdr:InternalError");
  repository_ = std::make_unique<Repository>(folder, name);
}

std::u16string ObjectManager::getDatabaseLocation() const {
  return repository_ == nullptr ? std::u16string() : fl::filesystem::fromNativeName(repository_->path());
}

void ObjectManager::safeTransaction(const boost::function<void()>& work, collection& errors) {
  try {
    sql::Transaction transaction(repository().database());
    work();
    transaction.commit();
  } catch (...) {
    addCurrent(errors, repository_ == nullptr ? "" : repository_->path());
  }
}

Repository& ObjectManager::repository() {
  if (repository_ == nullptr) foundation::core::except::raise("simulation_data_repository:sdr:InternalError");
  return *repository_;
}

}  // namespace orra
