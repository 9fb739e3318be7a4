#include "platform/zip/writer.h"

#include <cerrno>
#include <filesystem>
#include <list>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "tests/platform/zip/archives.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/temporary_folder.h"

namespace {

int copyError = 0;  // what copying inside the kernel fails with; 0 lets it pass

}  // namespace

// In place of the C library's.
extern "C" ssize_t copy_file_range(int from, off64_t* at, int to, off64_t* into, size_t count,
                                   unsigned flags) {
  errno = copyError;
  return copyError != 0 ? -1 : syscall(SYS_copy_file_range, from, at, to, into, count, flags);
}

namespace zip {
namespace {

using fl::filesystem::Descriptor;
using support::raisedBy;

constexpr std::uint64_t kFarAway = std::uint64_t{5} << 30;

/// Entries with everything that a directory can say of them, and a comment behind all.
constexpr char kMakeRichArchive[] = R"(
def entry(name, data, method, extra=b"", comment=b"", mode=0o644, made=3):
    info = zipfile.ZipInfo(name, (1999, 12, 31, 23, 59, 58))
    info.compress_type, info.extra, info.comment = method, extra, comment
    info.external_attr, info.create_system = (0o100000 | mode) << 16, made
    archive.writestr(info, data)
with zipfile.ZipFile(path, "w") as archive:
    entry("plain.txt", "plain " * 500, 8)
    entry("extra.bin", bytes(range(256)), 0, extra=struct.pack("<HH4s", 0xCAFE, 4, b"keep"))
    entry("dropped.txt", "to be left out " * 100, 8)
    entry("comment.sh", "echo", 8, comment="a comment".encode(), mode=0o755, made=0)
    entry("gr\u00fc\u00dfe.txt", "utf-8 name", 8, extra=struct.pack("<HH", 0xBEEF, 0), comment=b"both")
    archive.comment = b"about the whole archive"
)";

constexpr char kMakeStreamedArchive[] = R"(
class Pipe:
    def __init__(self, file): self.file = file
    def write(self, data): return self.file.write(data)
    def flush(self): pass
with open(path, "wb") as file, zipfile.ZipFile(Pipe(file), "w", 8) as archive:
    for i in range(5): archive.writestr(f"streamed{i}.txt", f"entry {i} " * 300)
)";

/// One line an entry, with all that has to survive.
constexpr char kList[] = R"(import struct
with zipfile.ZipFile(path) as archive:
    def others(extra):
        fields = b""
        while len(extra) >= 4:
            kind, size = struct.unpack("<HH", extra[:4])
            if kind != 1: fields += extra[:4 + size]
            extra = extra[4 + size:]
        return fields.hex()
    for i in sorted(archive.infolist(), key=lambda i: i.filename):
        print(i.filename, i.date_time, others(i.extra), i.comment, hex(i.external_attr), i.create_system, hex(i.flag_bits),
              i.compress_type, i.CRC, i.file_size, hash(archive.read(i)) and len(archive.read(i)))
    print(archive.comment)
)";

/// One archive that is read, kept open as the writer asks for it.
struct Source {
  explicit Source(const std::string& path) : file(path), directory(Directory::read(file)) {}
  const Entry& entry(std::string_view name) const {
    for (const Entry& entry : directory.entries()) {
      if (entry.name == name) return entry;
    }
    throw std::out_of_range("no entry of that name");
  }
  fl::filesystem::InputFile file;
  Directory directory;
};

std::string withoutLine(std::string lines, const std::string& start) {
  const std::size_t at = lines.find(start);
  return at == std::string::npos ? lines : lines.erase(at, lines.find('\n', at) + 1 - at);
}

struct WriterTest : testing::Test {
  support::TemporaryFolder folder;
  std::list<Source> sources;

  std::string pathOf(std::string_view name) const { return folder.narrow(name); }

  const Source& make(std::string_view name, const std::string& script) {
    EXPECT_EQ(support::python(pathOf(name), "import struct" + script), "");
    return sources.emplace_back(pathOf(name));
  }
  Descriptor openOutput(std::string_view name) const {
    return Descriptor(::open(pathOf(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  }
  Spool spooled(std::string_view data) const {
    Spool spool(folder.path().string());
    spool.write(data.data(), data.size());
    spool.finish();
    return spool;
  }
  std::string list(std::string_view name) const { return support::python(pathOf(name), kList); }
};

TEST_F(WriterTest, CopiedEntriesKeepEverythingThatIsSaidOfThem) {
  const Source& source = make("rich.zip", kMakeRichArchive);
  const Descriptor output = openOutput("out.zip");
  Writer writer(output.get(), pathOf("out.zip"));
  for (const Entry& entry : source.directory.entries()) {
    if (entry.name != "dropped.txt") writer.copy(source.file, entry);
  }
  writer.finish(source.directory.comment());

  EXPECT_EQ(support::complaintsAbout(pathOf("out.zip")), "");
  EXPECT_EQ(list("out.zip"), withoutLine(list("rich.zip"), "dropped.txt"));
  EXPECT_EQ(folder.read("out.zip").find("dropped.txt"), std::string::npos);  // not even its bytes are left
}

TEST_F(WriterTest, CopiesWithTheKernelOrWithoutAndSaysWhyItCannot) {
  const Source& source = make("rich.zip", kMakeRichArchive);
  const std::string path = pathOf("out.zip"), unwritten = "opc:save:CannotWrite(" + path + ", ";
  const struct {
    int kernel;
    rlim_t room;
    std::string raised;
  } kDisks[] = {{EXDEV, RLIM_INFINITY, ""},
                {ENOSYS, 40, unwritten + "File too large)"},
                {0, 40, unwritten + "File too large)"},
                {EIO, RLIM_INFINITY, unwritten + "Input/output error)"}};
  for (const auto& [kernel, room, raised] : kDisks) {
    const Descriptor output = openOutput("out.zip");
    Writer writer(output.get(), path);
    for (const Entry& entry : source.directory.entries()) writer.copy(source.file, entry);
    const support::FileSizeLimit disk(room);
    copyError = kernel;
    EXPECT_EQ(raisedBy([&] { writer.finish(source.directory.comment()); }), raised);
    copyError = 0;
    if (!raised.empty()) continue;
    EXPECT_EQ(list("out.zip"), list("rich.zip"));
  }
}

TEST_F(WriterTest, NewEntriesAreReadByOthers) {
  const Descriptor output = openOutput("out.zip");
  ASSERT_EQ(ftruncate(output.get(), 50'000'000), 0);  // what stood there before is cut off
  const std::string noise = samples::noise(100'000);
  {
    Writer writer(output.get(), pathOf("out.zip"));
    writer.add("empty", spooled(""));
    writer.add("rows.csv", spooled(samples::rows(3'000'000)));
    writer.add("noise.bin", spooled(noise));
    writer.add("Größe.txt", spooled("tiny"));
    writer.finish("a comment");
  }
  EXPECT_EQ(support::complaintsAbout(pathOf("out.zip")), "");
  const std::string read = support::python(pathOf("out.zip"), R"(
import time
with zipfile.ZipFile(path) as archive:
    for i in archive.infolist():
        age = abs(time.mktime(i.date_time + (0, 0, -1)) - time.time())
        print(i.filename, i.compress_type, hex(i.flag_bits), hex(i.external_attr), i.create_system, len(archive.read(i)), i.extra, age < 60)
    print(archive.comment))");
  EXPECT_EQ(read,
            "empty 0 0x0 0x81a40000 3 0 b'' True\n"
            "rows.csv 8 0x0 0x81a40000 3 3000000 b'' True\n"
            "noise.bin 0 0x0 0x81a40000 3 100000 b'' True\n"
            "Größe.txt 0 0x800 0x81a40000 3 4 b'' True\n"
            "b'a comment'\n");
  EXPECT_NE(folder.read("out.zip").find(noise), std::string::npos);
}

/// Deflated data that is too large for memory is copied out of the spools' file, where that of others lies
/// between.
TEST_F(WriterTest, LargeDeflatedEntriesComeFromTheFileOfTheSpools) {
  const auto storage = std::make_shared<SpoolStorage>(folder.path().string());
  const std::string data = samples::rows(20 << 20);
  Spool first(storage), second(storage);
  for (std::size_t at = 0; at < data.size(); at += 1'000'000) {
    for (Spool* spool : {&first, &second})
      spool->write(&data[at], std::min<std::size_t>(1'000'000, data.size() - at));
  }
  first.finish();
  second.finish();
  EXPECT_GT(first.extents().size(), 1U);
  const Descriptor output = openOutput("out.zip");
  Writer writer(output.get(), pathOf("out.zip"));
  writer.add("first", first);
  writer.add("second", second);
  writer.finish("");
  EXPECT_EQ(support::complaintsAbout(pathOf("out.zip")), "");
  EXPECT_EQ(Source(pathOf("out.zip")).entry("first").method, Method::Deflate);
  EXPECT_TRUE(readAll(pathOf("out.zip")) == "first=" + data + ";second=" + data + ";");
}

TEST_F(WriterTest, CountsPastSixteenBits) {
  const Spool content = spooled("x");
  const Descriptor output = openOutput("many.zip");
  Writer writer(output.get(), pathOf("many.zip"));
  for (std::size_t i = 0; i < 65'535; ++i) writer.add("entry" + std::to_string(i), content);
  writer.finish("");
  EXPECT_EQ(support::complaintsAbout(pathOf("many.zip")), "");
  EXPECT_EQ(Source(pathOf("many.zip")).directory.entries().size(), 65'535U);
}

TEST_F(WriterTest, OffsetsPastThirtyTwoBits) {
  const Source& rich = make("rich.zip", kMakeRichArchive);
  const Source& streamed = make("streamed.zip", kMakeStreamedArchive);
  std::filesystem::copy_file(pathOf("rich.zip"), pathOf("far.zip"));
  // All numbers of an entry stand in its ZIP64 field, which is not the last one.
  support::ArchiveBuilder builder = twoEntries();
  builder.entries[1].useZip64(secondOffset());
  builder.entries[1].central.extra += support::extraField(0xCAFE, "wide");
  folder.write("wide.zip", builder.bytes());
  const Source& wide = sources.emplace_back(pathOf("wide.zip"));
  {
    const Descriptor output = openOutput("far.zip");
    Writer writer(output.get(), pathOf("far.zip"), kFarAway);
    for (const Entry& entry : rich.directory.entries()) writer.keep(entry);
    for (const Entry& entry : streamed.directory.entries()) writer.copy(streamed.file, entry);
    for (const Entry& entry : wide.directory.entries()) writer.copy(wide.file, entry);
    writer.add("new.txt", spooled("new"));
    writer.finish(rich.directory.comment());
  }
  EXPECT_EQ(support::complaintsAbout(pathOf("far.zip")), "");
  const std::string listed = list("far.zip");
  for (const char* name : {"comment.sh", "extra.bin", "streamed4.txt", "feca040077696465", "new.txt"}) {
    EXPECT_NE(listed.find(name), std::string::npos) << listed;
  }

  // Back to a small archive, where no offset needs the wide field any more.
  const Source far(pathOf("far.zip"));
  EXPECT_GT(far.entry("streamed0.txt").headerOffset, kFarAway - 1);
  const Descriptor output = openOutput("near.zip");
  Writer writer(output.get(), pathOf("near.zip"));
  for (const Entry& entry : far.directory.entries()) writer.copy(far.file, entry);
  writer.finish(far.directory.comment());
  EXPECT_EQ(support::complaintsAbout(pathOf("near.zip")), "");
  EXPECT_EQ(list("near.zip"), listed);
  EXPECT_LT(std::filesystem::file_size(pathOf("near.zip")), 100'000);
}

TEST_F(WriterTest, SizesPastThirtyTwoBits) {
  const std::string zeros(std::size_t{16} << 20, '\0');
  Spool spool(folder.path().string());
  for (int i = 0; i < 256; ++i) spool.write(zeros.data(), zeros.size());
  spool.finish();
  const Descriptor output = openOutput("large.zip");
  Writer writer(output.get(), pathOf("large.zip"));
  writer.add("large", spool);
  writer.finish("");
  EXPECT_EQ(support::python(pathOf("large.zip"), R"(
with zipfile.ZipFile(path) as archive:
    print(archive.getinfo("large").file_size, archive.open("large").read(2)))"),
            "4294967296 b'\\x00\\x00'\n");
  // Both headers are read, and say the same.
  EXPECT_EQ(Source(pathOf("large.zip")).entry("large").size, std::uint64_t{1} << 32);
}

TEST_F(WriterTest, WhatDoesNotFitIsRefused) {
  const Source& source = make("rich.zip", kMakeRichArchive);
  const std::string path = pathOf("out.zip");
  const Descriptor output = openOutput("out.zip");
  Writer writer(output.get(), path);
  EXPECT_EQ(raisedBy([&] { writer.add(std::string(65'536, 'n'), spooled("")); }),
            "opc:save:NameTooLong(" + path + ", " + std::string(80, 'n') + ")");
  EXPECT_EQ(raisedBy([&] { writer.add("n", Spool(folder.narrow(""))); }),
            "opc:save:ContentNotFinished(" + path + ", n)");
  EXPECT_EQ(raisedBy([&] { writer.finish(std::string(65'536, 'c')); }),
            "opc:save:CommentTooLong(" + path + ")");

  writer.copy(source.file, source.directory.entries().back());
  std::filesystem::resize_file(pathOf("rich.zip"), 100);
  EXPECT_EQ(raisedBy([&] { writer.finish(""); }), "opc:save:OriginalShrank(" + path + ")");
}

}  // namespace
}  // namespace zip
