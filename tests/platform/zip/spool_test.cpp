#include "platform/zip/spool.h"

#include <deque>
#include <filesystem>
#include <iterator>

#include <gtest/gtest.h>

#include "sample_data.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/memory.h"
#include "tests/support/raised.h"
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
  support::TemporaryFolder folder;
  Spool spool{folder.path().string()};
};

TEST_F(SpoolTest, GivesBackWhatWasWritten) {
  struct Case {
    const char* what;
    std::string data;
    std::size_t writePiece, readPiece;
    bool liesInFile;
  };
  const Case cases[] = {
      {"nothing", "", 1, 16, false},
      {"one byte", "x", 1, 1, false},
      {"byte by byte", samples::rows(100'000), 1, 1, false},
      {"does not shrink", samples::noise(100'000), 4096, 999, false},
      {"in one piece", samples::noise(12 * kMiB), 12 * kMiB, kMiB, true},
      {"rows of numbers", samples::rows(2 * kMiB), 100'000, 50'000, false},
      {"long runs of one byte", std::string(20 * kMiB, 'a'), 3 * kMiB, kMiB, false},
      {"noise past the memory", samples::noise(9 * kMiB), 10'007, 70'001, true},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.what);
    Spool fresh(folder.path().string());
    writeInPieces(fresh, test.data, test.writePiece);
    fresh.finish();
    fresh.finish();
    EXPECT_EQ(fresh.size(), test.data.size());
    EXPECT_EQ(fresh.descriptor() >= 0, test.liesInFile);
    EXPECT_TRUE(readBack(fresh, test.readPiece) == test.data);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));  // the file has no name
  }
}

TEST_F(SpoolTest, ChecksumIsTheOneOfArchives) {
  spool.write("12345", 5);
  spool.write("6789", 4);
  spool.finish();
  EXPECT_EQ(spool.checksum(), 0xCBF43926U);  // the check value that is published for this CRC
}

TEST_F(SpoolTest, NothingIsTakenForWholeAfterTheDiskWasFull) {
  const std::string data = samples::noise(12 * kMiB);
  const std::string full = "opc:spool:CannotWrite(" + folder.path().string() + ", File too large)";
  {
    const support::FileSizeLimit limit(10 * kMiB);
    EXPECT_EQ(raisedBy([&] { writeInPieces(spool, data, kMiB); }), full);
  }
  const std::string ended = "opc:spool:Ended(" + folder.path().string() + ")";
  EXPECT_EQ(raisedBy([&] { spool.write("x", 1); }), ended);
  EXPECT_EQ(raisedBy([&] { spool.finish(); }), ended);
  EXPECT_TRUE(spool.isBroken());

  Spool given(folder.path().string());
  given.write("half", 4);
  EXPECT_FALSE(given.isBroken());
  given.abandon();
  EXPECT_EQ(raisedBy([&] { given.finish(); }), ended);
}

TEST_F(SpoolTest, TheFolderIsOnlyNeededByLargeData) {
  Spool homeless(folder.narrow("missing"));
  writeInPieces(homeless, samples::noise(7 * kMiB), kMiB);
  EXPECT_EQ(raisedBy([&] { writeInPieces(homeless, samples::noise(2 * kMiB), kMiB); }),
            "opc:spool:CannotCreate(" + folder.narrow("missing") + ", No such file or directory)");
}

std::size_t openDescriptors() {
  using Iterator = std::filesystem::directory_iterator;
  return static_cast<std::size_t>(std::distance(Iterator("/proc/self/fd"), Iterator()));
}

TEST_F(SpoolTest, ManySpoolsShareOneFileAndOneBudget) {
  const std::string data = samples::noise(64 << 10);
  const auto storage = std::make_shared<SpoolStorage>(folder.path().string());
  const std::size_t before = openDescriptors();
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
}

TEST_F(SpoolTest, SpoolsWrittenInTurnsKeepTheirOwnData) {
  const auto storage = std::make_shared<SpoolStorage>(folder.path().string());
  const std::string data[] = {samples::noise(10 * kMiB), samples::noise(10 * kMiB).substr(1)};
  Spool first(storage), second(storage);
  for (std::size_t at = 0; at < data[0].size(); at += 100'000) {
    first.write(data[0].data() + at, std::min<std::size_t>(100'000, data[0].size() - at));
    second.write(data[1].data() + at, std::min<std::size_t>(100'000, data[1].size() - at));
  }
  first.finish();
  second.finish();
  EXPECT_GT(first.extents().size(), 1U);
  EXPECT_TRUE(readBack(first, 70'001) == data[0]);
  EXPECT_TRUE(readBack(second, 70'001) == data[1]);
}

TEST_F(SpoolTest, MemoryOfASpoolThatGoesIsFreeForOthers) {
  const auto storage = std::make_shared<SpoolStorage>(folder.path().string());
  const std::string data = samples::noise(6 * kMiB);
  for (int i = 0; i < 3; ++i) {
    Spool fresh(storage);
    fresh.write(data.data(), data.size());
    fresh.finish();
    EXPECT_EQ(fresh.descriptor(), -1);
  }
}

TEST_F(SpoolTest, MustBeFinishedToBeRead) {
  spool.write("data", 4);
  EXPECT_EQ(raisedBy([&] { Spool::Reader reader(spool); }),
            "opc:spool:NotFinished(" + folder.path().string() + ")");
  spool.finish();
  EXPECT_EQ(raisedBy([&] { spool.write("more", 4); }), "opc:spool:Ended(" + folder.path().string() + ")");
  EXPECT_TRUE(spool.isBroken()) << "what came too late is missing";
  char byte = 0;
  EXPECT_EQ(raisedBy([&] { spool.readCompressed(spool.compressedSize(), &byte, 1); }),
            "opc:spool:Damaged(" + folder.path().string() + ")");
}

TEST_F(SpoolTest, DamageOnDiskIsFound) {
  const std::string damaged = "opc:spool:Damaged(" + folder.path().string() + ")";
  writeInPieces(spool, samples::noise(10 * kMiB), kMiB);
  spool.finish();
  const off_t middle = static_cast<off_t>(spool.compressedSize() / 2);
  char byte = 0;
  ASSERT_EQ(pread(spool.descriptor(), &byte, 1, middle), 1);
  byte = static_cast<char>(byte ^ 0x10);
  ASSERT_EQ(pwrite(spool.descriptor(), &byte, 1, middle), 1);
  Spool::Reader reader(spool);
  std::string buffer(kMiB, '\0');
  const auto readAll = [&] {
    while (reader.read(buffer.data(), buffer.size()) > 0) {
    }
  };
  EXPECT_EQ(raisedBy(readAll), damaged);
  EXPECT_EQ(raisedBy(readAll), damaged);  // a failed reader stays failed

  ASSERT_EQ(ftruncate(spool.descriptor(), middle), 0);
  EXPECT_EQ(raisedBy([&] { readBack(spool, kMiB); }), damaged);
}

}  // namespace
}  // namespace zip
