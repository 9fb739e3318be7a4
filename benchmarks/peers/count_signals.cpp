// Counts the runs and signals of a session without keeping them: a part is read and parsed event by event.

#include <cstdio>
#include <string_view>

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "archive.h"

namespace {

struct CountObjects : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, CountObjects> {
  bool StartObject() {
    if (depth++ == 1) ++objects;
    return true;
  }
  bool EndObject(rapidjson::SizeType /*members*/) { return --depth, true; }
  bool StartArray() { return ++depth, true; }
  bool EndArray(rapidjson::SizeType /*elements*/) { return --depth, true; }

  int depth = 0;
  long objects = 0;  ///< the elements of the outermost array
};

long countObjects(std::string& text) {
  CountObjects counter;
  rapidjson::InsituStringStream stream(text.data());
  constexpr auto kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseValidateEncodingFlag;
  const auto result = rapidjson::Reader().Parse<kFlags>(stream, counter);
  if (!result) throw std::runtime_error(rapidjson::GetParseError_En(result.Code()));
  return counter.objects;
}

}  // namespace

int main(int /*count*/, char** words) {
  const Archive archive(words[1]);
  long runs = 0;
  long signals = 0;
  std::string text;
  for (zip_int64_t i = 0; i < archive.size(); ++i) {
    const zip_stat_t entry = archive.entry(i);
    const std::string_view name = entry.name;
    const bool isRuns = name == "session/runs.json";
    if (!isRuns && !name.starts_with("session/signals/")) continue;
    archive.read(entry, text);
    (isRuns ? runs : signals) += countObjects(text);
  }
  std::printf("%ld runs, %ld signals\n", runs, signals);
}
