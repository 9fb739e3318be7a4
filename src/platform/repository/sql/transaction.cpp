#include "platform/repository/sql/transaction.h"

#include <sqlite3.h>

#include "platform/repository/sql/database.h"

namespace orra::sql {

Transaction::Transaction(Database& database) : database_(database) {
  database_.resetStatements();
  // A savepoint that is not inside a transaction is one.
  database_.execute("SAVEPOINT work");
}

Transaction::~Transaction() {
  if (committed_) return;
  database_.resetStatements();
  // Refused only where the database has rolled everything back of its own accord, as on a full disk.
  sqlite3_exec(database_.handle(), "ROLLBACK TO work; RELEASE work", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  // A statement that is still on a row would keep the database locked.
  database_.resetStatements();
  database_.execute("RELEASE work");
  committed_ = true;
}

}  // namespace orra::sql
