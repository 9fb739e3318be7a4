#pragma once

#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/directory.h"
#include "platform/zip/entry_reader.h"
#include "tests/support/archive_builder.h"
#include "tests/support/command.h"
#include "tests/support/raised.h"

namespace samples {

/// Bytes that cannot be made smaller, the same in every run.
inline std::string noise(std::size_t size) {
  std::mt19937_64 engine(7);
  std::string bytes;
  for (bytes.reserve(size + 8); bytes.size() < size;) {
    const std::uint64_t number = engine();
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
  }
  bytes.resize(size);
  return bytes;
}

/// Rows of numbers, as a recorder writes them.
inline std::string rows(std::size_t size) {
  std::mt19937 engine(11);
  std::string text = "time [s],voltage [V]\n";
  for (int i = 0; text.size() < size; ++i)
    text += std::to_string(i) + "," + std::to_string(engine() / 1e6) + "\n";
  text.resize(size);
  return text;
}

}  // namespace samples

namespace zip {

/// Every entry of an archive, as "name=content;".
inline std::string readAll(const std::string& path) {
  const auto file = std::make_shared<const fl::filesystem::InputFile>(path);
  const Directory directory = Directory::read(*file);
  std::string all;
  for (const Entry& entry : directory.entries()) {
    all += std::string(entry.name) + "=" + readWhole(file, entry, 1 << 25) + ";";
  }
  return all;
}

/// The rule that refuses the file, "" if it is read to the end.
inline std::string ruleOf(const std::string& path) {
  try {
    readAll(path);
  } catch (const opc::Exception& error) {
    EXPECT_EQ(support::describe(error).find(error.GetID() + "(" + path), 0U) << "the path comes first";
    // A text exists, with a place for everything it is given.
    EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
    return error.GetID();
  }
  return "";
}

/// Two entries, in this order: "first" deflated, "second" stored.
inline support::ArchiveBuilder twoEntries() {
  support::ArchiveBuilder archive;
  archive.add("first.txt", "some text", support::ArchiveBuilder::Packing::Deflated);
  archive.add("second.txt", "more text", support::ArchiveBuilder::Packing::Stored);
  return archive;
}

inline std::uint64_t secondOffset() { return 30 + 9 + support::deflateStream("some text").size(); }

}  // namespace zip
