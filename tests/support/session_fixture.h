#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export_file/data_export_file.h"
#include "platform/export_file/session_writer.h"
#include "tests/support/package_fixture.h"
#include "tests/support/temporary_folder.h"

namespace support {

/// A session on its way to disk that also takes parts of any name and type, as other programs write them.
class TestSession : public tavlox::SessionWriter {
 public:
  explicit TestSession(const std::u16string& path)
      : SessionWriter(path, SessionWriter::Existing::Replace), package_(path) {}

  /// The part is put in by `save`; an empty relationship type links it to nothing.
  void addPart(const std::u16string& name, const std::u16string& contentType,
               std::u16string_view relationshipType, std::string_view data) {
    additions_.push_back([=, type = std::u16string(relationshipType),
                          bytes = std::string(data)](opc::model::Package& package) {
      writePart(package.createPart(opc::model::PartName(name), opc::model::ContentType(contentType), {}),
                bytes);
      if (!type.empty()) package.createInternalRelationship(type, opc::model::URI(name), {});
    });
  }
  void save() {
    close();
    package_.open(opc::interfaces::OpenMode::Modify);
    for (const auto& add : additions_) add(package_);
    package_.close();
  }

 private:
  opc::model::Package package_;
  std::vector<std::function<void(opc::model::Package&)>> additions_;
};

/// Session files in a folder of one test's own.
class SessionFixture {
 public:
  using Fill = std::function<void(TestSession&)>;

  /// Writes (or writes anew) a session with what `fill` puts into it, and gives its path.
  std::u16string write(std::string_view name, const Fill& fill) const {
    TestSession session(folder_.wide(name));
    fill(session);
    session.save();
    return folder_.wide(name);
  }

  /// A session whose one part of the given relationship type holds `data`.
  std::u16string writeWithPart(std::string_view name, std::u16string_view relationshipType,
                               std::string_view data) const {
    return write(name, [&](TestSession& session) {
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
