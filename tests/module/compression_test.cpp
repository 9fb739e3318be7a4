#include "package/compression.h"

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "platform/export_file/relationship_types.h"
#include "platform/text/conversion.h"
#include "tests/support/session_fixture.h"

namespace orra::tavloxio {
namespace {

struct Record {
  const char *json, *read, *raised;
};

class CompressionRecord : public ::testing::Test {
 protected:
  static std::u16string compressionOf(const std::u16string& path) {
    const file::ScopedRef ref(file::OpenMode::Read, path);
    return readCompressionType(ref);
  }

  /// The name and the message of the JSON library's error; "" if there is none.
  static std::string raisedBy(const std::function<void()>& action) {
    try {
      action();
    } catch (const Poco::Exception& error) {
      return error.displayText();
    }
    return "";
  }

  support::SessionFixture sessions_;
};

TEST_F(CompressionRecord, IsPassedOnAsItIsOrFailsWithTheJsonLibrarysOwnError) {
  const Record kRecords[] = {
      {R"({"CompressionType": "deflate"})", "deflate", ""},
      {R"({"CompressionType": "größer ½"})", "größer ½", ""},
      {R"({"CompressionType": "", "other": [1, {}]})", "", ""},
      {R"({"CompressionType": 3})", "3", ""},
      {R"({"CompressionType": true})", "true", ""},
      {R"({"compressionType": "deflate"})", "", "Invalid access: Can not convert empty value."},
      {R"(["CompressionType"])", "", "Bad cast exception"},
      {R"({"CompressionType": )", "", "JSON Exception"},
  };
  for (const Record& record : kRecords) {
    const auto path =
        sessions_.writeWithPart("s.tavlox", tavlox::relationship_types::kCompression, record.json);
    std::u16string read;
    const std::string raised = raisedBy([&] { read = compressionOf(path); });
    EXPECT_EQ(fl::i18n::to_string(read), record.read) << record.json;
    EXPECT_EQ(raised.substr(0, std::string(record.raised).size()), record.raised) << record.json;
    EXPECT_EQ(raised.empty(), std::string(record.raised).empty()) << record.json << ": " << raised;
  }
}

TEST_F(CompressionRecord, IsTheFirstOfSeveral) {
  const auto path = sessions_.write("s.tavlox", [](tavlox::SessionWriter& session) {
    for (const std::string number : {"1", "2"}) {
      session.addPart(u"/c" + fl::i18n::to_ustring(number), u"application/json",
                      tavlox::relationship_types::kCompression, R"({"CompressionType": ")" + number + "\"}");
    }
  });
  EXPECT_EQ(compressionOf(path), u"1");
}

}  // namespace
}  // namespace orra::tavloxio
