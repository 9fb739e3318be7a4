#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "platform/zip/spool.h"
#include "platform/zip/writer.h"

namespace tests {

/// The items of an archive by their raw names, whatever the package conventions say about them.
using Items = std::vector<std::pair<std::string, std::string>>;

inline void writeArchive(const std::string& path, const Items& items, std::string_view comment = {}) {
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  zip::Writer writer(descriptor, path);
  for (const auto& [name, bytes] : items) {
    zip::Spool content(std::filesystem::path(path).parent_path());
    content.write(bytes.data(), bytes.size());
    content.finish();
    writer.add(name, content);
  }
  writer.finish(comment);
  close(descriptor);
}

/// A list that types relationships and ".txt", with more elements if wanted.
inline std::string contentTypes(std::string_view more = {}) {
  return R"(<?xml version="1.0"?><Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
         R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
         R"(<Default Extension="txt" ContentType="text/plain"/>)" +
         std::string(more) + "</Types>";
}

inline std::string relationships(std::string_view links) {
  return R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
         std::string(links) + "</Relationships>";
}

}  // namespace tests
