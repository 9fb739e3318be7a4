#include "platform/zip/entry_reader.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/spool.h"
#include "tests/platform/zip/archives.h"
#include "tests/support/temporary_folder.h"

namespace zip {
namespace {

using support::ArchiveBuilder;
using Packing = ArchiveBuilder::Packing;

/// One archive with one entry of `content`, opened.
struct OneEntry {
  explicit OneEntry(const ArchiveBuilder& archive)
      : file(std::make_shared<const fl::filesystem::InputFile>(
            folder.write("a.zip", archive.bytes()).string())),
        directory(Directory::read(*file)) {}

  const Entry& entry() const { return directory.entries()[0]; }

  support::TemporaryFolder folder;
  std::shared_ptr<const fl::filesystem::InputFile> file;
  Directory directory;
};

TEST(EntryReader, GivesTheSameBytesInPiecesOfAnySize) {
  const std::string text = samples::rows(500'000);
  for (const Packing packing : {Packing::Stored, Packing::Deflated}) {
    ArchiveBuilder archive;
    archive.add("text", text, packing);
    const OneEntry one(archive);
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{7}, std::size_t{4096}, text.size(), text.size() + 1}) {
      EntryReader reader(one.file, one.entry());
      std::string read, buffer(piece, '\0');
      while (const std::size_t count = reader.read(buffer.data(), piece)) read.append(buffer, 0, count);
      EXPECT_TRUE(read == text) << piece;
      EXPECT_EQ(reader.read(buffer.data(), piece), 0U) << "the end stays the end";
    }
  }
}

// Who knows the size reads exactly that much and never asks for the end.
TEST(EntryReader, ChecksBeforeTheLastByteIsHandedOut) {
  ArchiveBuilder archive;
  auto& entry = archive.add("text", "0123456789x");
  for (auto* header : {&entry.local, &entry.central}) {
    header->size = 10;
    header->checksum = support::checksumOf("0123456789");
  }
  const OneEntry one(archive);
  EntryReader reader(one.file, one.entry());
  char buffer[10];
  EXPECT_EQ(reader.read(buffer, 9), 9U);
  const std::string expected = "opc:zip:DataTooLong(" + one.file->path() + ", text)";
  EXPECT_EQ(support::raisedBy([&] { reader.read(buffer, 1); }), expected);
  EntryReader moved(std::move(reader));
  EXPECT_EQ(support::raisedBy([&] { moved.read(buffer, 1); }), expected) << "a failed reader stays failed";
}

// Some programs say that nothing at all is deflated; an empty stream would have two bytes.
TEST(EntryReader, NothingIsReadFromNothing) {
  ArchiveBuilder archive;
  auto& entry = archive.add("empty", "");
  entry.data.clear();
  entry.local.compressedSize = entry.central.compressedSize = 0;
  const OneEntry one(archive);
  EXPECT_EQ(readWhole(one.file, one.entry(), 1), "");
}

// A hundred bytes that claim to be an exabyte must not ask for the memory.
TEST(EntryReader, DoesNotBelieveADeclaredSize) {
  ArchiveBuilder archive;
  auto& entry = archive.add("text", "0123456789");
  entry.local.size = entry.central.size = std::uint64_t{1} << 60;
  entry.useZip64(0);
  entry.central.compressedSize = entry.local.compressedSize = entry.data.size();
  for (auto* header : {&entry.local, &entry.central})
    header->extra = support::extraField(1, support::littleEndian(std::uint64_t{1} << 60, 8));
  entry.offset.reset();
  const OneEntry one(archive);
  EXPECT_EQ(support::raisedBy([&] { readWhole(one.file, one.entry(), ~std::uint64_t{0}); }),
            "opc:zip:DataTooShort(" + one.file->path() + ", text)");
  EXPECT_EQ(support::raisedBy([&] { readWhole(one.file, one.entry(), 1000); }),
            "opc:zip:EntryTooLarge(" + one.file->path() + ", text, 1000)");
}

#ifdef __x86_64__
[[gnu::target("avx")]] bool isWideRegisterFilled() {
  unsigned char upper[16 * 16];
  asm(".irp n,0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15\n"
      "vextractf128 $1, %%ymm\\n, 16*\\n(%0)\n"
      ".endr"
      :
      : "r"(upper)
      : "memory");
  return std::any_of(std::begin(upper), std::end(upper), [](unsigned char byte) { return byte != 0; });
}

// Filled ones make everything slow that comes after.
TEST(EntryReader, LeavesTheWideRegistersEmptyAsDoesASpool) {
  if (!__builtin_cpu_supports("avx")) GTEST_SKIP() << "there are none";
  const std::string text = samples::rows(300'000);
  ArchiveBuilder archive;
  archive.add("text", text, Packing::Deflated);
  const OneEntry one(archive);
  std::string buffer(text.size(), '\0');
  EntryReader reader(one.file, one.entry());
  reader.read(buffer.data(), buffer.size());
  EXPECT_FALSE(isWideRegisterFilled());
  Spool spool(one.folder.path().string());
  spool.write(text.data(), text.size());
  EXPECT_FALSE(isWideRegisterFilled());
  spool.finish();
  EXPECT_FALSE(isWideRegisterFilled());
}
#endif

}  // namespace
}  // namespace zip
