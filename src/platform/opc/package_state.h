#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/files/descriptor.h"
#include "platform/opc/package_contents.h"
#include "platform/opc/package_index.h"
#include "platform/opc/part_name.h"
#include "platform/opc/streams.h"
#include "platform/zip/limits.h"
#include "platform/zip/spool.h"

namespace opc::model {

/// One opening of a package, from `open` to `close`. Package, parts and streams share it, so that those which
/// outlive the closing find out and say so.
class PackageState : public std::enable_shared_from_this<PackageState> {
 public:
  /// What may be done to the package.
  enum class Access { Read, Change };

  /// `file` is null for a package that is not written yet, `replaced` what it replaces then, if anything. The
  /// path is UTF-8.
  PackageState(std::string path, Access access, const zip::Limits& limits,
               std::shared_ptr<const fl::filesystem::InputFile> file,
               std::shared_ptr<const PackageIndex> index,
               std::optional<fl::filesystem::FileIdentity> replaced = {});

  const std::string& path() const { return path_; }
  bool isOpen() const { return contents_.has_value(); }
  bool needsSaving() const;

  /// Raises opc::Exception if the package is closed.
  const PackageContents& contents() const;
  /// Raises opc::Exception if the package is closed or was opened for reading.
  PackageContents& editContents();

  /// Raises opc::Exception if the part is not there any more.
  PartView part(const PartName& name) const;
  std::shared_ptr<InputStream> openInput(const PartName& name);
  std::shared_ptr<OutputStream> openOutput(const PartName& name);
  /// All of a small part. Raises opc::Exception if it is larger than `limit`.
  std::string readWhole(const PartName& name, std::uint64_t limit) const;
  void write(const PartName& name, std::string_view bytes);

  /// Writes the changed package to its path, all or nothing. Raises opc::Exception.
  void save();
  /// Drops file and changes. What still holds the state finds it closed.
  void close() noexcept;

  const std::shared_ptr<const fl::filesystem::InputFile>& file() const { return file_; }
  /// Raises opc::Exception once all streams of this opening together have given more than the limit.
  void countInflated(std::uint64_t bytes);

 private:
  const std::shared_ptr<zip::SpoolStorage>& spoolStorage();

  std::string path_;
  Access access_;
  zip::Limits limits_;
  std::shared_ptr<const fl::filesystem::InputFile> file_;
  std::optional<fl::filesystem::FileIdentity> replaced_;
  std::optional<PackageContents> contents_;
  std::uint64_t inflated_ = 0;
  // For all new data of this opening.
  std::shared_ptr<zip::SpoolStorage> spoolStorage_;
};

}  // namespace opc::model
