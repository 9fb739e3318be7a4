#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/opc/package.h"
#include "platform/zip/directory.h"
#include "tests/support/command.h"
#include "tests/support/temporary_folder.h"

namespace support {

/// Gives the part new data.
inline void writePart(opc::model::Part part, std::string_view bytes) {
  part.getOutputStream()->write(bytes.data(), bytes.size());
}

/// All of what is left of the stream.
inline std::string readAll(opc::InputStream& input) {
  std::string bytes;
  std::array<char, 4096> block;
  while (const std::size_t got = input.read(block.data(), block.size())) bytes.append(block.data(), got);
  return bytes;
}

/// A package in a folder of one test's own, filled part by part and damaged byte by byte. Names are decoded
/// text. What was asked for is in the file as soon as its path or its bytes are.
class PackageFixture {
 public:
  explicit PackageFixture(std::string name = "fixture.tavlox") : name_(std::move(name)) {}

  PackageFixture& add(std::u16string_view part, std::string_view bytes,
                      std::u16string_view type = u"text/plain") {
    writePart(opened().createPart(opc::model::PartName(part), opc::model::ContentType(type), {}), bytes);
    return *this;
  }
  PackageFixture& link(std::u16string_view target, std::u16string_view type = u"UserAssetsPartRelType") {
    opened().createInternalRelationship(type, opc::model::URI(target), {});
    return *this;
  }
  PackageFixture& addLinked(std::u16string_view part, std::string_view bytes) {
    return add(part, bytes).link(part);
  }
  PackageFixture& describe(std::u16string_view text) {
    opened().setCoreProperty(opc::model::CoreProperty::Description, text);
    return *this;
  }

  std::u16string path() { return saved().wide(name_); }
  std::string narrowPath() { return saved().narrow(name_); }
  std::string bytes() { return saved().read(name_); }
  void replaceBytes(std::string_view bytes) { saved().write(name_, bytes); }
  void truncate(std::size_t size) { replaceBytes(bytes().substr(0, size)); }

  /// Changes a byte in the middle of the data of an entry, which must not be empty; entries count from 0 in
  /// the order of the directory.
  void corruptEntry(std::size_t entry) {
    const fl::filesystem::InputFile file(narrowPath());
    const auto directory = zip::Directory::read(file);
    const zip::Entry& damaged = directory.entries().at(entry);
    std::string changed = bytes();
    changed.at(damaged.dataOffset + damaged.compressedSize / 2) ^= 0x55;
    replaceBytes(changed);
  }

  const TemporaryFolder& folder() { return saved(); }

 private:
  opc::model::Package& opened() {
    using opc::interfaces::OpenMode;
    if (package_.isOpen()) return package_;
    const bool exists = std::filesystem::exists(folder_.path() / name_);
    package_.open(exists ? OpenMode::Modify : OpenMode::Create);
    return package_;
  }
  // Also a fixture that nothing was asked of is a package.
  TemporaryFolder& saved() {
    if (!std::filesystem::exists(folder_.path() / name_)) opened();
    package_.close();
    return folder_;
  }

  TemporaryFolder folder_;
  std::string name_;
  opc::model::Package package_{folder_.wide(name_)};
};

}  // namespace support
