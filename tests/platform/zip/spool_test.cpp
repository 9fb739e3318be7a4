#include "platform/zip/spool.h"

#include <deque>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/platform/zip/archives.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/memory.h"
#include "tests/support/temporary_folder.h"

namespace zip {
namespace {

using support::raisedBy;

constexpr std::size_t kMiB = std::size_t{1} << 20;

void writeInPieces(Spool& spool, const std::string& data, std::size_t piece) {
  for (std::size_t at = 0; at < data.size(); at += piece) {
    spool.write(data.data() + at, std::min(piece, data.size() - at));
  }
}

std::string readBack(const Spool& spool, std::size_t piece) {
  Spool::Reader reader(spool);
  std::string whole, buffer(piece, '\0');
  while (const std::size_t count = reader.read(buffer.data(), piece)) whole.append(buffer, 0, count);
  return whole;
}

struct SpoolTest : testing::Test {
  std::string raised(const char* rule) const {
    return std::string("opc:spool:") + rule + "(" + folder.path().string() + ")";
  }
  support::TemporaryFolder folder;
  std::shared_ptr<SpoolStorage> storage = std::make_shared<SpoolStorage>(folder.path().string());
  Spool spool{storage};
};

TEST_F(SpoolTest, GivesBackWhatWasWritten) {
  const struct {
    std::string data;
    std::size_t writePiece, readPiece;
    bool liesInFile;
    Method method;
  } kCases[] = {
      {"", 1, 1, false, Method::Stored},
      {"time,value\n", 4, 3, false, Method::Stored},
      {std::string(64, 'a'), 64, 64, false, Method::Deflate},
      {std::string(65, 'a'), 65, 65, false, Method::Deflate},
      {samples::noise(64 << 10), 1000, 1000, false, Method::Stored},
      {samples::rows(64 << 10), 1000, 1000, false, Method::Deflate},
      {samples::rows((64 << 10) + 1), 1000, 1000, false, Method::Deflate},
      {samples::rows(100'000), 1, 1, false, Method::Deflate},
      {samples::noise(12 * kMiB), 12 * kMiB, kMiB, true, Method::Deflate},
      {samples::noise(9 * kMiB), 10'007, 70'001, true, Method::Deflate},
  };
  for (const auto& test : kCases) {
    Spool fresh(folder.path().string());
    writeInPieces(fresh, test.data, test.writePiece);
    fresh.finish();
    fresh.finish();
    EXPECT_EQ(fresh.size(), test.data.size());
    EXPECT_EQ(fresh.method(), test.method);
    const bool isSmaller = fresh.packedSize() < fresh.size();
    EXPECT_EQ(isSmaller, test.method == Method::Deflate && !test.liesInFile);
    EXPECT_EQ(fresh.descriptor() >= 0, test.liesInFile);
    EXPECT_TRUE(readBack(fresh, test.readPiece) == test.data);
    EXPECT_EQ(folder.entryCount(), 0U) << "the file has no name";
  }
}

TEST_F(SpoolTest, NothingIsTakenForWholeAfterAFailure) {
  {
    const support::FileSizeLimit limit(10 * kMiB);
    EXPECT_EQ(raisedBy([&] { writeInPieces(spool, samples::noise(12 * kMiB), kMiB); }),
              "opc:spool:CannotWrite(" + folder.path().string() + ", File too large)");
  }
  Spool nowhere(folder.narrow("missing"));
  EXPECT_EQ(raisedBy([&] { writeInPieces(nowhere, samples::noise(9 * kMiB), kMiB); }),
            "opc:spool:CannotCreate(" + folder.narrow("missing") + ", No such file or directory)");
  Spool abandoned(folder.path().string()), late(folder.path().string());
  abandoned.write("half", 4);
  abandoned.abandon();
  for (Spool* broken : {&spool, &abandoned}) {
    EXPECT_TRUE(broken->isBroken());
    EXPECT_EQ(raisedBy([&] { broken->write("x", 1); }), raised("Ended"));
    EXPECT_EQ(raisedBy([&] { broken->finish(); }), raised("Ended"));
    EXPECT_EQ(raisedBy([&] { Spool::Reader reader(*broken); }), raised("NotFinished"));
  }
  late.finish();
  EXPECT_FALSE(late.isBroken());
  EXPECT_EQ(raisedBy([&] { late.write("too late", 8); }), raised("Ended"));
  EXPECT_TRUE(late.isBroken());
}

TEST_F(SpoolTest, ManySpoolsShareOneFileAndOneBudget) {
  const auto openDescriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const std::string data = samples::noise(64 << 10);
  const auto before = openDescriptors();
  const long memoryBefore = support::peakKibibytes();
  std::deque<Spool> spools;
  for (int i = 0; i < 3000; ++i) {
    Spool& fresh = spools.emplace_back(storage);
    fresh.write(data.data(), data.size());
    fresh.finish();
  }
  EXPECT_LE(openDescriptors(), before + 1);
  EXPECT_LT(support::peakKibibytes() - memoryBefore, (32 << 10) + support::kHeldBySanitizer) << "of 187 MiB";
  EXPECT_TRUE(readBack(spools.front(), kMiB) == data);
  EXPECT_TRUE(readBack(spools.back(), kMiB) == data);
  // What spools held in memory is free for others when they go, or go on in the file.
  spools.clear();
  writeInPieces(spools.emplace_back(storage), samples::noise(9 * kMiB), kMiB);
  Spool moved = std::move(spool);
  writeInPieces(moved, samples::noise(6 * kMiB), kMiB);
  EXPECT_EQ(moved.descriptor(), -1);
}

TEST_F(SpoolTest, DamageOnDiskIsFound) {
  writeInPieces(spool, samples::noise(10 * kMiB), kMiB);
  spool.finish();
  const auto middle = static_cast<off_t>(spool.packedSize() / 2);
  ASSERT_EQ(pwrite(spool.descriptor(), "\x5a\xa5", 2, middle), 2);
  Spool::Reader reader(spool);
  std::string buffer(kMiB, '\0');
  const auto readAll = [&] {
    while (reader.read(buffer.data(), buffer.size()) > 0) continue;
  };
  EXPECT_EQ(raisedBy(readAll), raised("Damaged"));
  EXPECT_EQ(raisedBy(readAll), raised("Damaged")) << "a failed reader stays failed";
  ASSERT_EQ(ftruncate(spool.descriptor(), middle), 0);
  EXPECT_EQ(raisedBy([&] { readBack(spool, kMiB); }), raised("Damaged"));
}

}  // namespace
}  // namespace zip
