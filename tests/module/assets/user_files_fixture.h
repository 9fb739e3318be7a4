#pragma once

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "entry/entry_points.h"
#include "platform/text/conversion.h"
#include "platform/zobs/dispatch.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"

namespace support {

/// Adds one more text, behind a blank.
inline void append(std::string& texts, const std::string& text) {
  texts += texts.empty() ? text : " " + text;
}

/// The paths of the files below a folder, relative to it, sorted.
inline std::string filesBelow(const std::filesystem::path& folder) {
  std::set<std::string> sorted;
  if (!std::filesystem::exists(folder)) return "";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_directory()) sorted.insert(entry.path().lexically_relative(folder).string());
  }
  std::string files;
  for (const std::string& file : sorted) append(files, file);
  return files;
}

/// A package and the methods of a File object on it, called as a host calls them. Files on disk lie beside
/// it.
class UserFiles : public ::testing::Test {
 protected:
  using Inputs = std::vector<std::u16string>;

  void SetUp() override { CvInitialize_orra_tavlox_io(); }

  std::vector<zobs::Value> call(const char* method, const Inputs& inputs) {
    const std::u16string path = package_.path();
    const auto file = zobs::construct(client_, zobs::findClass("tavlox.io.File"), {path});
    return zobs::callMethod(client_, file, method, {inputs.begin(), inputs.end()});
  }
  std::string errorOf(const char* method, const Inputs& inputs) {
    return raisedBy([&] { call(method, inputs); });
  }
  corvan::HostArray outputOf(const char* method, const Inputs& inputs) {
    const auto output = std::get<corvan::HostArray>(call(method, inputs).at(0));
    EXPECT_EQ(output.rows(), 1u);
    return output;
  }

  /// One field of every listed entry, in the order of the listing.
  std::string listed(const Inputs& search = {}, std::u16string_view field = u"FullPath") {
    const corvan::HostArray listing = outputOf("list", search);
    EXPECT_EQ(listing.fieldNames(), (Inputs{u"FullPath", u"Name", u"Type"}));
    std::string texts;
    for (std::size_t i = 0; i < listing.columns(); ++i) {
      append(texts, fl::i18n::to_string(listing.fieldAt(i, field).text()));
    }
    return texts;
  }

  /// What getFile answers with when it writes into "out": paths seen from the test's folder.
  std::string got(const std::u16string& entry) {
    const corvan::HostArray paths = outputOf("getFile", {entry, u"OutputPath", onDisk("out")});
    std::string texts;
    for (std::size_t i = 0; i < paths.columns(); ++i) {
      const std::filesystem::path path(paths.cellAt(i).text());
      append(texts, path.lexically_relative(package_.folder().path()).string());
    }
    return texts;
  }

  std::u16string onDisk(std::string_view name) { return package_.folder().wide(name); }
  void writeOnDisk(std::string_view name, std::string_view bytes) { package_.folder().write(name, bytes); }

  PackageFixture package_;
  zobs::COSClient client_{"test"};
};

}  // namespace support
