#include "queries/signal_record.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/repository/signal_domain.h"
#include "queries/record_fields.h"

namespace orra::tavloxio {

using corvan::HostArray;
using corvan::TextPool;
using namespace std::string_view_literals;

namespace {

HostArray domain(const Signal& signal, TextPool& texts) {
  return texts.charRow(domainText(signal.getDomainType()));
}

HostArray runOrderIndex(const Signal& signal, TextPool&) {
  return HostArray::int32Scalar(signal.getRun()->getOrderIndex());
}
HostArray portIndex(const Signal& signal, TextPool&) { return HostArray::int32Scalar(signal.getPortIndex()); }

HostArray complexity(const Signal& signal, TextPool& texts) {
  // Anything but 1 is real, also what a later version may record.
  return texts.charRow(signal.getComplexity() == 1 ? u"complex"sv : u"real"sv);
}

HostArray complexFormat(const Signal& signal, TextPool& texts) {
  // Shown for real signals as well, whose coordinate system is mostly 0.
  switch (signal.getComplexCoordSystem()) {
    case 0:
      return texts.charRow(u"real-imaginary"sv);
    case 1:
      return texts.charRow(u"magnitude-phase"sv);
    case 2:
      return texts.charRow(u"magnitude"sv);
    case 3:
      return texts.charRow(u"phase"sv);
    default:
      return texts.charRow(std::u16string_view());
  }
}

/// The low 32 bits of each number.
HostArray int32Row(const std::vector<std::uint64_t>& numbers) {
  static const corvan::NumericClass int32 = corvan::numericClassByName("int32");
  HostArray row = HostArray::numeric(int32, 1, numbers.size());
  std::ranges::transform(numbers, row.mutableValues<std::int32_t>().begin(),
                         [](std::uint64_t number) { return static_cast<std::int32_t>(number); });
  return row;
}

HostArray dimensions(const Signal& signal, TextPool&) { return int32Row(signal.getDimensions()); }
HostArray channel(const Signal& signal, TextPool&) { return int32Row(signal.getChannel(false)); }

consteval std::uint32_t bitOf(std::string_view field) { return 1U << fieldIndex<SignalRecord>(field); }

// The order and the names are what scripts see.
const RecordField<Signal> kFields[] = {
    {u"Name", text<&Signal::getName>, bitOf("name")},
    {u"RunOrderIndex", runOrderIndex, bitOf("runID")},
    {u"Domain", domain, bitOf("domainType")},
    {u"Description", text<&Signal::getDescription>, bitOf("description")},
    {u"DisplayUnits", text<&Signal::getDisplayUnits>, bitOf("displayUnits")},
    {u"StoredUnits", text<&Signal::getUnits>, bitOf("units")},
    {u"DataType", text<&Signal::getDataTypeLabel>, bitOf("dataTypeLabel")},
    {u"Complexity", complexity, bitOf("complexity")},
    {u"ComplexFormat", complexFormat, bitOf("complexCoordSystem")},
    {u"SampleTime", text<&Signal::getSampleTimeString>, bitOf("sampleTime")},
    {u"Model", text<&Signal::getModel>, bitOf("model")},
    {u"FullBlockPath", text<&Signal::getDisplayBlockPath>, bitOf("displayBlockPath")},
    {u"BlockName", text<&Signal::getBlockName>, bitOf("blockName")},
    {u"PortIndex", portIndex, bitOf("portIndex")},
    {u"Dimensions", dimensions, bitOf("dimensions")},
    {u"Channel", channel, bitOf("channel")},
    {u"RootSource", text<&Signal::getRootSource>, bitOf("rootSource")},
    {u"TimeSource", text<&Signal::getTimeSource>, bitOf("timeSource")},
    {u"DataSource", text<&Signal::getDataSource>, bitOf("dataSource")},
};

/// Fills the records, one after the other: the repository reads one object at a time. Neighbours share what
/// is the same.
void fillRecords(HostArray& records, const Signals& signals) {
  TextPool texts;
  const std::span<HostArray> values = records.fieldValues();
  for (std::size_t index = 0; index < signals.size(); ++index) {
    const std::uint32_t repeated = index == 0 ? 0 : signals[index].repeatedFields(signals[index - 1]);
    std::size_t at = index;
    for (const RecordField<Signal>& field : kFields) {
      values[at] = (repeated & field.source) != 0 ? values[at - 1] : field.read(signals[index], texts);
      at += signals.size();
    }
  }
}

}  // namespace

HostArray signalRecords(const std::function<Signals()>& query) {
  // The query may have transactions of its own; this one covers the reading of all fields.
  const Signals signals = query();
  HostArray records = makeRecords(kFields, signals.size());
  // Without a signal there is no repository to ask.
  if (signals.empty()) return records;
  runTransaction(*signals.front().getObjectReference().getObjectManager(),
                 [&] { fillRecords(records, signals); });
  return records;
}

}  // namespace orra::tavloxio
