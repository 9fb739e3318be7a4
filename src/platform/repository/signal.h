#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/set.h"

namespace orra {

// Declared only: nothing of this program makes one, and null is what the loader is given.
class ProgressTracker;
class TemporalDeserializer;

namespace object {

/// Loads a signals part, whose array reads with its rows. `runIds` must have every run that a signal names;
/// nothing is added to it. All of the part is loaded, in one transaction, or nothing. Identifiers of signals
/// are a part's own: another part may have them again. Raises
/// simulation_data_repository:sdr:InvalidSessionData with the element and the member, and database failures.
void loadSignals(ObjectManager& manager, ObjRefArrayJSON& signals, const RunIdMap& runIds,
                 ProgressTracker* tracker, bool keepsIdentifiers, int offset,
                 TemporalDeserializer* deserializer);

}  // namespace object

/// One recorded signal. Every accessor reads the repository and raises its database failures; inside a
/// transaction all of them see one state, and asking one signal for all its fields costs one read of its row.
class Signal : public ORM {
 public:
  using ORM::ORM;

  /// Nothing is read yet; a reference to no signal shows when the first field is asked for.
  static std::unique_ptr<Signal> getSignalFromObjRef(std::unique_ptr<ObjectRef> reference);

  /// All fields, read in one go. Valid, as are the texts below, until another signal of the repository is
  /// read.
  const SignalRecord& record() const;
  /// Which of its fields are known to be the same as those of the signal before it: a bit for each, the
  /// lowest for the first of kFields. Signals are neighbours if one was loaded behind the other and both are
  /// of one run; of others nothing is known.
  std::uint32_t repeatedFields(const Signal& before) const;

  // A field that the signal does not have reads as the empty text, 0 or the empty list.
  const std::u16string& getName() const { return textOf(record().name); }
  /// The run that the signal was loaded for, which its key tells without a query.
  std::shared_ptr<Set> getRun() const;
  std::string getDomainType() const { return fl::i18n::to_string(textOf(record().domainType)); }
  const std::u16string& getDescription() const { return textOf(record().description); }
  const std::u16string& getUnits() const { return textOf(record().units); }
  const std::u16string& getDisplayUnits() const { return textOf(record().displayUnits); }
  const std::u16string& getDataTypeLabel() const { return textOf(record().dataTypeLabel); }
  /// 1 for complex values, else real ones.
  std::int32_t getComplexity() const { return record().complexity.value_or(0); }
  /// How complex values are given: 0 real and imaginary part, 1 magnitude and phase, 2 magnitude, 3 phase.
  std::int32_t getComplexCoordSystem() const { return record().complexCoordSystem.value_or(0); }
  const std::u16string& getSampleTimeString() const { return textOf(record().sampleTime); }
  const std::u16string& getModel() const { return textOf(record().model); }
  const std::u16string& getDisplayBlockPath() const { return textOf(record().displayBlockPath); }
  const std::u16string& getBlockName() const { return textOf(record().blockName); }
  std::int32_t getPortIndex() const { return record().portIndex.value_or(0); }
  const std::vector<std::uint64_t>& getDimensions() const {
    static const std::vector<std::uint64_t> empty;
    const auto& dimensions = record().dimensions;
    return dimensions ? *dimensions : empty;
  }
  /// `zeroBased` counts from 0 instead of as recorded.
  std::vector<std::uint64_t> getChannel(bool zeroBased) const;
  const std::u16string& getRootSource() const { return textOf(record().rootSource); }
  const std::u16string& getTimeSource() const { return textOf(record().timeSource); }
  const std::u16string& getDataSource() const { return textOf(record().dataSource); }
};

}  // namespace orra
