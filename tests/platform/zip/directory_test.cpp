#include "platform/zip/directory.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/entry_reader.h"
#include "tests/platform/zip/read_archive.h"
#include "tests/support/archive_builder.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace zip {
namespace {

using support::ArchiveBuilder;
using Packing = ArchiveBuilder::Packing;

TEST(Directory, TellsWhereEntriesLieAndWhichAreLinks) {
  support::TemporaryFolder folder;
  ArchiveBuilder archive = twoEntries();
  archive.entries[0].stream("PK\7\10", 8);
  archive.add("link", "first.txt", Packing::Stored);
  archive.entries[2].madeBy = 3 << 8 | 20;
  archive.entries[2].externalAttributes = 0120777U << 16;
  // The same bits mean nothing when another system wrote them.
  archive.add("no_link", "", Packing::Stored).externalAttributes = 0120777U << 16;
  archive.end.comment = "kept";
  Directory read =
      Directory::read(fl::filesystem::InputFile(folder.write("a.zip", archive.bytes()).string()));
  const Directory directory = std::move(read);

  const auto& entries = directory.entries();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(directory.comment(), "kept");
  EXPECT_EQ(entries[0].dataOffset, 39U);
  EXPECT_EQ(entries[0].endOffset, secondOffset() + 24);
  for (std::size_t i = 0; i + 1 < entries.size(); ++i)
    EXPECT_EQ(entries[i].endOffset, entries[i + 1].headerOffset);
  EXPECT_EQ(entries[3].endOffset, directory.offset());
  EXPECT_EQ(entries[1].centralRecord.size(), 46 + entries[1].name.size());
  EXPECT_TRUE(entries[2].isSymbolicLink);
  EXPECT_FALSE(entries[3].isSymbolicLink);
}

TEST(Directory, KeepsTheDirectorysOrderWhenEntriesLieInAnother) {
  support::TemporaryFolder folder;
  ArchiveBuilder archive = twoEntries();
  // Records and headers cross: the names, methods and numbers follow their headers.
  std::swap(archive.entries[0].central, archive.entries[1].central);
  archive.entries[0].offset = secondOffset();
  archive.entries[1].offset = 0;
  EXPECT_EQ(readAll(folder.write("a.zip", archive.bytes()).string()),
            "second.txt=more text;first.txt=some text;");
}

TEST(Directory, KeepsToItsLimits) {
  support::TemporaryFolder folder;
  const fl::filesystem::InputFile file(folder.write("a.zip", twoEntries().bytes()).string());
  Limits limits;
  limits.entries = 2;
  limits.directoryBytes = 2 * 46 + 19;
  EXPECT_EQ(Directory::read(file, limits).entries().size(), 2U);
  limits.entries = 1;
  EXPECT_EQ(support::raisedBy([&] { Directory::read(file, limits); }),
            "opc:zip:TooManyEntries(" + file.path() + ", 1)");
  limits = {};
  limits.directoryBytes = 110;
  EXPECT_EQ(support::raisedBy([&] { Directory::read(file, limits); }),
            "opc:zip:DirectoryTooLarge(" + file.path() + ", 110)");
}

TEST(Directory, RefusesEveryTruncation) {
  support::TemporaryFolder folder;
  const std::string whole = twoEntries().bytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string path = folder.write("cut.zip", whole.substr(0, size)).string();
    EXPECT_EQ(ruleOf(path), "opc:zip:NotAnArchive") << size;
  }
}

void overwrite(const std::string& path, std::size_t at, char byte) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(at)).put(byte);
}

/// Whatever byte of an archive changes, what is read is what was written, or nothing.
void flipEveryByte(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string sound{std::istreambuf_iterator<char>(file), {}};
  const std::string expected = readAll(path);
  std::size_t refused = 0;
  for (std::size_t at = 0; at < sound.size(); ++at) {
    for (const int mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
      overwrite(path, at, static_cast<char>(sound[at] ^ mask));
      try {
        ASSERT_EQ(readAll(path), expected) << "byte " << at << " mask " << mask;
      } catch (const opc::Exception&) {
        ++refused;
      }
    }
    overwrite(path, at, sound[at]);
  }
  EXPECT_GT(refused, sound.size()) << "most bytes matter";
}

TEST(Directory, NeverGivesOtherBytesAfterAFlip) {
  ArchiveBuilder archive = twoEntries();
  archive.entries[0].stream();
  archive.entries[1].useZip64(secondOffset() + 16);
  archive.zip64End.emplace();
  support::TemporaryFolder folder;
  flipEveryByte(folder.write("a.zip", archive.bytes()).string());
}

std::string madeBy(const support::TemporaryFolder& folder, const std::string& command) {
  const std::string all =
      "cd '" + folder.path().string() + "' && rm -f out.zip && { " + command + "; } >/dev/null 2>&1";
  EXPECT_EQ(std::system(all.c_str()), 0) << command;
  return folder.narrow("out.zip");
}

std::string python(const std::string& program) {
  return "/usr/bin/python3 -c \"import zipfile, io, sys\n" + program + "\"";
}

TEST(Directory, OpensWhatOtherProgramsWrite) {
  support::TemporaryFolder folder;
  std::string text;
  for (int i = 0; i < 30000; ++i) text += "sample " + std::to_string(i * i % 977) + "\n";
  folder.write("text.csv", text);
  folder.write("empty", "");
  folder.write("sub/Größe.txt", "umlaut");
  const std::string inPython = "z = zipfile.ZipFile('out.zip', 'w', zipfile.ZIP_DEFLATED)\n";
  const struct {
    const char* what;
    std::string command;
    std::string expected;  ///< part of what is read
  } kCommands[] = {
      {"zip", "zip -r out.zip text.csv empty sub", "text.csv=" + text + ";empty=;"},
      {"zip, stored, with a comment", "echo remark | zip -0 -z out.zip text.csv empty", "text.csv=" + text},
      {"zip, streamed in and out", "cat text.csv | zip - - | cat > out.zip", "-=" + text},
      {"zip, forced ZIP64", "zip -fz out.zip text.csv empty", "text.csv=" + text},
      {"zip, link kept", "ln -sf empty link && zip -y out.zip link text.csv", "link=empty;"},
      {"zip, self-extractor", "zip in.zip text.csv && cat empty /bin/true in.zip > out.zip && zip -A out.zip",
       text},
      {"7z", "7z a -tzip out.zip text.csv empty sub", "text.csv=" + text},
      {"7z, best", "7z a -tzip -mx=9 out.zip text.csv", "text.csv=" + text},
      {"python", python(inPython + "z.write('text.csv')\nz.comment=b'note'\nz.close()"), "text.csv=" + text},
      {"python, forced ZIP64",
       python(inPython +
              "f = z.open('text.csv', 'w', force_zip64=True)\nf.write(open('text.csv','rb').read())\n"
              "f.close()\nz.close()"),
       "text.csv=" + text},
      {"python, to a pipe",
       python("class Pipe(io.RawIOBase):\n  def writable(self): return True\n  def write(self, b): return "
              "sys.stdout.buffer.write(b)\nz = zipfile.ZipFile(Pipe(), 'w', zipfile.ZIP_DEFLATED)\n"
              "z.write('text.csv')\nz.writestr('empty', '')\nz.close()") +
           " | cat > piped.zip && mv piped.zip out.zip",
       "text.csv=" + text + ";empty=;"},
      {"python, nothing in it", python(inPython + "z.close()"), ""},
  };
  for (const auto& now : kCommands) {
    SCOPED_TRACE(now.what);
    const std::string path = madeBy(folder, now.command);
    EXPECT_EQ(support::raisedBy([&] { EXPECT_NE(readAll(path).find(now.expected), std::string::npos); }), "");
  }
  folder.write("small.csv", text.substr(0, 400));
  flipEveryByte(madeBy(folder, "zip out.zip small.csv empty"));
}

TEST(Directory, ReadsSeventyThousandEntries) {
  support::TemporaryFolder folder;
  const std::string path =
      madeBy(folder, python("z = zipfile.ZipFile('out.zip', 'w')\nfor i in range(70000): "
                            "z.writestr('part%d' % i, str(i))\nz.close()"));
  const auto file = std::make_shared<const fl::filesystem::InputFile>(path);
  const Directory directory = Directory::read(*file);
  ASSERT_EQ(directory.entries().size(), 70000U);
  EXPECT_EQ(directory.entries()[69999].name, "part69999");
  EXPECT_EQ(readWhole(file, directory.entries()[69999], 10), "69999");
}

}  // namespace
}  // namespace zip
