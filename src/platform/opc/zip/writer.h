#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/zip/archive_file.h"
#include "platform/opc/zip/directory.h"
#include "platform/opc/zip/spool.h"

namespace opc::zip {

/// Writes one archive to an open descriptor, front to back, ZIP64 where sizes or counts ask for it.
/// Raises opc::Exception, naming `path`, when the disk is full or a write fails.
class Writer {
 public:
  /// Starts at the descriptor's `offset`, past the entries that already stand there (see `keep`).
  Writer(int descriptor, std::string path, std::uint64_t offset = 0);

  /// Copies an entry's local header, data and descriptor as they are, inside the kernel where it can
  /// (copy_file_range, else read and write); never inflates. Neighbouring entries are copied in one piece.
  void copy(const ArchiveFile& from, const Entry& entry);

  /// Takes over the record of an entry that already stands in the output at the place its record says: the
  /// output is a clone of the archive the entry comes from.
  void keep(const Entry& entry);

  /// Adds a new entry: deflated, or stored when deflating made it larger.
  void add(std::string_view name, const Spool& content);

  /// Writes the directory and its end, and cuts off whatever the descriptor holds past it.
  void finish(std::string_view comment);

 private:
  // The implementer's own.
};

}  // namespace opc::zip
