#include "platform/export_file/session_writer.h"

#include <cmath>
#include <unordered_map>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

// A session on its way to disk: one run list, for each run a signals part and, if it has any, a part with its
// samples, and a few small parts. Runs and signals may come in any mixture, so all of these parts are open
// side by side and each keeps its last piece in memory; samples are long and come run by run, so they go
// straight through. The order of the parts in the package means nothing to
// readers.
namespace tavlox {
namespace {

using opc::model::Package;
using opc::model::Part;

// Of the form of sessions, not of this program.
constexpr char16_t kVersion[] = u"1.0";

/// Writes the fields of a record that are set as members of one JSON object. Refuses what the session could
/// not be read back with: a text that is not well-formed, a number that is not finite.
class RecordWriter {
 public:
  /// `path` is the session's, for errors.
  explicit RecordWriter(const std::u16string& path) : path_(path) {}

  template <class Record>
  std::string write(const Record& record) {
    json_.beginObject();
    orra::forEachField(record, [this](std::string_view name, const auto& value) { add(name, value); });
    return json_.endObject().take();
  }

 private:
  void add(std::string_view name, std::uint32_t number) { json_.member(name).value(std::int64_t{number}); }
  void add(std::string_view name, std::int32_t number) { json_.member(name).value(number); }

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

  void add(std::string_view name, const decltype(RunRecord::metadata)& entries) {
    // An empty object would be read back as no metadata, as its absence is.
    if (entries.empty()) return;
    json_.member(name).beginObject();
    for (const auto& [key, text] : entries) {
      requireWellFormed(name, key);
      add(key, text);
    }
    json_.endObject();
  }

  template <class Value>
  void add(std::string_view name, const std::optional<Value>& value) {
    if (value) add(name, *value);
  }

  template <class Character>
  void requireWellFormed(std::string_view name, const std::basic_string<Character>& text) const {
    if (!fl::i18n::is_well_formed(text)) opc::raise("export_file:session:IllFormedText", path_, name);
    // What readers refuse is not written: the error would come when the recording can no longer be repeated.
    if (bytesOf(text) > orra::kSessionLimits.memberBytes) {
      opc::raise("export_file:session:TextTooLong", path_, name);
    }
  }

  /// What the text takes in UTF-8.
  static std::size_t bytesOf(const std::string& text) { return text.size(); }
  static std::size_t bytesOf(const std::u16string& text) {
    std::size_t bytes = 0;
    for (const char16_t unit : text) {
      // A pair of surrogates takes four bytes in UTF-8, two for each half.
      const bool isHalfOfFour = unit >= 0xD800 && unit <= 0xDFFF;
      bytes += unit < 0x80 ? 1 : unit < 0x800 || isHalfOfFour ? 2 : 3;
    }
    return bytes;
  }

  const std::u16string& path_;
  fl::i18n::JsonWriter json_;
};

/// A part that holds a JSON array, written element by element in pieces of bounded size. The part's output
/// stream is opened with the first piece that is full, so that many small arrays can be written side by side.
class JsonArrayPart {
 public:
  explicit JsonArrayPart(Part part) : part_(std::move(part)) {}

  void add(std::string_view element) {
    constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
    if (!empty_) piece_ += ",\n";
    empty_ = false;
    piece_ += element;
    if (piece_.size() >= kPieceBytes) writeOut();
  }
  /// Ends the array; nothing may be added afterwards.
  void finish() {
    piece_ += "]\n";
    writeOut();
    output_.reset();
  }

 private:
  void writeOut() {
    if (output_ == nullptr) output_ = part_.getOutputStream();
    output_->write(piece_.data(), piece_.size());
    piece_.clear();
  }

  Part part_;
  std::shared_ptr<opc::OutputStream> output_;
  std::string piece_ = "[";
  bool empty_ = true;
};

/// What is kept of a run until the session is closed: some bytes, and what is not written of its signals.
struct Run {
  std::size_t number;  ///< its position in the run list, from 1
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

/// For parts that are small enough to be in memory.
void writeWhole(Part part, std::string_view data) { part.getOutputStream()->write(data.data(), data.size()); }

std::string compressionRecord(const std::u16string& type) {
  fl::i18n::JsonWriter json;
  return json.beginObject().member("CompressionType").value(type).endObject().take();
}

}  // namespace

/// Gone when the session is closed, which is how later calls are told apart.
struct SessionWriter::State {
  State(std::u16string target, Existing existing) : path(std::move(target)) { file.modify(path, existing); }

  Package& package() const { return file.getPackageImpl(); }
  Run& runOf(std::int32_t id);
  void finish();

  std::u16string path;
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

/// Writes what is known only now.
void SessionWriter::State::finish() {
  // In the order of the runs, so that the same recording gives the same package.
  if (runList) runList->finish();
  for (const std::int32_t id : runOrder) runOf(id).signals.finish();
  if (compressionType) {
    writeWhole(createLinkedPart(package(), relationship_types::kCompression, u"/session/compression.json",
                                u"application/vnd.tavlox.session-compression+json"),
               compressionRecord(*compressionType));
  }
  if (view) {
    writeWhole(createLinkedPart(package(), relationship_types::kView, u"/session/view.json",
                                u"application/vnd.tavlox.session-view+json"),
               *view);
  }
  if (thumbnail) {
    writeWhole(createLinkedPart(package(), relationship_types::kThumbnail, u"/session/thumbnail",
                                u"application/vnd.tavlox.session-thumbnail"),
               *thumbnail);
  }
  package().setCoreProperty(opc::model::CoreProperty::Version, kVersion);
}

SessionWriter::SessionWriter(const std::u16string& path, Existing existing) {
  if (existing == Existing::Refuse && fl::filesystem::exists(path)) {
    opc::raise("export_file:session:FileExists", path);
  }
  state_ = std::make_unique<State>(path, existing);
}

SessionWriter::~SessionWriter() = default;

void SessionWriter::setDescription(const std::u16string& description) {
  state().file.setDescription(description);
}

void SessionWriter::addRun(const RunRecord& run) {
  State& session = state();
  if (session.runs.contains(run.id)) opc::raise("export_file:session:DuplicateRun", session.path, run.id);
  // Made before anything is created: a run that is refused leaves no part behind.
  const std::string element = RecordWriter(session.path).write(run);
  if (!session.runList) {
    session.runList.emplace(createLinkedPart(session.package(), relationship_types::kRunData,
                                             u"/session/runs.json",
                                             u"application/vnd.tavlox.session-runs+json"));
  }
  // Identifiers may be negative or far apart; the number in the names of parts counts the runs.
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
  signals.add(RecordWriter(state().path).write(signal));
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
  // Linked last, so that no relationship leads to a part that was taken out again.
  link(package, relationship_types::kSamples, name);
}

void SessionWriter::close() {
  if (state_ == nullptr) return;
  // Whatever fails, there is nothing left to go on with.
  // Destroyed on the way out, which drops the unsaved package.
  const std::unique_ptr<State> session = std::move(state_);
  session->finish();
  session->file.closePackage();
}

SessionWriter::State& SessionWriter::state() const {
  if (state_ == nullptr) opc::raise("export_file:session:Closed");
  return *state_;
}

}  // namespace tavlox
