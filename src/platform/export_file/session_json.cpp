#include "platform/export_file/session_json.h"

#include <cmath>

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

namespace tavlox {
namespace {

/// The members of one object, in the order in which they are added.
class Members {
 public:
  explicit Members(const std::u16string& path) : path_(path) { json_.beginObject(); }

  void add(std::string_view name, std::int64_t number) { json_.member(name).value(number); }
  void add(std::string_view name, std::uint32_t number) { add(name, std::int64_t{number}); }
  void add(std::string_view name, std::int32_t number) { add(name, std::int64_t{number}); }

  void add(std::string_view name, double number) {
    if (!std::isfinite(number)) opc::raise("export_file:session:NotFinite", path_, name);
    json_.member(name).value(number);
  }

  template <class Character>
  void add(std::string_view name, const std::basic_string<Character>& text) {
    requireWellFormed(name, text);
    json_.member(name).value(text);
  }

  void add(std::string_view name, const std::vector<std::uint64_t>& numbers) {
    json_.member(name).beginArray();
    for (const std::uint64_t number : numbers) json_.value(number);
    json_.endArray();
  }

  void add(std::string_view name, const std::map<std::string, std::u16string>& texts) {
    json_.member(name).beginObject();
    for (const auto& [key, text] : texts) {
      requireWellFormed(name, key);
      add(key, text);
    }
    json_.endObject();
  }

  template <class Value>
  void add(std::string_view name, const std::optional<Value>& value) {
    if (value) add(name, *value);
  }

  std::string take() { return json_.endObject().take(); }

 private:
  template <class Character>
  void requireWellFormed(std::string_view name, const std::basic_string<Character>& text) const {
    if (!fl::i18n::is_well_formed(text)) opc::raise("export_file:session:IllFormedText", path_, name);
  }

  const std::u16string& path_;
  fl::i18n::JsonWriter json_;
};

}  // namespace

std::string toJson(const RunRecord& run, const std::u16string& path) {
  Members members(path);
  members.add("id", run.id);
  members.add("runClassName", run.runClassName);
  members.add("name", run.name);
  members.add("dateCreated", run.dateCreated);
  members.add("runNumber", run.runNumber);
  members.add("orderIndex", run.orderIndex);
  members.add("model", run.model);
  members.add("simMode", run.simMode);
  members.add("startTime", run.startTime);
  members.add("stopTime", run.stopTime);
  members.add("status", run.status);
  members.add("updateTime", run.updateTime);
  members.add("simTime", run.simTime);
  members.add("termTime", run.termTime);
  members.add("totalTime", run.totalTime);
  if (!run.metadata.empty()) members.add("metadata", run.metadata);
  return members.take();
}

std::string toJson(const SignalRecord& signal, const std::u16string& path) {
  Members members(path);
  members.add("id", signal.id);
  members.add("runID", signal.runID);
  members.add("name", signal.name);
  members.add("domainType", signal.domainType);
  members.add("description", signal.description);
  members.add("units", signal.units);
  members.add("displayUnits", signal.displayUnits);
  members.add("dataTypeLabel", signal.dataTypeLabel);
  members.add("complexity", signal.complexity);
  members.add("complexCoordSystem", signal.complexCoordSystem);
  members.add("sampleTime", signal.sampleTime);
  members.add("model", signal.model);
  members.add("displayBlockPath", signal.displayBlockPath);
  members.add("blockName", signal.blockName);
  members.add("portIndex", signal.portIndex);
  members.add("dimensions", signal.dimensions);
  members.add("channel", signal.channel);
  members.add("rootSource", signal.rootSource);
  members.add("timeSource", signal.timeSource);
  members.add("dataSource", signal.dataSource);
  return members.take();
}

}  // namespace tavlox
