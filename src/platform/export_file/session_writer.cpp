#include "platform/export_file/session_writer.h"

#include <random>
#include <unordered_map>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/export_file/json_array_part.h"
#include "platform/export_file/relationship_types.h"
#include "platform/export_file/session_json.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

namespace tavlox {
namespace {

using opc::model::Package;
using opc::model::Part;

constexpr char16_t kVersion[] = u"1.0";

struct Run {
  std::size_t number;  ///< its place in the run list, from 1
  JsonArrayPart signals;
};

std::u16string numbered(std::u16string_view folder, std::size_t number, std::u16string_view extension) {
  return std::u16string(folder) + fl::i18n::to_ustring(std::to_string(number)) + std::u16string(extension);
}

Part createPart(Package& package, const std::u16string& name, std::u16string_view contentType) {
  return package.createPart(opc::model::PartName(name), opc::model::ContentType(contentType), {});
}

void link(Package& package, std::u16string_view type, const std::u16string& target) {
  package.createInternalRelationship(type, opc::model::URI(target), "");
}

Part createLinkedPart(Package& package, std::u16string_view type, const std::u16string& name,
                      std::u16string_view contentType) {
  Part part = createPart(package, name, contentType);
  link(package, type, name);
  return part;
}

void writeWhole(Part part, std::string_view data) { part.getOutputStream()->write(data.data(), data.size()); }

std::string compressionRecord(const std::u16string& type) {
  fl::i18n::JsonWriter json;
  return json.beginObject().member("CompressionType").value(type).endObject().take();
}

/// A name beside `path` that nobody else uses.
std::u16string temporaryBeside(const std::u16string& path) {
  using namespace fl::filesystem;
  std::random_device random;
  const std::string suffix = std::to_string(random()) + std::to_string(random());
  const std::u16string name = u"." + extract_filename(path) + u"." + fl::i18n::to_ustring(suffix) + u".new";
  return concatenate(extract_parent_path(path), name);
}

}  // namespace

struct SessionWriter::State {
  State(std::u16string target, std::u16string written)
      : path(std::move(target)), writtenPath(std::move(written)) {
    file.modify(writtenPath);
  }

  Package& package() const { return file.getPackageImpl(); }
  Run& runOf(std::int32_t id);

  std::u16string path;
  std::u16string writtenPath;  ///< not `path` when an existing file is replaced
  DataExportFile file{true};
  std::optional<JsonArrayPart> runList;
  std::unordered_map<std::int32_t, Run> runs;
  std::vector<std::int32_t> runOrder;
  std::optional<std::u16string> compressionType;
  std::optional<std::string> view, thumbnail;
};

Run& SessionWriter::State::runOf(std::int32_t id) {
  const auto run = runs.find(id);
  if (run == runs.end()) opc::raise("export_file:session:UnknownRun", path, id);
  return run->second;
}

SessionWriter::SessionWriter(const std::u16string& path, Existing existing) {
  if (!fl::filesystem::exists(path)) {
    state_ = std::make_unique<State>(path, path);
    return;
  }
  if (existing == Existing::Refuse) opc::raise("export_file:session:FileExists", path);
  // A link stays, and the file it leads to is replaced.
  const std::u16string target = fl::filesystem::weakly_canonical(path);
  state_ = std::make_unique<State>(target, temporaryBeside(target));
}

SessionWriter::~SessionWriter() = default;

void SessionWriter::setDescription(const std::u16string& description) {
  state().file.setDescription(description);
}

void SessionWriter::addRun(const RunRecord& run) {
  State& session = state();
  if (session.runs.contains(run.id)) opc::raise("export_file:session:DuplicateRun", session.path, run.id);
  const std::string element = toJson(run, session.path);
  if (!session.runList) {
    session.runList.emplace(createLinkedPart(session.package(), relationship_types::kRunData,
                                             u"/session/runs.json",
                                             u"application/vnd.tavlox.session-runs+json"));
  }
  const std::size_t number = session.runOrder.size() + 1;
  Part signals = createLinkedPart(session.package(), relationship_types::kSignalsData,
                                  numbered(u"/session/signals/", number, u".json"),
                                  u"application/vnd.tavlox.session-signals+json");
  session.runList->add(element);
  session.runs.emplace(run.id, Run{number, JsonArrayPart(std::move(signals))});
  session.runOrder.push_back(run.id);
}

void SessionWriter::addSignal(const SignalRecord& signal) {
  JsonArrayPart& signals = state().runOf(signal.runID).signals;
  signals.add(toJson(signal, state().path));
}

void SessionWriter::setCompressionType(const std::u16string& type) {
  if (!fl::i18n::is_well_formed(type)) {
    opc::raise("export_file:session:IllFormedText", state().path, "CompressionType");
  }
  state().compressionType = type;
}

void SessionWriter::setView(std::string_view json) { state().view = json; }
void SessionWriter::setThumbnail(std::string_view bytes) { state().thumbnail = bytes; }

void SessionWriter::addSamples(std::int32_t runID, const std::function<void(const Sink&)>& writeSamples) {
  Package& package = state().package();
  const std::u16string name = numbered(u"/session/data/", state().runOf(runID).number, u".csv");
  Part part = createPart(package, name, u"text/csv");
  try {
    const auto output = part.getOutputStream();
    writeSamples([&](std::string_view bytes) { output->write(bytes.data(), bytes.size()); });
  } catch (...) {
    package.deletePart(part.getName());  // half of the samples is worse than none
    throw;
  }
  link(package, relationship_types::kSamples, name);
}

void SessionWriter::addPart(const std::u16string& name, const std::u16string& contentType,
                            std::u16string_view relationshipType, std::string_view data) {
  writeWhole(createPart(state().package(), name, contentType), data);
  if (!relationshipType.empty()) link(state().package(), relationshipType, name);
}

void SessionWriter::close() {
  if (state_ == nullptr) return;
  // Whatever fails, there is nothing left to go on with.
  const std::unique_ptr<State> session = std::move(state_);
  finish(*session);
  session->file.closePackage();
  if (session->writtenPath != session->path)
    fl::filesystem::replace_file(session->writtenPath, session->path);
}

void SessionWriter::finish(State& session) {
  Package& package = session.package();
  if (session.runList) session.runList->finish();
  for (const std::int32_t id : session.runOrder) session.runOf(id).signals.finish();
  if (session.compressionType) {
    writeWhole(createLinkedPart(package, relationship_types::kCompression, u"/session/compression.json",
                                u"application/vnd.tavlox.session-compression+json"),
               compressionRecord(*session.compressionType));
  }
  if (session.view) {
    writeWhole(createLinkedPart(package, relationship_types::kView, u"/session/view.json",
                                u"application/vnd.tavlox.session-view+json"),
               *session.view);
  }
  if (session.thumbnail) {
    writeWhole(createLinkedPart(package, relationship_types::kThumbnail, u"/session/thumbnail",
                                u"application/vnd.tavlox.session-thumbnail"),
               *session.thumbnail);
  }
  package.setCoreProperty(opc::model::CoreProperty::Version, kVersion);
}

SessionWriter::State& SessionWriter::state() const {
  if (state_ == nullptr) opc::raise("export_file:session:Closed");
  return *state_;
}

}  // namespace tavlox
