#include "platform/export_file/session_writer.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <unordered_set>

#include <boost/iostreams/stream.hpp>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/filesystem.h"
#include "platform/repository/obj_ref_array_json.h"
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
  /// Goes on with an array that was begun: `begun` is its text without the closing bracket.
  JsonArrayPart(Part part, std::string begun, bool isEmpty)
      : part_(std::move(part)), piece_(std::move(begun)), empty_(isEmpty) {}

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

/// What is kept of a run until the session is closed: its record, and what is not written of its signals.
struct Run {
  std::size_t number;  ///< in the names of its parts
  RunRecord record;
  JsonArrayPart signals;
};

std::u16string numbered(std::u16string_view folder, std::size_t number, std::u16string_view extension) {
  return std::u16string(folder) + fl::i18n::to_ustring(std::to_string(number)) + std::u16string(extension);
}

std::u16string signalsName(std::size_t number) { return numbered(u"/session/signals/", number, u".json"); }
std::u16string samplesName(std::size_t number) { return numbered(u"/session/data/", number, u".csv"); }

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

/// All of the part, without what stands behind the last "]".
std::string openArrayIn(const Part& part) {
  std::string content(part.getSize(), '\0');
  const auto input = Part(part).getInputStream();
  // It was read before, for its identifiers.
  input->restart();
  std::size_t filled = 0;
  while (const std::size_t got = input->read(content.data() + filled, content.size() - filled)) filled += got;
  return content.substr(0, content.rfind(']'));
}

/// The elements' identifiers. Raises for a part that is not valid.
std::vector<std::int32_t> identifiersIn(const Part& part, const orra::PartKind& kind) {
  boost::iostreams::stream<opc::InputStreamSource> input{opc::InputStreamSource(part.getInputStream())};
  // Damaged data is an error with its own identifier, which the stream would swallow.
  input.exceptions(std::ios::badbit);
  orra::ObjRefArrayJSON elements(kind);
  elements.load(input);
  std::vector<std::int32_t> identifiers(elements.size());
  for (std::size_t index = 0; index < identifiers.size(); ++index)
    identifiers[index] = elements.getPropertyInt32(index, orra::strings::IDLower);
  return identifiers;
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
  State(std::u16string target, Existing existing) : path(std::move(target)), file(true) {
    file.modify(path, existing);
  }
  /// Opens what is there.
  explicit State(std::u16string target) : path(std::move(target)), file(false) {
    if (!fl::filesystem::exists(path)) throw opc::model::PackageNotFound(fl::i18n::to_string_lossy(path));
    file.modify(path);
    package().open(opc::interfaces::OpenMode::Modify);
    takeRuns();
    for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSignalsData))
      for (const std::int32_t id : identifiersIn(part, orra::kSignalsPartKind))
        highestSignalID = std::max(highestSignalID, id);
    isNew = false;
  }

  Package& package() const { return file.getPackageImpl(); }
  Run& runOf(std::int32_t id);
  bool hasRun(std::int32_t id) const { return runs.contains(id) || earlierRuns.contains(id); }
  std::size_t runCount() const { return runOrder.size() + earlierRuns.size(); }
  void takeRuns();
  std::size_t freeNumber() const;
  void finish();

  std::u16string path;
  DataExportFile file;
  bool isNew = true;
  std::unordered_set<std::int32_t> earlierRuns;  ///< of the package that is added to
  std::int32_t highestRunID = 0, highestSignalID = 0;
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

/// The runs of a package that is added to.
void SessionWriter::State::takeRuns() {
  const auto parts = file.getPartsByRelationshipType(relationship_types::kRunData);
  if (parts.empty()) return;
  // Of several run lists readers take the first.
  const auto identifiers = identifiersIn(parts.front(), orra::kRunListKind);
  earlierRuns.insert(identifiers.begin(), identifiers.end());
  for (const std::int32_t id : identifiers) highestRunID = std::max(highestRunID, id);
  runList.emplace(parts.front(), openArrayIn(parts.front()), identifiers.empty());
}

/// For the names of the next run's parts. Identifiers may be negative or far apart; this counts the runs, and
/// goes on past names that an earlier program gave in another way.
std::size_t SessionWriter::State::freeNumber() const {
  const auto isTaken = [&](const std::u16string& name) {
    return package().hasPart(opc::model::PartName(name));
  };
  std::size_t number = runCount() + 1;
  while (isTaken(signalsName(number)) || isTaken(samplesName(number))) ++number;
  return number;
}

/// Writes what is known only now.
void SessionWriter::State::finish() {
  // In the order of the runs, so that the same recording gives the same package.
  for (const std::int32_t id : runOrder) runList->add(RecordWriter(path).write(runOf(id).record));
  // Without a new run the list of a package that is added to stays as it is.
  if (!runOrder.empty()) runList->finish();
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
  if (isNew) package().setCoreProperty(opc::model::CoreProperty::Version, kVersion);
}

SessionWriter::SessionWriter(const std::u16string& path, Existing existing) {
  if (existing == Existing::Refuse && fl::filesystem::exists(path)) {
    opc::raise("export_file:session:FileExists", path);
  }
  state_ = std::make_unique<State>(path, existing);
}

SessionWriter::SessionWriter(std::unique_ptr<State> state) : state_(std::move(state)) {}
SessionWriter::SessionWriter(SessionWriter&&) noexcept = default;
SessionWriter::~SessionWriter() = default;

SessionWriter SessionWriter::append(const std::u16string& path) {
  return SessionWriter(std::make_unique<State>(path));
}

std::size_t SessionWriter::runCount() const { return state().runCount(); }
std::int32_t SessionWriter::highestRunID() const { return state().highestRunID; }
std::int32_t SessionWriter::highestSignalID() const { return state().highestSignalID; }

void SessionWriter::setDescription(const std::u16string& description) {
  state().file.setDescription(description);
}

void SessionWriter::addRun(const RunRecord& run) {
  State& session = state();
  if (session.hasRun(run.id)) opc::raise("export_file:session:DuplicateRun", session.path, run.id);
  // Written once before anything is created: a run that is refused leaves no part behind.
  RecordWriter(session.path).write(run);
  if (!session.runList) {
    session.runList.emplace(createLinkedPart(session.package(), relationship_types::kRunData,
                                             u"/session/runs.json",
                                             u"application/vnd.tavlox.session-runs+json"));
  }
  const std::size_t number = session.freeNumber();
  Part signals = createLinkedPart(session.package(), relationship_types::kSignalsData, signalsName(number),
                                  u"application/vnd.tavlox.session-signals+json");
  session.runs.emplace(run.id, Run{number, run, JsonArrayPart(std::move(signals))});
  session.runOrder.push_back(run.id);
  session.highestRunID = std::max(session.highestRunID, run.id);
}

void SessionWriter::changeRun(const RunRecord& run) {
  RunRecord& record = state().runOf(run.id).record;
  RecordWriter(state().path).write(run);
  std::optional<std::u16string> samples = std::move(record.samples);
  record = run;
  record.samples = std::move(samples);
}

void SessionWriter::addSignal(const SignalRecord& signal) {
  JsonArrayPart& signals = state().runOf(signal.runID).signals;
  signals.add(RecordWriter(state().path).write(signal));
  state().highestSignalID = std::max(state().highestSignalID, signal.id);
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
  Run& run = state().runOf(runID);
  const std::u16string name = samplesName(run.number);
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
  run.record.samples = name;
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
