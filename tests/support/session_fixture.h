#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "platform/export_file/data_export_file.h"
#include "platform/export_file/session_writer.h"
#include "tests/support/temporary_folder.h"

namespace support {

/// Session files in a folder of one test's own.
class SessionFixture {
 public:
  using Fill = std::function<void(tavlox::SessionWriter&)>;

  /// Writes (or writes anew) a session with what `fill` puts into it, and gives its path.
  std::u16string write(std::string_view name, const Fill& fill) const {
    tavlox::SessionWriter writer(folder_.wide(name), tavlox::SessionWriter::Existing::Replace);
    fill(writer);
    writer.close();
    return folder_.wide(name);
  }

  /// A session whose one part of the given relationship type holds `data`.
  std::u16string writeWithPart(std::string_view name, std::u16string_view relationshipType,
                               std::string_view data) const {
    return write(name, [&](tavlox::SessionWriter& session) {
      session.setDescription(u"a description");
      session.addPart(u"/session/part.json", u"application/json", relationshipType, data);
    });
  }

  /// Moves the file's last-write time by some milliseconds, as another writer's save would.
  void touch(std::string_view name, std::chrono::milliseconds by = std::chrono::milliseconds(2000)) const {
    const auto file = folder_.path() / name;
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) + by);
  }

  const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
};

/// Two runs with two signals each; nothing but identifiers is set.
inline void fillTwoRuns(tavlox::SessionWriter& session) {
  for (const std::int32_t run : {7, 3}) {
    session.addRun({.id = run});
    session.addSignal({.id = run * 10, .runID = run});
    session.addSignal({.id = run * 10 + 1, .runID = run});
  }
}

}  // namespace support
