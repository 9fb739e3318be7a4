#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/descriptor.h"
#include "platform/zip/directory.h"
#include "platform/zip/spool.h"

namespace zip {

/// Writes one archive to an open descriptor, front to back, ZIP64 where sizes or counts ask for it.
/// Raises opc::Exception, naming `path`, when the disk is full or a write fails. What was written up to then
/// is of no use, and the writer neither.
class Writer {
 public:
  /// Starts at the descriptor's `offset`, past the entries that already stand there (see `keep`). The
  /// descriptor stays the caller's.
  Writer(int descriptor, std::string path, std::uint64_t offset = 0);

  /// Copies an entry's local header, data and descriptor as they are, inside the kernel where it can
  /// (copy_file_range, else read and write); never inflates. Neighbouring entries are copied in one piece,
  /// which happens late: `from` must stay open until `finish`.
  void copy(const fl::filesystem::InputFile& from, const Entry& entry);

  /// Takes over the record of an entry that already stands in the output at the offset its record says: the
  /// output is a clone of the archive the entry comes from.
  void keep(const Entry& entry);

  /// Adds a new entry, dated now: deflated, or stored when deflating does not make it smaller. The spool must
  /// be finished; it is no longer needed afterwards.
  void add(std::string_view name, const Spool& content);

  /// Writes the directory and its end, and cuts off whatever the descriptor holds past it.
  void finish(std::string_view comment);

 private:
  /// Bytes of one file that are to be copied.
  struct Range {
    int descriptor;
    std::uint64_t begin, end;
  };

  void appendRecord(const Entry& entry, std::uint64_t offset);
  /// Copying is put off so that neighbours go in one call; whatever else is written must come after this.
  void copyPending();
  void copyRange(Range range);
  std::uint64_t copyInKernel(const Range& range);
  void copyThroughMemory(Range range);
  void writePacked(const Spool& content);
  void writeInflated(const Spool& content);
  void write(std::string_view bytes);
  /// Writes what was only gathered so far.
  void flush();

  int descriptor_;
  std::string path_;
  std::uint64_t offset_;  ///< where the next byte goes; the pending range lies before it
  std::optional<Range> pending_;
  std::string gathered_;  ///< short pieces that lie before `offset_`, to be written in one call
  std::string directory_;
  std::uint64_t entries_ = 0;
  std::uint32_t now_;  ///< as ZIP keeps a moment
};

}  // namespace zip
