#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/descriptor.h"

namespace tavlox::tables {

/// Unpacks compressed data.
class Unpacker;

/// The bytes of one file with a table, front to back; gzip and zstd are unpacked. It must not change while it
/// is read. Raises tavlox:general:FileNotFound or tavlox:record:CannotReadTable, and for packed data that is
/// damaged or cut off tavlox:record:DamagedCompression.
class TableFile {
 public:
  explicit TableFile(const std::u16string& path);
  /// A file that only this process has, under the name that messages have it by. It is read from its
  /// beginning.
  TableFile(std::u16string name, std::shared_ptr<const fl::filesystem::Descriptor> file);
  ~TableFile();
  TableFile(TableFile&&) noexcept;

  /// Up to `count` bytes; 0 at the end. Reports progress.
  std::size_t read(char* into, std::size_t count);
  /// The next bytes, up to `count` of them, which `read` gives again.
  std::string_view peek(std::size_t count);

  /// Raises tavlox:record:TableChanged if somebody wrote to the file since it was opened.
  void requireUnchanged() const;

  const std::u16string& name() const { return name_; }
  int descriptor() const { return file_->get(); }
  /// "gzip", "zstd" or nothing.
  std::string_view compression() const;
  /// When it was written, in UTC: "2026-11-15T12:44:29Z".
  std::u16string date() const;

 private:
  void start();
  std::size_t readPacked(char* into, std::size_t count);
  std::size_t readUnpacked(char* into, std::size_t count);

  std::u16string name_, activity_;
  std::shared_ptr<const fl::filesystem::Descriptor> file_;
  fl::filesystem::FileIdentity opened_;
  std::uint64_t offset_ = 0;  ///< in the file
  bool isOwn_ = false;        ///< nobody else can write to it
  std::unique_ptr<Unpacker> unpacker_;
  std::string peeked_;  ///< was read and is to be given again
};

/// All of standard input in a file without a name, so that it can be read again if a save has to wait. Raises
/// tavlox:record:CannotReadTable.
std::shared_ptr<const fl::filesystem::Descriptor> spooledStandardInput();

}  // namespace tavlox::tables
