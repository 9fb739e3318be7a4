#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/package.h"

namespace tavlox {

/// The relationship types through which a package reaches the parts of a recorded session.
namespace relationship_types {

// Part names are the writer's choice: readers go by these types alone.
inline constexpr char16_t kRunData[] = u"ORRASessionRunDataRelType";
inline constexpr char16_t kSignalsData[] = u"ORRASessionSignalsDataRelType";
inline constexpr char16_t kCompression[] = u"ORRASessionCompressionTypeRelType";
inline constexpr char16_t kView[] = u"ORRAViewMetaDataRelType";
inline constexpr char16_t kThumbnail[] = u"TAVLOXThumbnailExistsFlagRelType";
inline constexpr char16_t kSamples[] = u"ORRASessionSamplesRelType";

}  // namespace relationship_types

/// One TAVLOX file: a package, and what every TAVLOX package has. Reading and writing follow the package
/// library's rules and raise its exceptions. Whatever asks for the package raises opc::Exception before the
/// file is bound to a path.
class DataExportFile {
 public:
  /// The content type of a TAVLOX package; user files carry it with "+" and their extension behind it.
  static constexpr std::u16string_view contentType = u"application/vnd.tavlox.package";

  /// `createNew` starts a new package (see `modify`).
  explicit DataExportFile(bool createNew);
  ~DataExportFile();

  /// Binds the file to `path` for reading. Raises PackageNotFound if there is no such file.
  void initReadPackage(const std::u16string& path);
  /// Opens the bound package for reading, auditing it.
  void modifyReadPackage(const std::u16string& path);
  /// Binds the file to `path` for modification; opening the package with OpenMode::Modify is the caller's. A
  /// file made with `createNew` starts the new, empty package at once (see Package::create).
  using Existing = opc::model::Package::Existing;
  void modify(const std::u16string& path, Existing existing = Existing::Refuse);

  opc::model::Package& getPackageImpl() const;
  /// Saves what was changed, if anything was, and closes.
  void closePackage();

  /// Empty text when the package has none.
  void getDescription(std::u16string& description) const;
  /// Kept as a core property, in memory until the package is saved. The package must be open for
  /// modification.
  void setDescription(const std::u16string& description);
  void getVersion(std::u16string& version) const;

  /// The parts that package-level relationships of this type lead to, in the order of the relationships, one
  /// for each: several may lead to the same part. A relationship without a part is passed over.
  std::vector<opc::model::Part> getPartsByRelationshipType(std::u16string_view type) const;

 private:
  bool createNew_;
  std::unique_ptr<opc::model::Package> package_;
};

}  // namespace tavlox
