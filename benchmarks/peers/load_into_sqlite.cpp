// Loads the signals of a session into a table, one column a member, to answer questions from it: each part
// into a RapidJSON document, each of its elements into a row. usage: load_into_sqlite SESSION DATABASE

#include <cstdio>
#include <string_view>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sqlite3.h>

#include "archive.h"

namespace {

const char* const kColumns[] = {"id",
                                "runID",
                                "name",
                                "domainType",
                                "description",
                                "units",
                                "displayUnits",
                                "model",
                                "complexity",
                                "dataTypeLabel",
                                "complexCoordSystem",
                                "sampleTime",
                                "blockName",
                                "displayBlockPath",
                                "rootSource",
                                "timeSource",
                                "dataSource",
                                "portIndex",
                                "dimensions",
                                "channel"};
constexpr int kColumnCount = std::size(kColumns);

class Table {
 public:
  explicit Table(const char* path) {
    check(sqlite3_open(path, &database_));
    // A copy of a file that can be loaded again need not survive a loss of power.
    execute("PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF; BEGIN");
    std::string names;
    std::string values;
    for (const char* column : kColumns) {
      names += names.empty() ? column : std::string(", ") + column;
      values += values.empty() ? "?" : ", ?";
    }
    execute(("CREATE TABLE signals (" + names + ")").c_str());
    const std::string insert = "INSERT INTO signals VALUES (" + values + ")";
    check(sqlite3_prepare_v2(database_, insert.c_str(), -1, &insert_, nullptr));
  }
  Table(const Table&) = delete;
  ~Table() {
    sqlite3_finalize(insert_);
    sqlite3_close(database_);
  }

  void insert(const rapidjson::Value& signal) {
    for (int i = 0; i < kColumnCount; ++i) {
      const auto member = signal.FindMember(kColumns[i]);
      if (member == signal.MemberEnd())
        check(sqlite3_bind_null(insert_, i + 1));
      else
        bind(i + 1, member->value);
    }
    check(sqlite3_step(insert_));
    check(sqlite3_reset(insert_));
  }

  void finish() { execute("COMMIT"); }

 private:
  void bind(int column, const rapidjson::Value& value) {
    if (value.IsInt64()) return check(sqlite3_bind_int64(insert_, column, value.GetInt64()));
    if (value.IsString()) return bindText(column, value.GetString(), value.GetStringLength(), SQLITE_STATIC);
    rapidjson::StringBuffer json;
    rapidjson::Writer writer(json);
    value.Accept(writer);
    bindText(column, json.GetString(), json.GetSize(), SQLITE_TRANSIENT);
  }
  void bindText(int column, const char* text, std::size_t size, sqlite3_destructor_type lifetime) {
    check(sqlite3_bind_text64(insert_, column, text, size, lifetime, SQLITE_UTF8));
  }

  void execute(const char* statements) {
    check(sqlite3_exec(database_, statements, nullptr, nullptr, nullptr));
  }
  void check(int code) {
    if (code != SQLITE_OK && code != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(database_));
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

}  // namespace

int main(int /*count*/, char** words) {
  const Archive archive(words[1]);
  Table table(words[2]);
  std::string text;
  for (zip_int64_t i = 0; i < archive.size(); ++i) {
    const zip_stat_t entry = archive.entry(i);
    if (!std::string_view(entry.name).starts_with("session/signals/")) continue;
    archive.read(entry, text);
    rapidjson::Document part;
    part.ParseInsitu(text.data());
    if (part.HasParseError() || !part.IsArray()) throw std::runtime_error(entry.name);
    for (const rapidjson::Value& signal : part.GetArray()) table.insert(signal);
  }
  table.finish();
}
