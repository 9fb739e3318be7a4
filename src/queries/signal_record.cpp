#include "queries/signal_record.h"

#include <algorithm>

#include "platform/repository/signal_domain.h"
#include "queries/record_fields.h"

namespace orra::tavloxio {

using corvan::HostArray;
using namespace std::string_view_literals;

namespace {

HostArray domain(const Signal& signal, FieldTexts& texts) {
  return texts.value(domainText(signal.getDomainType()));
}

HostArray runOrderIndex(const Signal& signal, FieldTexts&) {
  return HostArray::int32Scalar(signal.getRun()->getOrderIndex());
}
HostArray portIndex(const Signal& signal, FieldTexts&) {
  return HostArray::int32Scalar(signal.getPortIndex());
}

HostArray complexity(const Signal& signal, FieldTexts& texts) {
  // Anything but 1 is real, also what a later version may record.
  return texts.value(signal.getComplexity() == 1 ? u"complex"sv : u"real"sv);
}

HostArray complexFormat(const Signal& signal, FieldTexts& texts) {
  // Shown for real signals as well, whose coordinate system is mostly 0.
  switch (signal.getComplexCoordSystem()) {
    case 0:
      return texts.value(u"real-imaginary"sv);
    case 1:
      return texts.value(u"magnitude-phase"sv);
    case 2:
      return texts.value(u"magnitude"sv);
    case 3:
      return texts.value(u"phase"sv);
    default:
      return texts.value(std::u16string_view());
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

HostArray dimensions(const Signal& signal, FieldTexts&) { return int32Row(signal.getDimensions()); }
HostArray channel(const Signal& signal, FieldTexts&) { return int32Row(signal.getChannel(false)); }

// The order and the names are what scripts see.
const RecordField<Signal> kFields[] = {
    {u"Name", text<&Signal::getName>},
    {u"RunOrderIndex", runOrderIndex},
    {u"Domain", domain},
    {u"Description", text<&Signal::getDescription>},
    {u"DisplayUnits", text<&Signal::getDisplayUnits>},
    {u"StoredUnits", text<&Signal::getUnits>},
    {u"DataType", text<&Signal::getDataTypeLabel>},
    {u"Complexity", complexity},
    {u"ComplexFormat", complexFormat},
    {u"SampleTime", text<&Signal::getSampleTimeString>},
    {u"Model", text<&Signal::getModel>},
    {u"FullBlockPath", text<&Signal::getDisplayBlockPath>},
    {u"BlockName", text<&Signal::getBlockName>},
    {u"PortIndex", portIndex},
    {u"Dimensions", dimensions},
    {u"Channel", channel},
    {u"RootSource", text<&Signal::getRootSource>},
    {u"TimeSource", text<&Signal::getTimeSource>},
    {u"DataSource", text<&Signal::getDataSource>},
};

}  // namespace

HostArray signalRecords(const std::function<Signals()>& query) {
  // The query may have transactions of its own; this one covers the reading of all fields.
  const Signals signals = query();
  HostArray records = makeRecords(kFields, signals.size());
  // Without a signal there is no repository to ask.
  if (signals.empty()) return records;
  runTransaction(*signals.front().getObjectReference().getObjectManager(),
                 [&] { fillRecords(records, kFields, std::span<const Signal>(signals)); });
  return records;
}

}  // namespace orra::tavloxio
