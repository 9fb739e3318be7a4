#include "hosts/cli/recorded_fields.h"

#include <algorithm>
#include <array>

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using samples::RecordedRun;
using samples::RecordedSignal;

// Elements of a piece: enough that making a piece costs little.
constexpr std::size_t kPiece = 1024;

using Place = std::array<HostArray, 3>;
using PlaceNames = std::array<std::u16string_view, 3>;

HostArray samplesPart(const RecordedRun& run) {
  return HostArray::charRow(run.samples ? run.samples->text() : u"");
}

/// An empty array with the fields of `records` and three more in front: fields cannot be added to an array.
HostArray wider(const HostArray& records, const PlaceNames& names, std::size_t count) {
  std::vector<std::u16string_view> all(names.begin(), names.end());
  all.insert(all.end(), records.fieldNames().begin(), records.fieldNames().end());
  return HostArray::structure(1, count, all);
}

void fill(HostArray& piece, std::size_t index, Place place, const HostArray& records, std::size_t element) {
  std::size_t field = 0;
  for (HostArray& value : place) piece.setField(index, field++, std::move(value));
  for (std::size_t i = 0; i < records.fieldNames().size(); ++i)
    piece.setField(index, field++, records.fieldAt(element, i));
}

}  // namespace

HostArray withPlace(const HostArray& record, const RecordedRun* run) {
  if (run == nullptr) return record;
  HostArray placed = wider(record, {u"RunID", u"RunOrderIndex", u"SamplesPart"}, 1);
  const Place place{HostArray::int32Scalar(run->id()), HostArray::int32Scalar(run->orderIndex),
                    samplesPart(*run)};
  fill(placed, 0, place, record, 0);
  return placed;
}

void forEachWithPlace(const HostArray& records, const samples::RecordedSession& session,
                      const std::u16string* onlyName, const std::function<void(const HostArray&)>& take) {
  const std::size_t count = records.elementCount();
  HostArray piece;
  std::size_t element = 0;
  const auto add = [&](Place place) {
    if (element % kPiece == 0)
      piece = wider(records, {u"RunID", u"SamplesPart", u"SamplesColumn"}, std::min(kPiece, count - element));
    fill(piece, element % kPiece, std::move(place), records, element);
    if (++element % kPiece == 0 || element == count) take(piece);
  };
  // The module answers run by run, as they stand in the run list, and within one in the order of the parts.
  for (const RecordedRun& run : session.runs()) {
    for (const RecordedSignal& signal : run.signals) {
      if (element == count) return;
      if (onlyName != nullptr && signal.name != *onlyName) continue;
      add({HostArray::int32Scalar(run.id()), samplesPart(run),
           HostArray::int32Scalar(static_cast<std::int32_t>(signal.column))});
    }
  }
  // Only if the file was changed between the two readings.
  while (element < count) add({});
}

}  // namespace tavlox::cli
