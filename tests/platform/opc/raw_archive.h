#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/zip/spool.h"
#include "platform/zip/writer.h"
#include "tests/support/package_fixture.h"

namespace tests {

/// The items of an archive by their raw names, whatever the package conventions say about them.
using Items = std::vector<std::pair<std::string, std::string>>;

inline void writeArchive(const std::string& path, const Items& items, std::string_view comment = {}) {
  const std::unique_ptr<FILE, decltype(&fclose)> file(fopen(path.c_str(), "w+"), fclose);
  zip::Writer writer(fileno(file.get()), path);
  for (const auto& [name, bytes] : items) {
    zip::Spool content(std::filesystem::path(path).parent_path());
    content.write(bytes.data(), bytes.size());
    content.finish();
    writer.add(name, content);
  }
  writer.finish(comment);
}

/// Appends a symbolic link to "b.txt", with all that an archive can say of an entry, as Python writes it.
inline void addSymbolicLink(const std::string& path, const std::string& name) {
  const std::string script = "import zipfile; link = zipfile.ZipInfo('" + name +
                             "', (1987, 6, 5, 4, 3, 2)); link.create_system = 3; "
                             "link.external_attr = 0o120777 << 16; link.comment = b'a remark'; "
                             "link.extra = bytes.fromhex('feca0200beef'); zipfile.ZipFile('" +
                             path + "', 'a').writestr(link, 'b.txt')";
  const std::string complaint = support::outputOf("/usr/bin/python3 -c \"" + script + "\"");
  if (!complaint.empty()) throw std::runtime_error(complaint);
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
