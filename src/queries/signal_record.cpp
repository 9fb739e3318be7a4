#include "queries/signal_record.h"

#include "metadata/transaction.h"
#include "queries/record.h"
#include "queries/signal_domain.h"

namespace orra::tavloxio {

using corvan::HostArray;

namespace {

template <auto Getter>
HostArray text(const Signal& signal) {
  return textValue((signal.*Getter)());
}

HostArray runOrderIndex(const Signal& signal) {
  return HostArray::int32Scalar(signal.getRun()->getOrderIndex());
}
HostArray portIndex(const Signal& signal) { return HostArray::int32Scalar(signal.getPortIndex()); }
HostArray domain(const Signal& signal) { return textValue(domainText(signal.getDomainType())); }

HostArray complexity(const Signal& signal) {
  return HostArray::charRow(signal.getComplexity() == 1 ? u"complex" : u"real");
}

HostArray complexFormat(const Signal& signal) {
  switch (signal.getComplexCoordSystem()) {
    case 0:
      return HostArray::charRow(u"real-imaginary");
    case 1:
      return HostArray::charRow(u"magnitude-phase");
    case 2:
      return HostArray::charRow(u"magnitude");
    case 3:
      return HostArray::charRow(u"phase");
    default:
      return HostArray::charRow(u"");
  }
}

/// The low 32 bits of each number.
HostArray int32Row(const std::vector<std::uint64_t>& numbers) {
  std::vector<std::int32_t> narrowed;
  narrowed.reserve(numbers.size());
  for (const std::uint64_t number : numbers) narrowed.push_back(static_cast<std::int32_t>(number));
  return HostArray::int32Row(narrowed);
}

HostArray dimensions(const Signal& signal) { return int32Row(signal.getDimensions()); }
HostArray channel(const Signal& signal) { return int32Row(signal.getChannel(false)); }

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
  const Signals signals = query();
  const std::span<const RecordField<Signal>> fields(kFields);
  HostArray records = makeRecords(fields, signals.size());
  if (signals.empty()) return records;
  runTransaction(*signals.front()->getObjectReference().getObjectManager(), [&] {
    for (std::size_t i = 0; i < signals.size(); ++i) fillRecord(records, i, fields, *signals[i]);
  });
  return records;
}

}  // namespace orra::tavloxio
