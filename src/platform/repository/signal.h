#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/repository/object_ref.h"
#include "platform/repository/set.h"

namespace orra {

/// One recorded signal. Every accessor reads the repository and raises its database failures; asking one
/// signal for all its fields in a row costs one step of one statement.
class Signal : public ORM {
 public:
  using ORM::ORM;

  static std::unique_ptr<Signal> getSignalFromObjRef(std::unique_ptr<ObjectRef> reference);

  std::u16string getName() const;
  std::shared_ptr<Set> getRun() const;
  std::string getDomainType() const;
  std::u16string getDescription() const;
  std::u16string getUnits() const;
  std::u16string getDisplayUnits() const;
  std::u16string getDataTypeLabel() const;
  std::int32_t getComplexity() const;
  std::int32_t getComplexCoordSystem() const;
  std::u16string getSampleTimeString() const;
  std::u16string getModel() const;
  std::u16string getDisplayBlockPath() const;
  std::u16string getBlockName() const;
  std::int32_t getPortIndex() const;
  std::vector<std::uint64_t> getDimensions() const;
  /// `zeroBased` counts from 0 instead of as recorded.
  std::vector<std::uint64_t> getChannel(bool zeroBased) const;
  std::u16string getRootSource() const;
  std::u16string getTimeSource() const;
  std::u16string getDataSource() const;
};

}  // namespace orra
