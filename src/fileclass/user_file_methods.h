#pragma once

#include "fileclass/method_info.h"

namespace orra::tavloxio {

/// addFile(obj, diskPath, name/value pairs): stores a file, or the files of a folder, in the package.
class TavloxIOFileAddFile final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// getFile(obj, entry, name/value pairs): writes entries to disk and gives their paths, a 1×N cell array of
/// char rows.
class TavloxIOFileGetFile final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// list(obj[, search]): the entries that the search text selects, a 1×N structure array with the fields
/// FullPath, Name and Type.
class TavloxIOFileList final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

/// deleteFile(obj, search): removes the entries that the search text selects.
class TavloxIOFileDeleteFile final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient& client, int* producedOutputs, zobs::Value* outputs, int requestedOutputs,
              std::span<const zobs::Value> inputs) override;
};

}  // namespace orra::tavloxio
