#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "entry/entry_points.h"
#include "platform/text/conversion.h"
#include "platform/zobs/dispatch.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"

namespace support {

/// The paths of the files below a folder, relative to it, sorted.
inline std::vector<std::string> filesBelow(const std::filesystem::path& folder) {
  std::vector<std::string> files;
  if (!std::filesystem::exists(folder)) return files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_directory()) files.push_back(entry.path().lexically_relative(folder).string());
  }
  std::ranges::sort(files);
  return files;
}

inline std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += all.empty() ? text : " " + text;
  return all;
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
    return std::get<corvan::HostArray>(call(method, inputs).at(0));
  }

  /// One field of every listed entry, in the order of the listing.
  std::string listed(const Inputs& search = {}, std::u16string_view field = u"FullPath") {
    const corvan::HostArray listing = outputOf("list", search);
    EXPECT_EQ(listing.rows(), 1u);
    EXPECT_EQ(listing.fieldNames(), (Inputs{u"FullPath", u"Name", u"Type"}));
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < listing.columns(); ++i) {
      texts.push_back(fl::i18n::to_string(listing.fieldAt(i, field).text()));
    }
    return joined(texts);
  }

  /// The paths that getFile answers with, seen from the test's folder.
  std::string got(const std::u16string& entry, const std::string& folder = "out") {
    const corvan::HostArray paths = outputOf("getFile", {entry, u"OutputPath", onDisk(folder)});
    EXPECT_EQ(paths.rows(), 1u);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < paths.columns(); ++i) {
      const std::filesystem::path path(paths.cellAt(i).text());
      texts.push_back(path.lexically_relative(package_.folder().path()).string());
    }
    return joined(texts);
  }

  std::u16string onDisk(std::string_view name) { return package_.folder().wide(name); }
  std::string textOnDisk(std::string_view name) { return package_.folder().read(name); }
  void writeOnDisk(std::string_view name, std::string_view bytes) { package_.folder().write(name, bytes); }

  PackageFixture package_;
  zobs::COSClient client_{"test"};
};

}  // namespace support
