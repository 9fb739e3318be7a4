#include "platform/repository/signal.h"

#include <utility>

#include "platform/repository/object_manager.h"
#include "platform/repository/repository.h"
#include "platform/repository/unsigned_list.h"

namespace orra {
namespace {

sql::RowCursor::Lease rowOf(const Signal& signal) {
  const ObjectRef& reference = signal.getObjectReference();
  return reference.getObjectManager()->repository().signals().row(reference.identifier());
}

}  // namespace

std::unique_ptr<Signal> Signal::getSignalFromObjRef(std::unique_ptr<ObjectRef> reference) {
  return std::make_unique<Signal>(*reference);
}

std::shared_ptr<Set> Signal::getRun() const {
  const ObjectRef& reference = getObjectReference();
  return std::make_shared<Set>(ObjectRef(reference.getObjectManager(), runOfSignal(reference.identifier())));
}

std::u16string Signal::getName() const { return rowOf(*this)->text(SignalTable::Name); }
std::string Signal::getDomainType() const {
  return std::string(rowOf(*this)->bytes(SignalTable::DomainType));
}
std::u16string Signal::getDescription() const { return rowOf(*this)->text(SignalTable::Description); }
std::u16string Signal::getUnits() const { return rowOf(*this)->text(SignalTable::Units); }
std::u16string Signal::getDisplayUnits() const { return rowOf(*this)->text(SignalTable::DisplayUnits); }
std::u16string Signal::getDataTypeLabel() const { return rowOf(*this)->text(SignalTable::DataTypeLabel); }
std::int32_t Signal::getComplexity() const {
  return static_cast<std::int32_t>(rowOf(*this)->integer(SignalTable::Complexity));
}
std::int32_t Signal::getComplexCoordSystem() const {
  return static_cast<std::int32_t>(rowOf(*this)->integer(SignalTable::ComplexCoordSystem));
}
std::u16string Signal::getSampleTimeString() const { return rowOf(*this)->text(SignalTable::SampleTime); }
std::u16string Signal::getModel() const { return rowOf(*this)->text(SignalTable::Model); }
std::u16string Signal::getDisplayBlockPath() const {
  return rowOf(*this)->text(SignalTable::DisplayBlockPath);
}
std::u16string Signal::getBlockName() const { return rowOf(*this)->text(SignalTable::BlockName); }
std::int32_t Signal::getPortIndex() const {
  return static_cast<std::int32_t>(rowOf(*this)->integer(SignalTable::PortIndex));
}
std::vector<std::uint64_t> Signal::getDimensions() const {
  return unpackUnsigned(rowOf(*this)->bytes(SignalTable::Dimensions));
}
std::vector<std::uint64_t> Signal::getChannel(bool zeroBased) const {
  std::vector<std::uint64_t> channel = unpackUnsigned(rowOf(*this)->bytes(SignalTable::Channel));
  if (!zeroBased) return channel;
  for (std::uint64_t& index : channel) index -= index > 0 ? 1 : 0;
  return channel;
}
std::u16string Signal::getRootSource() const { return rowOf(*this)->text(SignalTable::RootSource); }
std::u16string Signal::getTimeSource() const { return rowOf(*this)->text(SignalTable::TimeSource); }
std::u16string Signal::getDataSource() const { return rowOf(*this)->text(SignalTable::DataSource); }

}  // namespace orra
