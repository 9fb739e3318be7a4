#include "platform/recovery/session_form.h"

#include <algorithm>
#include <array>
#include <functional>
#include <istream>
#include <limits>
#include <streambuf>
#include <vector>

#include <simdjson.h>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/opc/core_properties.h"
#include "platform/recovery/finding.h"
#include "platform/repository/session_records.h"
#include "platform/text/conversion.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/limits.h"

// The form of a session's parts. Run list and signals parts are read by the same loader that answers queries,
// so that what is accepted here is what can be queried; only what this loader does not look at is checked by
// hand: that signals name runs that exist, and that the samples of a run have a column for each signal.
namespace tavlox::recovery {
namespace {

using fl::filesystem::InputFile;
using foundation::core::except::except_with_causes;
using foundation::core::except::raise;
using zip::Entry;
namespace types = relationship_types;

constexpr char16_t kCoreProperties[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";

// The order is that of checking, and callers sort by it: the run list before the signals, which name runs,
// and the signals before the samples, whose columns they explain. A prefix that ends in a slash is followed
// by a number, or by any name for user files.
constexpr Role kRoles[] = {
    {types::kRunData, u"application/vnd.tavlox.session-runs+json", u"/session/runs.json", u"", true},
    {types::kSignalsData, u"application/vnd.tavlox.session-signals+json", u"/session/signals/", u".json",
     false},
    {types::kSamples, u"text/csv", u"/session/data/", u".csv", false},
    {types::kCompression, u"application/vnd.tavlox.session-compression+json", u"/session/compression.json",
     u"", true},
    {types::kView, u"application/vnd.tavlox.session-view+json", u"/session/view.json", u"", true},
    {types::kThumbnail, u"application/vnd.tavlox.session-thumbnail", u"/session/thumbnail", u"", true},
    {kCoreProperties, u"application/vnd.openxmlformats-package.core-properties+xml", u"/docProps/core.xml",
     u"", true},
    {u"UserAssetsPartRelType", u"", u"/user/", u"", false},
};

/// The number in the name of a part: "3" in "/session/signals/3.json". Nothing if it is named otherwise.
std::optional<std::u16string> numberIn(std::u16string_view name, const Role& role) {
  if (!name.starts_with(role.namePrefix) || !name.ends_with(role.nameSuffix)) return std::nullopt;
  if (name.size() <= role.namePrefix.size() + role.nameSuffix.size()) return std::nullopt;
  name.remove_prefix(role.namePrefix.size());
  return std::u16string(name.substr(0, name.size() - role.nameSuffix.size()));
}

/// Lets a stream read the data of an entry.
class EntryBuffer : public std::streambuf {
 public:
  EntryBuffer(const std::shared_ptr<const InputFile>& file, const Entry& entry) : reader_(file, entry) {}

 private:
  // Errors of the reader pass through: the loader reads from the buffer and not from the stream.
  int_type underflow() override {
    const std::size_t got = reader_.read(block_.data(), block_.size());
    setg(block_.data(), block_.data(), block_.data() + got);
    return got == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

  zip::EntryReader reader_;
  std::vector<char> block_ = std::vector<char>(std::size_t{64} << 10);
};

/// Counts the faults of a list on their way to whoever tells them.
class Faults {
 public:
  Faults(const std::u16string& name, const SessionForm::Tell& tell) : name_(name), tell_(tell) {}

  bool none() const { return count_ == 0; }
  void operator()(const except_with_causes& fault) {
    if (count_++ == kMost) raise("recovery:check:MoreFaults", kMost, name_);
    tell_(Severity::Error, fault);
  }
  /// What readers let pass is no fault.
  void note(const except_with_causes& remark) {
    if (notes_++ < kMost) tell_(Severity::Note, remark);
  }

 private:
  // A part may have millions of elements, and a report of them all would be read by nobody.
  static constexpr std::size_t kMost = 1'000;

  const std::u16string& name_;
  const SessionForm::Tell& tell_;
  std::size_t count_ = 0, notes_ = 0;
};

/// Counts the cells of a comma-separated table, line by line. A line end in a quoted cell ends no line; lines
/// without anything in them are passed over.
class CellCount {
 public:
  void take(char byte) {
    // A doubled quote in a quoted cell turns this off and on again, which changes nothing.
    if (byte == '"') isQuoted_ = !isQuoted_;
    if (byte == '\n' && !isQuoted_) return endLine();
    if (byte == ',' && !isQuoted_) ++cells_;
    hasContent_ = hasContent_ || byte != '\r';
  }

  void endLine() {
    ++line_;
    if (hasContent_ && columns_ == 0) columns_ = cells_;
    if (hasContent_ && cells_ != columns_ && unevenLine_ == 0) unevenLine_ = line_;
    cells_ = 1;
    hasContent_ = false;
  }

  std::uint64_t columns() const { return columns_; }
  /// The first line, from 1, that has another number of cells than the heading; 0 if there is none.
  std::uint64_t unevenLine() const { return unevenLine_; }

 private:
  std::uint64_t line_ = 0, cells_ = 1, columns_ = 0, unevenLine_ = 0;
  bool isQuoted_ = false, hasContent_ = false;
};

/// Finds the end of a JSON object at the front of a text: past its brace, or 0 if it does not end there.
std::size_t endOfObject(std::string_view text) {
  // As deep, and with as many values, as the loader goes; the parser is then asked, which decides whether
  // this is an object at all.
  const orra::SessionLimits& limits = orra::kSessionLimits;
  int depth = 0;
  std::size_t separators = 0;
  bool isInText = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char byte = text[at];
    if (isInText && byte == '\\') ++at;
    if (byte == '"') isInText = !isInText;
    if (isInText) continue;
    if (byte == ',' && ++separators > limits.elementTokens) return 0;
    if (byte == '{' && ++depth > limits.nesting) return 0;
    if (byte == '}' && --depth == 0) return at + 1;
  }
  return 0;
}

std::optional<std::int64_t> integerIn(const simdjson::dom::element& object, std::string_view member) {
  std::int64_t number = 0;
  if (object[member].get(number) != simdjson::SUCCESS) return std::nullopt;
  return number;
}

}  // namespace

std::uint64_t forEachReadableElement(
    const std::shared_ptr<const InputFile>& file, const Entry& entry,
    const std::function<void(std::string_view, std::int64_t, std::optional<std::int64_t>)>& take) {
  // Data that breaks off has no structure to rely on, so every brace may begin an element: the text up to the
  // brace that closes it is given to the parser, and if that refuses, the search goes on one byte behind the
  // brace. The buffer holds two elements of the largest size, so that one is never cut by its end.
  constexpr std::size_t kLongest = orra::kSessionLimits.elementBytes;
  constexpr std::size_t kStep = std::size_t{256} << 10;
  Entry boundless = entry;  // its reader hands out everything before it says what is wrong
  boundless.size = std::numeric_limits<std::uint64_t>::max();
  zip::EntryReader reader(file, boundless);
  simdjson::dom::parser parser;
  std::string text;
  std::size_t at = 0;
  std::uint64_t count = 0, searched = 0, all = 0;
  bool isMore = true;
  const auto readOn = [&] {
    text.erase(0, std::exchange(at, 0));
    while (isMore && text.size() < 2 * kLongest) {
      const std::size_t before = text.size();
      text.resize(before + kStep);
      std::size_t got = 0;
      try {
        got = reader.read(text.data() + before, kStep);
      } catch (const opc::Exception&) {
        // The end of what can be read.
      }
      text.resize(before + got);
      all += got;
      isMore = got != 0;
    }
  };
  const auto takeObject = [&](std::string_view object) {
    simdjson::dom::element element;
    if (parser.parse(object.data(), object.size()).get(element) != simdjson::SUCCESS) return false;
    const auto id = integerIn(element, orra::strings::IDLower);
    if (!id) return false;
    take(object, *id, integerIn(element, "runID"));
    ++count;
    return true;
  };
  while (true) {
    if (isMore && text.size() - at < kLongest) readOn();
    at = std::min(text.find('{', at), text.size());
    if (at == text.size()) {
      if (!isMore) return count;
      continue;
    }
    const std::string_view rest = std::string_view(text).substr(at, kLongest);
    const std::size_t end = endOfObject(rest);
    searched += end == 0 ? rest.size() : end;
    // Of text that was chosen so that every brace begins something long, the rest is left alone.
    if (searched / 64 > all + kLongest) return count;
    at += end != 0 && takeObject(rest.substr(0, end)) ? end : 1;
  }
}

const Role* roleOfRelationship(std::u16string_view type) {
  const auto role = std::ranges::find(kRoles, type, &Role::relationshipType);
  return role == std::end(kRoles) ? nullptr : role;
}

const Role* roleOfPart(std::u16string_view name, std::u16string_view contentType) {
  for (const Role& role : kRoles) {
    const bool isNumbered = role.namePrefix.ends_with(u'/');
    if (isNumbered ? numberIn(name, role).has_value() : name == role.namePrefix) return &role;
  }
  // Tables are everywhere; being one makes no part the samples of a run.
  const auto role = std::ranges::find(kRoles, contentType, &Role::contentType);
  const bool tellsNothing =
      role == std::end(kRoles) || contentType.empty() || role->contentType == u"text/csv";
  return tellsNothing ? nullptr : role;
}

void SessionForm::audit(std::u16string_view type, const std::u16string& name, const Entry& entry,
                        const Tell& tell) {
  const Role* const role = roleOfRelationship(type);
  if (role == nullptr) return;
  // Signals and samples belong together by their number; a part that is named otherwise has only itself.
  const std::u16string number = numberIn(name, *role).value_or(name);
  try {
    // Types that are not here, such as the view, are opaque to this program.
    if (type == types::kRunData) auditRunList(name, entry, tell);
    if (type == types::kSignalsData) auditSignals(number, name, entry, tell);
    if (type == types::kSamples) checkSamples(number, name, entry);
    if (type == types::kCompression) checkCompression(entry);
    if (type == kCoreProperties) {
      const zip::Limits limits;
      const std::string narrowName = fl::i18n::to_string_lossy(name);
      // Asked for one property only to have the document parsed; the value does not matter.
      opc::coreProperty(zip::readWhole(file_, entry, limits.relationshipBytes),
                        opc::model::CoreProperty::Description, {file_->path(), narrowName}, limits.xmlDepth);
    }
  } catch (const except_with_causes& problem) {
    tell(Severity::Error, problem);
  }
}

void SessionForm::auditRunList(const std::u16string& name, const Entry& entry, const Tell& tell) {
  std::set<std::int32_t> ids;
  Faults faults(name, tell);
  EntryBuffer buffer(file_, entry);
  std::istream stream(&buffer);
  const auto visit = [&](std::size_t, const orra::RunRecord& run) {
    ids.insert(run.id);
    const std::u16string& samples = orra::textOf(run.samples);
    if (!hasPart_ || samples.empty() || hasPart_(samples)) return;
    faults.note(rule("recovery:check:NoSuchSamples", run.id, samples));
  };
  orra::auditRuns(stream, visit, std::ref(faults), {orra::strings::IDLower, "samples"});
  // The first counts.
  if (faults.none() && !runIds_) runIds_ = std::move(ids);
}

void SessionForm::auditSignals(const std::u16string& number, const std::u16string& name, const Entry& entry,
                               const Tell& tell) {
  Needs needs{.columns = 1, .lastColumn = 0};
  const auto visit = [&](std::size_t element, const orra::SignalRecord& signal) {
    ++needs.columns;
    needs.lastColumn = std::max(needs.lastColumn, signal.column.value_or(0));
    if (!runIds_ || runIds_->contains(signal.runID)) return;
    raise("simulation_data_repository:sdr:InvalidSessionData", orra::kSignalsPartKind.name, element,
          "\"runID\" is no run of the run list");
  };
  Faults faults(name, tell);
  EntryBuffer buffer(file_, entry);
  std::istream stream(&buffer);
  orra::auditSignals(stream, visit, std::ref(faults), {"runID", "column"});
  if (faults.none()) needs_[number] = needs;
}

void SessionForm::checkCompression(const Entry& entry) const {
  simdjson::dom::parser parser;
  simdjson::dom::element record;
  std::string_view type;
  const bool isRecord =
      parser.parse(zip::readWhole(file_, entry, orra::kSessionLimits.compressionRecordBytes)).get(record) ==
          simdjson::SUCCESS &&
      record["CompressionType"].get(type) == simdjson::SUCCESS;
  if (!isRecord) raise("recovery:check:CompressionRecord", entry.name);
}

void SessionForm::checkSamples(const std::u16string& number, const std::u16string& name,
                               const Entry& entry) const {
  CellCount count;
  zip::EntryReader reader(file_, entry);
  std::vector<char> block(std::size_t{64} << 10);
  while (const std::size_t got = reader.read(block.data(), block.size())) {
    for (std::size_t i = 0; i < got; ++i) count.take(block[i]);
  }
  // The last line may lack its line end.
  count.endLine();
  if (count.unevenLine() != 0)
    raise("recovery:check:UnevenSamples", name, count.unevenLine(), count.columns());
  // Without a sound signals part of that number nobody knows how many columns there ought to be.
  const auto needs = needs_.find(number);
  if (needs == needs_.end()) return;
  const auto& [columns, lastColumn] = needs->second;
  if (columns != count.columns()) {
    raise("recovery:check:SamplesDiffer", name, count.columns(), columns - 1);
  }
  if (lastColumn > columns) raise("samples:part:NoSuchColumn", file_->path(), name, lastColumn, columns);
}

}  // namespace tavlox::recovery
