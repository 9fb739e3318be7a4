#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// `number` in `width` bytes, lowest first.
inline std::string littleEndian(std::uint64_t number, int width) {
  std::string bytes;
  for (int i = 0; i < width; ++i) bytes += static_cast<char>(number >> (8 * i) & 0xFF);
  return bytes;
}

inline std::string extraField(std::uint16_t id, const std::string& content) {
  return littleEndian(id, 2) + littleEndian(content.size(), 2) + content;
}

inline std::uint32_t checksumOf(std::string_view bytes) {
  std::uint32_t checksum = 0xFFFFFFFF;
  for (const unsigned char byte : bytes) {
    checksum ^= byte;
    for (int bit = 0; bit < 8; ++bit) checksum = checksum >> 1 ^ (0xEDB88320 & (0 - (checksum & 1)));
  }
  return ~checksum;
}

/// A deflate stream that holds `bytes` uncompressed, in blocks of up to 64 KiB.
inline std::string deflateStream(std::string_view bytes) {
  std::string stream;
  do {
    const std::string_view block = bytes.substr(0, 0xFFFF);
    bytes.remove_prefix(block.size());
    stream += bytes.empty() ? '\1' : '\0';
    stream += littleEndian(block.size(), 2) + littleEndian(~block.size(), 2);
    stream += block;
  } while (!bytes.empty());
  return stream;
}

/// Builds a sound ZIP archive in memory. Everything it is going to write can be overwritten before, so that
/// an archive lies in exactly one place: `builder.add("a", "text").local.name = "b"`.
class ArchiveBuilder {
 public:
  enum class Packing { Stored = 0, Deflated = 8 };

  /// What local header and central record both say.
  struct Header {
    std::string name;
    std::uint16_t flags = 0, method = 0;
    std::uint32_t time = 0x58215B40;
    std::uint32_t checksum = 0;
    std::uint64_t compressedSize = 0, size = 0;
    std::string extra;
    std::optional<std::uint16_t> extraSize;  ///< instead of the true one
  };

  struct Entry {
    Header local, central;
    std::string before;      ///< bytes in front of the local header
    std::string data;        ///< as it lies in the archive
    std::string descriptor;  ///< behind the data
    std::uint16_t madeBy = 20, disk = 0;
    std::uint32_t externalAttributes = 0;
    std::optional<std::uint64_t> offset;  ///< instead of the true one

    /// Writes the entry as a writer that cannot seek does: numbers in a data descriptor, with or without
    /// signature, sizes in 4 or 8 bytes.
    void stream(std::string_view signature = "PK\7\10", int width = 4) {
      local.flags |= 8;
      central.flags |= 8;
      descriptor = std::string(signature) + littleEndian(central.checksum, 4) +
                   littleEndian(central.compressedSize, width) + littleEndian(central.size, width);
      local.checksum = 0;
      local.compressedSize = local.size = 0;
    }

    /// Moves sizes and offset to ZIP64 fields.
    void useZip64(std::uint64_t trueOffset) {
      const std::string sizes = littleEndian(central.size, 8) + littleEndian(central.compressedSize, 8);
      local.extra += extraField(1, sizes);
      central.extra += extraField(1, sizes + littleEndian(trueOffset, 8));
      local.size = local.compressedSize = central.size = central.compressedSize = 0xFFFFFFFF;
      offset = 0xFFFFFFFF;
    }
  };

  /// Numbers of the end record that are not the true ones.
  struct End {
    std::uint16_t disk = 0;
    std::optional<std::uint64_t> entriesOnDisk, entries, directorySize, directoryOffset;
    std::string comment;
    std::optional<std::uint16_t> commentSize;
  };

  /// The same of the ZIP64 end record and its locator.
  struct Zip64End {
    std::string extension;
    std::optional<std::uint64_t> recordSize, entries, directorySize, recordOffset;
    std::uint32_t disks = 1;
  };

  /// The reference stays valid while entries are added.
  Entry& add(const std::string& name, const std::string& content, Packing packing = Packing::Deflated) {
    Entry entry;
    entry.data = packing == Packing::Stored ? content : deflateStream(content);
    entry.local.name = name;
    entry.local.method = static_cast<std::uint16_t>(packing);
    entry.local.checksum = checksumOf(content);
    entry.local.compressedSize = entry.data.size();
    entry.local.size = content.size();
    entry.central = entry.local;
    entries.push_back(entry);
    return entries.back();
  }

  std::string bytes() const {
    std::string archive, directory;
    for (const Entry& entry : entries) {
      archive += entry.before;
      directory += centralRecord(entry, entry.offset.value_or(archive.size()));
      archive += "PK\3\4" + littleEndian(20, 2) + common(entry.local) + entry.local.name + entry.local.extra;
      archive += entry.data + entry.descriptor;
    }
    const std::uint64_t directoryOffset = archive.size();
    archive += directory + beforeEnd;
    if (zip64End) archive += zip64EndRecords(archive.size(), directory.size(), directoryOffset);
    return archive + endRecord(directory.size(), directoryOffset) + trailing;
  }

  std::deque<Entry> entries;
  End end;
  std::optional<Zip64End> zip64End;
  std::string beforeEnd, trailing;

 private:
  static std::string common(const Header& header) {
    return littleEndian(header.flags, 2) + littleEndian(header.method, 2) + littleEndian(header.time, 4) +
           littleEndian(header.checksum, 4) + littleEndian(header.compressedSize, 4) +
           littleEndian(header.size, 4) + littleEndian(header.name.size(), 2) +
           littleEndian(header.extraSize.value_or(static_cast<std::uint16_t>(header.extra.size())), 2);
  }

  static std::string centralRecord(const Entry& entry, std::uint64_t offset) {
    return "PK\1\2" + littleEndian(entry.madeBy, 2) + littleEndian(20, 2) + common(entry.central) +
           littleEndian(0, 2) + littleEndian(entry.disk, 2) + littleEndian(0, 2) +
           littleEndian(entry.externalAttributes, 4) + littleEndian(offset, 4) + entry.central.name +
           entry.central.extra;
  }

  std::string zip64EndRecords(std::uint64_t at, std::uint64_t directorySize,
                              std::uint64_t directoryOffset) const {
    const std::string count = littleEndian(zip64End->entries.value_or(entries.size()), 8);
    return "PK\6\6" + littleEndian(zip64End->recordSize.value_or(44 + zip64End->extension.size()), 8) +
           littleEndian(45, 2) + littleEndian(45, 2) + littleEndian(0, 8) + count + count +
           littleEndian(zip64End->directorySize.value_or(directorySize), 8) +
           littleEndian(directoryOffset, 8) + zip64End->extension + "PK\6\7" + littleEndian(0, 4) +
           littleEndian(zip64End->recordOffset.value_or(at), 8) + littleEndian(zip64End->disks, 4);
  }

  std::string endRecord(std::uint64_t directorySize, std::uint64_t directoryOffset) const {
    return "PK\5\6" + littleEndian(end.disk, 2) + littleEndian(end.disk, 2) +
           littleEndian(end.entriesOnDisk.value_or(entries.size()), 2) +
           littleEndian(end.entries.value_or(entries.size()), 2) +
           littleEndian(end.directorySize.value_or(directorySize), 4) +
           littleEndian(end.directoryOffset.value_or(directoryOffset), 4) +
           littleEndian(end.commentSize.value_or(static_cast<std::uint16_t>(end.comment.size())), 2) +
           end.comment;
  }
};

/// A package as another program might write it. `relationships` are elements of the package's own list; items
/// that end in .txt are parts, and hold their names.
inline ArchiveBuilder foreignArchive(const std::string& relationships,
                                     const std::vector<std::string>& items) {
  const std::string format = "http://schemas.openxmlformats.org/package/2006/";
  ArchiveBuilder archive;
  archive.add("[Content_Types].xml", "<Types xmlns=\"" + format +
                                         "content-types\"><Default Extension=\"rels\" ContentType=\"" +
                                         "application/vnd.openxmlformats-package.relationships+xml\"/>" +
                                         "<Default Extension=\"txt\" ContentType=\"text/plain\"/></Types>");
  archive.add("_rels/.rels",
              "<Relationships xmlns=\"" + format + "relationships\">" + relationships + "</Relationships>");
  for (const std::string& item : items) archive.add(item, item);
  return archive;
}

inline std::string foreignPackage(const std::string& relationships, const std::vector<std::string>& items) {
  return foreignArchive(relationships, items).bytes();
}

}  // namespace support
