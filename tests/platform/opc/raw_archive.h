#pragma once

#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/archive_builder.h"
#include "tests/support/package_fixture.h"

namespace tests {

/// The items of an archive by their raw names, whatever the package conventions say about them. One that ends
/// in "@" is a symbolic link, with all that an archive can say of an item.
using Items = std::vector<std::pair<std::string, std::string>>;

inline void writeArchive(const std::string& path, const Items& items, std::string_view comment = {}) {
  support::ArchiveBuilder builder;
  builder.end.comment = comment;
  for (auto [name, bytes] : items) {
    const bool isLink = name.ends_with('@');
    if (isLink) name.pop_back();
    auto& entry = builder.add(name, bytes);
    if (!isLink) continue;
    entry.madeBy = 3 << 8 | 20;  // Unix
    entry.externalAttributes = 0120777u << 16;
    entry.central.extra = support::extraField(0xCAFE, "??");
  }
  std::ofstream(path, std::ios::binary) << builder.bytes();
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
