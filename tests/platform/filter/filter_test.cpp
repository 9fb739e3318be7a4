#include "platform/filter/filter.h"

#include <fstream>

#include <gtest/gtest.h>

#include "platform/sql/database.h"
#include "platform/text/conversion.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace tavlox::filter;

constexpr Field kFields[] = {
    {u"Name", Kind::Text}, {u"Step", Kind::Text}, {u"Stop", Kind::Number}, {u"Model", Kind::Text}};

// Rows 1 to 4. The last has nothing but a name with brackets.
const std::vector<std::vector<Value>> kRecords = {
    {u"wheel_FL", u"0.1", 10.0, u"car"},
    {u"wheel_FR", u"auto", 2.5, u"it's"},
    {u"motor", u" 1e1 ", 100.0, u"Ä\U0001F600"},
    {u"u[1]", u"", {}, u""},
};

struct Case {
  const char16_t* condition;
  const char* rows;  ///< of those that meet it
};
const Case kCases[] = {
    {u"Name = 'motor'", "3"},
    {u"NAME_is_no_field = 1 or", "filter:where:NoSuchField"},
    {u"Stop > 9", "13"},
    {u"Stop >= 10 and Stop <= 10", "1"},
    {u"Stop < 1e1", "2"},
    {u"Stop != 10", "234"},
    {u"not Stop < 50", "34"},  // what is empty is not below 50
    {u"Step > 0.5", "3"},      // a text that is no number is neither above nor below one
    {u"Step = 10 or Step = .1", "13"},
    {u"Step != 10", "124"},
    {u"Step > '0'", "12"},
    {u"Model = 'it''s'", "2"},
    {u"Model = \"it's\"", "2"},
    {u"Name like 'wheel*'", "12"},
    {u"Name like '*[?]'", "4"},
    {u"Name LIKE 'wheel_F?' AND NOT Name like '*L'", "2"},
    {u"Model like '?\?'", "3"},  // a pair of surrogates is one character; ??' would be a trigraph
    {u"Name in ('motor', 'u[1]')", "34"},
    {u"Stop not in (10, -2.5, +100)", "24"},
    {u"Step in (10, 'auto')", "23"},
    {u"Step is empty or Stop is empty", "4"},
    {u"Model is not empty", "123"},
    {u"Name = 'motor' or Name = 'wheel_FL' and Stop = 0", "3"},
    {u"(Name = 'motor' or Name = 'wheel_FL') and Stop = 10", "1"},
    {u"not (Stop = 10 or not Stop > 3)", "3"},
    {u"", "filter:where:Unexpected"},
    {u"Nme = 'x'", "filter:where:UnknownField"},
    {u"Stop = 'ten'", "filter:where:NumberNeeded"},
    {u"Stop like '1*'", "filter:where:TextNeeded"},
    {u"Stop = 1.2.3", "filter:where:NotANumber"},
    {u"Name = 'x", "filter:where:OpenQuote"},
    {u"Name = x", "filter:where:Unexpected"},
    {u"Name = 'x' Stop", "filter:where:Unexpected"},
    {u"(Name = 'x'", "filter:where:Unexpected"},
    {u"Name in ()", "filter:where:Unexpected"},
    {u"Stop ; 1", "filter:where:Unexpected"},
};

std::string inMemory(const Filter& filter) {
  std::string rows;
  for (std::size_t i = 0; i < kRecords.size(); ++i)
    if (filter.matches([&](std::size_t field) { return kRecords[i][field]; })) rows += std::to_string(i + 1);
  return rows;
}

/// A database with the records.
class Table {
 public:
  Table() : database_(folder_.write("db", "")) {
    database_.defineNumberOf("number_of", numberOf);
    database_.execute("CREATE TABLE records (a TEXT, b TEXT, c NUMERIC, d TEXT)");
    for (const auto& record : kRecords) select("INSERT INTO records VALUES (?, ?, ?, ?)", record);
  }

  std::string rows(const Filter& filter) {
    const std::string columns[] = {"a", "b", "c", "d"};
    const Filter::Sql sql = filter.sql(columns);
    return select("SELECT rowid FROM records WHERE " + sql.condition, sql.values);
  }

 private:
  std::string select(const std::string& sql, const std::vector<Value>& values) {
    orra::sql::Statement statement(database_, sql);
    std::vector<std::string> texts(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
      const int parameter = static_cast<int>(i) + 1;
      if (const auto* text = std::get_if<std::u16string>(&values[i]))
        statement.bind(parameter, texts[i] = fl::i18n::to_string(*text));
      else if (const auto* number = std::get_if<double>(&values[i]))
        statement.bind(parameter, *number);
    }
    std::string rows;
    while (statement.step()) rows += std::to_string(statement.integer(0));
    return rows;
  }

  support::TemporaryFolder folder_;
  orra::sql::Database database_;
};

TEST(Filter, IsTheSameInMemoryAndInADatabase) {
  Table table;
  for (const auto& [condition, expected] : kCases) {
    SCOPED_TRACE(fl::i18n::to_string(condition));
    std::string memory, database;
    const std::string error = support::ruleOf([&] {
      const Filter filter(condition, kFields);
      memory = inMemory(filter);
      database = table.rows(filter);
    });
    EXPECT_EQ(error.empty() ? memory : error, expected);
    EXPECT_EQ(memory, database);
  }
}

TEST(Filter, RefusesWhatADatabaseCouldNotTake) {
  const std::u16string deep(200, u'(');
  std::u16string most = u"Stop = 1";
  for (int i = 1; i < 500; ++i) most += u" or Stop = 1";
  const std::u16string wide = most + u" or Stop = 1";
  Table table;
  EXPECT_EQ(support::ruleOf([&] { Filter(deep, kFields); }), "filter:where:TooLong");
  EXPECT_EQ(support::ruleOf([&] { Filter(wide, kFields); }), "filter:where:TooLong");
  EXPECT_EQ(support::raisedBy([&] { table.rows(Filter(most, kFields)); }), "");
}

}  // namespace
