#pragma once

namespace orra::sql {

class Database;

/// One transaction, rolled back when it is left without a commit. Within another one it is a part of it that
/// can be rolled back alone. All reads between its first read and its end see one state.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Raises the database's failures; the transaction is then still to be rolled back.
  void commit();

 private:
  Database& database_;
  bool committed_ = false;
};

}  // namespace orra::sql
