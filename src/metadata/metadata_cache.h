#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/repository/signal.h"

namespace orra::tavloxio {

/// Signals that a query found, in its order.
using Signals = std::vector<Signal>;

// The interface behind one File object of the host. Its functions are virtual because the host's registration
// of properties takes pointers to members of an interface; there is one implementation.
/// What one File object keeps: the absolute name of its package file, and what was read from it. Values are
/// read in one pass when first asked for, and again whenever the file's last-write time changes. Every getter
/// raises tavlox:general:FileNotFound, with the absolute path, once the file is gone.
class MetadataCache {
 public:
  virtual ~MetadataCache() = default;

  /// Binds the object to a file, which is opened once for reading: tavlox:general:FileNotFound or
  /// tavlox:general:UnableToReadFile, with the name as given.
  virtual void setFilename(const std::u16string& name) = 0;

  /// Whether the values were read from the file as it is now.
  virtual bool isUpToDate() = 0;

  // The property getters. Texts stay valid until the object is destroyed; a later read changes them in place.
  // The order is the one in which the host's property registration expects them.
  virtual const std::u16string* getFilename() = 0;
  virtual const std::u16string* getLastModified() = 0;
  virtual const std::u16string* getDescription() = 0;
  virtual const std::u16string* getCompression() = 0;
  virtual const std::u16string* getVersion() = 0;
  virtual std::int32_t getNumRuns() = 0;
  virtual std::int32_t getNumSignals() = 0;
  virtual bool getContainsView() = 0;
  virtual bool getContainsComparison() = 0;

  /// The identifiers of the session's runs, in the order of the run list.
  virtual std::vector<FileRunId> getRunIDs() = 0;

  // The three below load the session into a private repository first, unless that has been done for the file
  // as it is now. A load that fails is not tried again until the file changes, and leaves what it loaded.

  /// Raises tavlox:general:UnableToReadFile with an empty text for an identifier that the file does not list,
  /// and simulation_data_repository:sdr:NoSuchRun for one of an earlier version of the file.
  virtual std::shared_ptr<Set> lookupRun(FileRunId run) = 0;

  /// The signals of that name, and all signals: run by run in the order of the run list, each run's in the
  /// order of its part.
  virtual Signals lookupSignalsByName(const std::u16string& name) = 0;
  virtual Signals lookupAllSignals() = 0;
};

}  // namespace orra::tavloxio
