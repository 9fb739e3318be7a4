#pragma once

#include <cstdint>
#include <string>

#include "platform/repository/database_file.h"
#include "platform/repository/run_table.h"
#include "platform/repository/signal_table.h"
#include "platform/repository/sql/database.h"

namespace orra {

/// One database with its tables and their prepared statements.
class Repository {
 public:
  /// Creates the database, see DatabaseFile. If that fails, no file stays behind.
  Repository(const std::string& folder, const std::string& name);

  const std::string& path() const { return file_.path(); }
  sql::Database& database() { return database_; }
  RunTable& runs() { return runs_; }
  SignalTable& signals() { return signals_; }

 private:
  DatabaseFile file_;
  sql::Database database_;
  RunTable runs_;
  SignalTable signals_;
};

/// An identifier that no run of this process had before, and another than the run has in its file.
std::int32_t newRunIdentifier(std::int32_t inFile);

}  // namespace orra
