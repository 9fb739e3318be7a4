#include "hosts/cli/recorded_fields.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using samples::RunPlace;

// Elements of a piece: enough that making a piece costs little.
constexpr std::size_t kPiece = 1024;

using Place = std::array<HostArray, 3>;
using PlaceNames = std::array<std::u16string_view, 3>;

HostArray samplesPart(const RunPlace& run) {
  return HostArray::charRow(run.samples ? run.samples->text() : u"");
}

/// An array with the fields of `records` and three more in front: fields cannot be added to an array.
HostArray wider(const HostArray& records, const PlaceNames& names, std::size_t count) {
  std::vector<std::u16string_view> all(names.begin(), names.end());
  all.insert(all.end(), records.fieldNames().begin(), records.fieldNames().end());
  return HostArray::structure(1, count, all);
}

/// Fills the fields behind the three with those of as many records from `first` on.
void fill(HostArray& piece, const HostArray& records, std::size_t first) {
  auto to = piece.fieldValues().subspan(std::tuple_size_v<Place> * piece.elementCount()).begin();
  for (std::size_t field = 0; field < records.fieldNames().size(); ++field)
    to = std::ranges::copy(records.fieldValues(field).subspan(first, piece.elementCount()), to).out;
}

void setPlace(HostArray& piece, std::size_t index, Place place) {
  std::size_t field = 0;
  for (HostArray& value : place) piece.setField(index, field++, std::move(value));
}

using IdByOrder = std::pair<std::int32_t, std::int32_t>;

std::vector<IdByOrder> idsByOrder(const samples::SessionPlaces& session) {
  std::vector<IdByOrder> ids;
  for (const RunPlace& run : session.runs()) ids.emplace_back(run.orderIndex, run.id);
  std::ranges::sort(ids);
  return ids;
}

/// The place of a signal that has no samples.
Place placeByOrder(const std::vector<IdByOrder>& ids, const HostArray& orderIndex) {
  const auto order = static_cast<std::int32_t>(orderIndex.scalarAsDouble());
  const auto found = std::ranges::lower_bound(ids, order, {}, &IdByOrder::first);
  if (found == ids.end() || found->first != order) return {};
  return {HostArray::int32Scalar(found->second), HostArray::charRow({}), HostArray::int32Scalar(0)};
}

}  // namespace

const HostArray& RunPlacer::withPlace(HostArray record, const RunPlace& run) {
  if (placed_.isEmpty()) placed_ = wider(record, {u"RunID", u"RunOrderIndex", u"SamplesPart"}, 1);
  const std::span<HostArray> values = placed_.fieldValues();
  Place place{HostArray::int32Scalar(run.id), HostArray::int32Scalar(run.orderIndex), samplesPart(run)};
  std::ranges::move(place, values.begin());
  std::ranges::move(record.fieldValues(), values.begin() + place.size());
  return placed_;
}

void forEachWithPlace(const HostArray& records, const samples::SessionPlaces& session,
                      const std::function<void(const HostArray&)>& take) {
  const std::size_t count = records.elementCount();
  HostArray piece;
  std::size_t element = 0;
  const auto add = [&](Place place) {
    if (element % kPiece == 0) {
      piece = wider(records, {u"RunID", u"SamplesPart", u"SamplesColumn"}, std::min(kPiece, count - element));
      fill(piece, records, element);
    }
    setPlace(piece, element % kPiece, std::move(place));
    if (++element % kPiece == 0 || element == count) take(piece);
  };
  // The module answers run by run, as they stand in the run list, and within one in the order of the parts.
  for (const RunPlace& run : session.runs()) {
    for (const RunPlace::Signal& signal : run.signals) {
      if (element == count) return;
      if (!signal.isAsked) continue;
      add({HostArray::int32Scalar(run.id), samplesPart(run),
           HostArray::int32Scalar(static_cast<std::int32_t>(signal.column))});
    }
  }
  if (!session.hasSignals()) {
    const std::vector<IdByOrder> ids = idsByOrder(session);
    while (element < count) add(placeByOrder(ids, records.fieldAt(element, u"RunOrderIndex")));
  }
  // Only if the file was changed between the two readings.
  while (element < count) add({});
}

}  // namespace tavlox::cli
