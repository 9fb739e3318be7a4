#include "platform/repository/obj_ref_array_json.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"
#include "platform/repository/json_rows.h"
#include "platform/repository/text_block.h"
#include "tests/support/memory.h"
#include "tests/support/raised.h"

using namespace orra;
using namespace std::string_literals;

namespace {

ObjRefArrayJSON loaded(const PartKind& kind, const std::string& json) {
  ObjRefArrayJSON array(kind);
  std::istringstream stream(json);
  array.load(stream);
  return array;
}

/// "kind, element, what is wrong", or nothing if it is sound.
std::string refusalOf(const PartKind& kind, const std::string& json) {
  const std::string raised = support::raisedBy([&] { loaded(kind, json); });
  const std::string identifier = "simulation_data_repository:sdr:InvalidSessionData(";
  return raised.starts_with(identifier)
             ? raised.substr(identifier.size(), raised.size() - identifier.size() - 1)
             : raised;
}

std::string nested(int levels, std::string_view innermost = "") {
  return R"([{"id":1,"x":)" + std::string(static_cast<std::size_t>(levels), '[') + std::string(innermost) +
         std::string(static_cast<std::size_t>(levels), ']') + "}]";
}

std::string signal(int id, std::string_view name) {
  return R"({"id":)" + std::to_string(id) + R"(,"runID":1,"name":")" + std::string(name) + R"("})";
}

/// `count` signals of about `bytes` bytes each, whose names hold what a careless scanner would stumble over.
std::string signalsPart(int count, std::size_t bytes, std::string_view trap = R"(}],[{\"\\)") {
  std::string json = "[";
  for (int id = 1; id <= count; ++id) {
    // Lengths that differ let the ends of windows fall on every kind of byte.
    std::string name(bytes + static_cast<std::size_t>(id * 7 % 31), 'n');
    name += trap;
    json += (id == 1 ? "" : " ,\n") + signal(id, name);
  }
  return json + "]\n";
}

}  // namespace

TEST(TextBlock, AnswersAlikeOnEveryProcessor) {
  std::string text;
  for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte * 167);
  for (std::size_t start = 0; start < text.size(); ++start) {
    const std::string_view part = std::string_view(text).substr(start, kBlockBytes);
    for (const auto& [byte, set] :
         {std::pair{'"', '\0'}, {'\\', '\0'}, {',', '\0'}, {'{', ' '}, {'}', ' '}}) {
      std::uint64_t expected = 0;
      for (std::size_t i = 0; i < part.size(); ++i) {
        if (static_cast<char>(part[i] | set) == byte) expected |= std::uint64_t{1} << i;
      }
      EXPECT_EQ(WordBlock(part).equal(byte, set), expected);
      EXPECT_EQ(TextBlock(part).equal(byte, set), expected);
    }
  }
}

TEST(ObjRefArrayJSON, RefusesWithKindElementAndMember) {
  struct Case {
    std::string json, refusal;
  };
  const Case kCases[] = {
      {"", "0, it is empty"},
      {"\xEF\xBB\xBF", "0, it is empty"},
      {"{}", "0, it is not a JSON array"},
      {R"([{"id":1,"name":"]}])", "0, it ends before its array does"},
      {"[]x", "0, something follows the array"},
      {"[,]", "1, it is not well-formed JSON"},
      {R"([{"id":1},])", "2, it is not well-formed JSON"},
      {R"([{"id":1},{"b":}])", "2, it is not well-formed JSON"},
      {R"([{"id":1},{"id":2,"x":01}])", "2, it has a number that is malformed or too large"},
      {"[{\"id\":1},{\"id\":2,\"x\":\"\xC0\xAF\"}]", "2, it is not well-formed UTF-8"},
      {R"([{"id":1},{"id":2,"x":"\ud800"}])", "2, it has a malformed text"},
      {nested(127), "1, it is nested more than 128 levels deep"},
      {"[{\"id\":1}," + std::string(200'000, '['), "2, it is nested more than 128 levels deep"},

      {R"([{"id":1},{}])", R"(2, "id" is missing)"},
      {R"([{"id":2147483648}])", R"(1, "id" must be an integer of 32 bits)"},
      {R"([{"id":null}])", R"(1, "id" must be an integer of 32 bits)"},
      {R"([{"id":1,"\u0069d":2}])", R"(1, "id" stands there twice)"},
      {R"([{"id":7},{"id":3},{"id":7},{"id":3}])", R"(3, an earlier element has its "id")"},
      {R"([{"id":1,"runNumber":-1}])", R"(1, "runNumber" must be an unsigned integer of 32 bits)"},
      {R"([{"id":1,"startTime":"0"}])", R"(1, "startTime" must be a number)"},
      {R"([{"id":1,"metadata":{"Tag":1}}])", R"(1, "metadata.Tag" must be a text)"},
      {R"([{"id":1,"metadata":{"Tag":"a","Tag":"a"}}])", R"(1, "metadata.Tag" stands there twice)"},
  };
  for (const Case& c : kCases)
    EXPECT_EQ(refusalOf(kRunListKind, c.json), "run list, " + c.refusal) << c.json.substr(0, 80);

  EXPECT_EQ(refusalOf(kSignalsPartKind, R"([{"id":1,"dimensions":[1,-1]}])"),
            R"(signals part, 1, "dimensions" must be a list of unsigned integers)");
  EXPECT_EQ(refusalOf(kSignalsPartKind, R"([{"id":1,"runID":"1"}])"),
            R"(signals part, 1, "runID" must be an integer of 32 bits)");
}

TEST(ObjRefArrayJSON, AcceptsWhatIsSound) {
  const std::string kSound[] = {
      "[]",
      "\xEF\xBB\xBF [ ] \r\n\t",
      R"([{"id":0,"startTime":0,"stopTime":1e300,"totalTime":-0.0,"runNumber":4294967295,"metadata":{"x":1}}])",
      R"([{"id":-0}])",
      R"([{"id":1,"unknown":null,"unknown":2,"deep":{"id":"x","id":"y"}}])",
      R"([{"id":1,"name":"\ud83d\ude00\u0000\"}],["}])",
      nested(126),
      nested(126, "1"),
      std::string(3'000'000, ' ') + R"([{"id":1}])" + std::string(3'000'000, '\n'),
  };
  for (const std::string& json : kSound) EXPECT_EQ(refusalOf(kRunListKind, json), "") << json.substr(0, 60);
}

// Windows are about 256 KiB: elements of many sizes put every kind of byte at their ends.
TEST(ObjRefArrayJSON, ElementsLieAcrossTheEndsOfWindows) {
  const std::pair<int, std::size_t> kParts[] = {
      {60'000, 40}, {3'000, 1'000}, {8, 400'000}, {5, 262'100}, {3, 1'000'000}};
  for (const auto& [count, bytes] : kParts) {
    // The second has an end of an object and the beginning of the next that are not those of elements.
    for (const std::string_view trap : {R"(}],[{\"\\)", R"(","x":[{},{}],"y":")"}) {
      const auto signals = loaded(kSignalsPartKind, signalsPart(count, bytes, trap));
      ASSERT_EQ(signals.size(), static_cast<std::size_t>(count)) << bytes;
      EXPECT_EQ(signals.getPropertyInt32(signals.size() - 1, strings::IDLower), count);
    }
  }
}

TEST(ObjRefArrayJSON, AFaultIsFoundInEveryWindow) {
  const std::string sound = signalsPart(40'000, 50);
  const auto refusalWith = [&](int id, const std::string& other) {
    std::string part = sound;
    const std::string member = R"("id":)" + std::to_string(id) + ",";
    return refusalOf(kSignalsPartKind, part.replace(part.find(member), member.size(), other));
  };
  for (const int id : {1, 9'000, 20'000, 39'999}) {
    EXPECT_EQ(refusalWith(id, R"("id":x,)"),
              "signals part, " + std::to_string(id) + ", it is not well-formed JSON");
  }
  EXPECT_EQ(refusalWith(39'999, R"("id":17,)"), R"(signals part, 39999, an earlier element has its "id")");
}

TEST(ObjRefArrayJSON, WhatIsTooLargeIsRefused) {
  constexpr std::size_t kMebi = std::size_t{1} << 20;
  std::string manyOnes;
  for (int i = 0; i < 131'072; ++i) manyOnes += ",1";
  const std::string twoLists =
      R"("dimensions":[1)" + manyOnes.substr(2) + R"(],"channel":[1)" + manyOnes.substr(2);
  const auto repeated = [](std::size_t count, std::string_view text) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
  };
  const std::string tooMany = "2, it has more than 1,048,576 values, separators and brackets";
  const std::pair<std::string, std::string> kParts[] = {
      {signal(1, std::string(kMebi, 'n')), ""},
      {signal(1, std::string(kMebi + 1, 'n')), R"(1, "name" is larger than 1 MiB)"},
      {R"({"id":1,"channel":[1)" + manyOnes + "]}", R"(1, "channel" is larger than 1 MiB)"},
      {signal(1, "") + R"(,{"id":2,"x":")" + std::string(15 * kMebi, 'x') + R"("})", ""},
      {signal(1, "") + ",{" + std::string(16 * kMebi, ' '), "2, it is larger than 16 MiB"},
      // Values are counted where they lie close together, and nowhere else.
      {R"({"id":1,)" + twoLists + R"(],"x":")" + repeated(5 * kMebi, "[,") + R"("},)" + signal(2, "") + ",{}",
       R"(3, "id" is missing)"},
      {signal(1, "") + R"(,{"id":2,"x":[)" + repeated(kMebi / 2, "1,") + "1]}", tooMany},
      {signal(1, "") + R"(,{"id":2,"x":[)" + repeated(kMebi, "1 ") + "1]}", tooMany},
      {signal(1, "") + R"(,{"id":2,"x":[)" + repeated(kMebi, "\"\"") + "]}", tooMany},
  };
  for (const auto& [elements, refusal] : kParts) {
    EXPECT_EQ(refusalOf(kSignalsPartKind, "[" + elements + "]"),
              refusal.empty() ? "" : "signals part, " + refusal);
  }
  EXPECT_EQ(refusalOf(kRunListKind, std::string(65 * kMebi, ' ') + "[]"),
            "run list, 0, it has more than 64 MiB of white space outside its array");
}

TEST(ObjRefArrayJSON, ALargeElementTakesLittleBesideItsValues) {
  std::string json;
  json.reserve(kSessionLimits.elementBytes);
  json = R"([{"id":1,"x":[)";
  // Numbers take the most beside the text itself, and texts are copied.
  for (int i = 0; i < 500'000; ++i) json += "1,";
  json.append(1, '"').append(kSessionLimits.elementBytes - json.size() - 100, 'x').append("\"]}]");
  const long before = support::peakKibibytes();
  // The allocator takes large blocks from the system at first, and from its own heap once it was given some
  // back.
  for (int time = 0; time < 2; ++time) {
    std::string_view rest = json;
    const auto read = [&rest](char* into, std::size_t count) {
      const std::size_t got = rest.copy(into, count);
      rest.remove_prefix(got);
      return got;
    };
    forEachRow(read, kRunListKind, [](std::size_t, const Row&) {});
  }
  EXPECT_LT(support::peakKibibytes() - before, (52 << 10) + support::kHeldBySanitizer);
}

TEST(ObjRefArrayJSON, TheStreamsErrorsPass) {
  struct Failing : std::stringbuf {
    using std::stringbuf::stringbuf;
    int_type underflow() override {
      return gptr() == egptr() ? throw std::runtime_error("the disk went away") : std::stringbuf::underflow();
    }
  } failing(R"([{"id":6},)");
  std::istream stream(&failing);
  ObjRefArrayJSON runs(kRunListKind);
  EXPECT_EQ(support::raisedBy([&] { runs.load(stream); }), "the disk went away");
}
