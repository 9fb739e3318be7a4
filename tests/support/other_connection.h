#pragma once

#include <filesystem>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace support {

/// A second connection to a database, as another program would have one.
class OtherConnection {
 public:
  OtherConnection(const std::filesystem::path& path, const char* sql) {
    EXPECT_EQ(sqlite3_open(path.c_str(), &handle_), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle_);
  }
  ~OtherConnection() { sqlite3_close(handle_); }
  OtherConnection(const OtherConnection&) = delete;
  OtherConnection& operator=(const OtherConnection&) = delete;

 private:
  sqlite3* handle_ = nullptr;
};

}  // namespace support
