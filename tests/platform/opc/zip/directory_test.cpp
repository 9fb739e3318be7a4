#include "platform/opc/zip/directory.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/opc/zip/entry_reader.h"
#include "platform/opc/zip/exception.h"
#include "tests/support/archive_builder.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace opc::zip {
namespace {

using support::ArchiveBuilder;
using support::extraField;
using support::littleEndian;
using Packing = ArchiveBuilder::Packing;

std::string readAll(const std::string& path) {
  const auto file = std::make_shared<const ArchiveFile>(path);
  const Directory directory = Directory::read(*file);
  std::string all;
  for (const Entry& entry : directory.entries()) {
    all += std::string(entry.name) + "=" + readWhole(file, entry, 1 << 24) + ";";
  }
  return all;
}

/// The rule that refuses the file, "" if it is read to the end.
std::string ruleOf(const std::string& path) {
  try {
    readAll(path);
  } catch (const Exception& error) {
    EXPECT_EQ(support::describe(error).find(error.GetID() + "(" + path), 0U) << "the path comes first";
    // A text exists, with a place for everything it is given.
    EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
    return error.GetID();
  }
  return "";
}

struct Case {
  const char* what;
  const char* rule;  ///< "" for a sound archive
  void (*change)(ArchiveBuilder&);
};

/// Two entries, in this order: "first" deflated, "second" stored.
ArchiveBuilder twoEntries() {
  ArchiveBuilder archive;
  archive.add("first.txt", "some text", Packing::Deflated);
  archive.add("second.txt", "more text", Packing::Stored);
  return archive;
}

std::uint64_t secondOffset() { return 30 + 9 + support::deflateStream("some text").size(); }

void check(const Case& now) {
  SCOPED_TRACE(now.what);
  support::TemporaryFolder folder;
  ArchiveBuilder archive = twoEntries();
  now.change(archive);
  const std::string path = folder.write("archive.zip", archive.bytes()).string();
  EXPECT_EQ(ruleOf(path), now.rule);
  if (*now.rule != '\0') return;
  EXPECT_NE(readAll(path).find("first.txt=some text;second.txt=more text;"), std::string::npos);
}

std::string unicodePath(const std::string& of, const std::string& name) {
  return extraField(0x7075, "\1" + littleEndian(support::checksumOf(of), 4) + name);
}

const Case kHostile[] = {
    // The end of the archive.
    {"no end record", "opc:zip:NotAnArchive", [](ArchiveBuilder& a) { a.end.commentSize = 1; }},
    {"too much behind the end", "opc:zip:NotAnArchive",
     [](ArchiveBuilder& a) { a.trailing = std::string(17, ' '); }},
    {"a second end record in the comment", "opc:zip:NotAnArchive",
     [](ArchiveBuilder& a) { a.end.comment = "PK\5\6" + std::string(30, 'x'); }},
    {"a disk of several", "opc:zip:SeveralDisks", [](ArchiveBuilder& a) { a.end.disk = 1; }},
    {"entries on other disks", "opc:zip:SeveralDisks", [](ArchiveBuilder& a) { a.end.entriesOnDisk = 1; }},
    {"an entry on another disk", "opc:zip:SeveralDisks", [](ArchiveBuilder& a) { a.entries[1].disk = 2; }},
    {"directory size too small", "opc:zip:DirectoryMisplaced",
     [](ArchiveBuilder& a) { a.end.directorySize = 55; }},
    {"directory larger than the file", "opc:zip:DirectoryMisplaced",
     [](ArchiveBuilder& a) { a.end.directorySize = 0x7FFFFFFF; }},
    {"offsets that do not count a stub", "opc:zip:DirectoryMisplaced",
     [](ArchiveBuilder& a) { a.end.directoryOffset = a.bytes().size() - 22 - 2 * 46 - 19 - 4; }},
    {"bytes between directory and end", "opc:zip:DirectoryMisplaced",
     [](ArchiveBuilder& a) { a.beforeEnd = "x"; }},
    {"one entry less than declared", "opc:zip:EntryCountDiffers",
     [](ArchiveBuilder& a) { a.end.entries = a.end.entriesOnDisk = 1; }},
    {"far more entries than fit", "opc:zip:EntryCountDiffers",
     [](ArchiveBuilder& a) { a.end.entries = a.end.entriesOnDisk = 60000; }},
    {"record past the directory's end", "opc:zip:RecordBroken",
     [](ArchiveBuilder& a) {
       a.entries[1].central.extra = littleEndian(0, 4), a.entries[1].central.extraSize = 5;
     }},
    {"no record where one should be", "opc:zip:RecordBroken",
     [](ArchiveBuilder& a) { a.entries[0].central.extraSize = 1; }},
    {"ZIP64 record of another size", "opc:zip:Zip64EndBroken",
     [](ArchiveBuilder& a) { a.zip64End.emplace().recordSize = 45; }},
    {"ZIP64 record elsewhere", "opc:zip:Zip64EndBroken",
     [](ArchiveBuilder& a) { a.zip64End.emplace().recordOffset = 0; }},
    {"ZIP64 record past the file", "opc:zip:Zip64EndBroken",
     [](ArchiveBuilder& a) { a.zip64End.emplace().recordOffset = ~0ULL; }},
    {"ZIP64 record says other things", "opc:zip:EndRecordsDiffer",
     [](ArchiveBuilder& a) { a.zip64End.emplace().entries = 1; }},
    {"ZIP64 locator of several disks", "opc:zip:SeveralDisks",
     [](ArchiveBuilder& a) { a.zip64End.emplace().disks = 2; }},
    {"ZIP64 directory size that wraps around", "opc:zip:DirectoryMisplaced",
     [](ArchiveBuilder& a) {
       a.end.directorySize = 0xFFFFFFFF, a.zip64End.emplace().directorySize = ~0ULL - 5;
     }},
    {"ZIP64 count of entries that wraps around", "opc:zip:TooManyEntries",
     [](ArchiveBuilder& a) {
       a.end.entries = a.end.entriesOnDisk = 0xFFFF, a.zip64End.emplace().entries = ~0ULL;
     }},

    // Names.
    {"no name", "opc:zip:EmptyName", [](ArchiveBuilder& a) { a.entries[0].central.name = ""; }},
    {"NUL in a name", "opc:zip:NameWithNul", [](ArchiveBuilder& a) { a.entries[0].central.name[5] = '\0'; }},
    {"climbs at the start", "opc:zip:NameClimbs", [](ArchiveBuilder& a) { a.add("../x", ""); }},
    {"climbs inside", "opc:zip:NameClimbs", [](ArchiveBuilder& a) { a.add("a/../../x", ""); }},
    {"climbs at the end", "opc:zip:NameClimbs", [](ArchiveBuilder& a) { a.add("a..b/..", ""); }},
    {"climbs with backslashes", "opc:zip:NameClimbs", [](ArchiveBuilder& a) { a.add("a\\..\\x", ""); }},
    {"a name twice", "opc:zip:DuplicateName", [](ArchiveBuilder& a) { a.add("first.txt", "other text"); }},
    {"a second name in the directory", "opc:zip:TwoNames",
     [](ArchiveBuilder& a) { a.entries[0].central.extra = unicodePath("first.txt", "other.txt"); }},
    {"a second name in the local header, its checksum stale", "opc:zip:TwoNames",
     [](ArchiveBuilder& a) { a.entries[0].local.extra = unicodePath("old.txt", "other.txt"); }},
    {"a name in two encodings", "opc:zip:TwoNames",
     [](ArchiveBuilder& a) { a.add("\xC3\xA4", "").local.flags = 1 << 11; }},

    // What an entry says of itself in the directory.
    {"encrypted", "opc:zip:Encrypted", [](ArchiveBuilder& a) { a.entries[0].central.flags = 1; }},
    {"encrypted in the local header only", "opc:zip:Encrypted",
     [](ArchiveBuilder& a) { a.entries[0].local.flags = 1; }},
    {"strongly encrypted", "opc:zip:Encrypted",
     [](ArchiveBuilder& a) { a.entries[0].central.flags = 1 << 6; }},
    {"masked local headers", "opc:zip:Encrypted",
     [](ArchiveBuilder& a) { a.entries[0].central.flags = 1 << 13; }},
    {"method 12", "opc:zip:UnsupportedMethod", [](ArchiveBuilder& a) { a.entries[0].central.method = 12; }},
    {"a patch", "opc:zip:UnsupportedMethod", [](ArchiveBuilder& a) { a.entries[0].central.flags = 1 << 5; }},
    {"stored with two sizes", "opc:zip:StoredSizesDiffer",
     [](ArchiveBuilder& a) { a.entries[1].central.size = 8; }},
    {"extra field past its end", "opc:zip:ExtraFieldBroken",
     [](ArchiveBuilder& a) { a.entries[0].central.extra = littleEndian(9, 2) + littleEndian(1, 2); }},
    {"two ZIP64 fields", "opc:zip:ExtraFieldBroken",
     [](ArchiveBuilder& a) {
       a.entries[0].useZip64(0), a.entries[0].central.extra += a.entries[0].central.extra;
     }},
    {"ZIP64 field too short", "opc:zip:Zip64FieldBroken",
     [](ArchiveBuilder& a) {
       a.entries[0].central.size = 0xFFFFFFFF, a.entries[0].central.extra = extraField(1, "1234567");
     }},
    {"ZIP64 offset past the file", "opc:zip:EntryOutOfBounds",
     [](ArchiveBuilder& a) { a.entries[0].useZip64(~0ULL - 40); }},
    {"ZIP64 size past the file", "opc:zip:EntryOutOfBounds",
     [](ArchiveBuilder& a) { a.entries[0].central.compressedSize = ~0ULL - 40, a.entries[0].useZip64(0); }},

    // Where entries lie.
    {"header past the file", "opc:zip:EntryOutOfBounds",
     [](ArchiveBuilder& a) { a.entries[1].offset = 0xFFFFFF; }},
    {"header in the directory", "opc:zip:EntryOutOfBounds",
     [](ArchiveBuilder& a) { a.entries[1].offset = a.bytes().size() - 70; }},
    {"data reaches into the directory", "opc:zip:EntryOutOfBounds",
     [](ArchiveBuilder& a) { a.entries[1].data.pop_back(); }},
    {"data reaches into the next entry", "opc:zip:EntriesOverlap",
     [](ArchiveBuilder& a) { a.entries[0].central.compressedSize = a.entries[0].local.compressedSize += 1; }},
    {"two records of one entry", "opc:zip:EntriesOverlap",
     [](ArchiveBuilder& a) { a.entries[1].offset = 0; }},
    {"an entry inside another's data", "opc:zip:EntriesOverlap",
     [](ArchiveBuilder& a) {
       auto& outer = a.add("outer", "", Packing::Stored);
       const std::string inner = twoEntries().bytes().substr(secondOffset());
       outer.data = inner.substr(0, 30 + 10 + 9);
       for (auto* header : {&outer.local, &outer.central}) {
         header->size = header->compressedSize = outer.data.size();
         header->checksum = support::checksumOf(outer.data);
       }
       a.entries[1].offset = secondOffset() + 30 + 10 + 9 + 30 + 5;
     }},
    {"no header there", "opc:zip:LocalHeaderMissing", [](ArchiveBuilder& a) { a.entries[0].offset = 1; }},

    // Local header and descriptor against the directory.
    {"another name", "opc:zip:LocalNameDiffers",
     [](ArchiveBuilder& a) { a.entries[0].local.name = "First.txt"; }},
    {"another method", "opc:zip:LocalMethodDiffers",
     [](ArchiveBuilder& a) { a.entries[0].local.method = 0; }},
    {"another size", "opc:zip:LocalSizesDiffer", [](ArchiveBuilder& a) { a.entries[0].local.size = 10; }},
    {"another compressed size", "opc:zip:LocalSizesDiffer",
     [](ArchiveBuilder& a) { --a.entries[0].local.compressedSize; }},
    {"sizes left open without a descriptor", "opc:zip:LocalSizesDiffer",
     [](ArchiveBuilder& a) { a.entries[0].local.size = a.entries[0].local.compressedSize = 0; }},
    {"another ZIP64 size", "opc:zip:LocalSizesDiffer",
     [](ArchiveBuilder& a) { a.entries[0].useZip64(0), ++a.entries[0].local.extra[4]; }},
    {"another checksum", "opc:zip:LocalChecksumDiffers",
     [](ArchiveBuilder& a) { ++a.entries[0].local.checksum; }},
    {"another checksum in the descriptor", "opc:zip:DescriptorDiffers",
     [](ArchiveBuilder& a) { a.entries[0].stream(), ++a.entries[0].descriptor[4]; }},
    {"another size in a descriptor without signature", "opc:zip:DescriptorDiffers",
     [](ArchiveBuilder& a) { a.entries[0].stream(""), ++a.entries[0].descriptor[8]; }},
    {"descriptor that lies though the header is right", "opc:zip:DescriptorDiffers",
     [](ArchiveBuilder& a) {
       const auto local = a.entries[0].local;
       a.entries[0].stream(), a.entries[0].local = local, a.entries[0].local.flags = 8,
                              ++a.entries[0].descriptor[12];
     }},
    {"no descriptor", "opc:zip:DescriptorDiffers",
     [](ArchiveBuilder& a) { a.entries[1].stream(), a.entries[1].descriptor = ""; }},
    {"no room for the descriptor", "opc:zip:DescriptorDiffers",
     [](ArchiveBuilder& a) { a.entries[1].stream(), a.entries[1].descriptor.resize(8); }},

    // The data itself.
    {"wrong checksum everywhere", "opc:zip:ChecksumDiffers",
     [](ArchiveBuilder& a) { a.entries[0].central.checksum = ++a.entries[0].local.checksum; }},
    {"stored byte changed", "opc:zip:ChecksumDiffers", [](ArchiveBuilder& a) { a.entries[1].data[3] ^= 1; }},
    {"declared too long", "opc:zip:DataTooShort",
     [](ArchiveBuilder& a) { a.entries[0].central.size = ++a.entries[0].local.size; }},
    {"declared too short", "opc:zip:DataTooLong",
     [](ArchiveBuilder& a) { a.entries[0].central.size = --a.entries[0].local.size; }},
    {"declared empty", "opc:zip:DataTooLong",
     [](ArchiveBuilder& a) { a.entries[0].central.size = a.entries[0].local.size = 0; }},
    {"stream that does not end", "opc:zip:DataTooShort", [](ArchiveBuilder& a) { a.entries[0].data[0] = 0; }},
    {"no stream at all", "opc:zip:DataBroken", [](ArchiveBuilder& a) { a.entries[0].data[0] = 7; }},
    {"bytes behind the stream", "opc:zip:DataTooLong",
     [](ArchiveBuilder& a) {
       a.entries[0].data += "x";
       a.entries[0].central.compressedSize = ++a.entries[0].local.compressedSize;
     }},
};

TEST(Directory, RefusesWhatReadersCouldDisagreeAboutAndNamesTheRule) {
  for (const Case& hostile : kHostile) check(hostile);
}

const Case kSound[] = {
    {"as it is", "", [](ArchiveBuilder&) {}},
    {"comment", "", [](ArchiveBuilder& a) { a.end.comment = std::string(65535, 'c'); }},
    {"one byte behind the end", "", [](ArchiveBuilder& a) { a.trailing = "\n"; }},
    {"padded to a block", "",
     [](ArchiveBuilder& a) { a.end.comment = "c", a.trailing = std::string(16, '\0'); }},
    {"stub counted by every offset", "", [](ArchiveBuilder& a) { a.entries[0].before = "#!/bin/sh\n"; }},
    {"gap between entries", "", [](ArchiveBuilder& a) { a.entries[1].before = std::string(70000, 'g'); }},
    {"other times in the local headers", "", [](ArchiveBuilder& a) { a.entries[0].local.time = 0; }},
    {"flag of a descriptor, numbers in the header, no descriptor", "",
     [](ArchiveBuilder& a) { a.entries[0].local.flags = a.entries[0].central.flags = 8; }},
    {"descriptor", "", [](ArchiveBuilder& a) { a.entries[0].stream(), a.entries[1].stream(); }},
    {"descriptor without signature", "",
     [](ArchiveBuilder& a) { a.entries[0].stream(""), a.entries[1].stream(""); }},
    {"wide descriptor", "",
     [](ArchiveBuilder& a) { a.entries[0].stream("PK\7\10", 8), a.entries[1].stream("PK\7\10", 8); }},
    {"wide descriptor without signature", "",
     [](ArchiveBuilder& a) { a.entries[0].stream("", 8), a.entries[1].stream("", 8); }},
    {"wide descriptor of an empty entry", "",
     [](ArchiveBuilder& a) { a.add("empty", "", Packing::Stored).stream("PK\7\10", 8); }},
    {"ZIP64 fields", "",
     [](ArchiveBuilder& a) { a.entries[0].useZip64(0), a.entries[1].useZip64(secondOffset() + 20); }},
    {"ZIP64 end", "",
     [](ArchiveBuilder& a) { a.zip64End.emplace().extension = "future", a.end.entries = 0xFFFF; }},
    {"aligned with three bytes of padding", "",
     [](ArchiveBuilder& a) { a.entries[0].local.extra.assign(3, '\0'); }},
    {"the same name once more in an extra field", "",
     [](ArchiveBuilder& a) { a.entries[0].central.extra = unicodePath("first.txt", "first.txt"); }},
    {"dots that do not climb", "",
     [](ArchiveBuilder& a) { a.add("..a/b../...", ""), a.add("a..b", ""), a.add("...", ""); }},
};

TEST(Directory, IsNotStricterThanTheWorld) {
  for (const Case& sound : kSound) check(sound);
}

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
  Directory read = Directory::read(ArchiveFile(folder.write("a.zip", archive.bytes()).string()));
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
  const ArchiveFile file(folder.write("a.zip", twoEntries().bytes()).string());
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
      } catch (const Exception&) {
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
  const auto file = std::make_shared<const ArchiveFile>(path);
  const Directory directory = Directory::read(*file);
  ASSERT_EQ(directory.entries().size(), 70000U);
  EXPECT_EQ(directory.entries()[69999].name, "part69999");
  EXPECT_EQ(readWhole(file, directory.entries()[69999], 10), "69999");
}

TEST(ArchiveFile, RefusesWhatIsNoFile) {
  support::TemporaryFolder folder;
  folder.write("locked.zip", "");
  chmod(folder.narrow("locked.zip").c_str(), 0);
  chmod(folder.path().c_str(), 0755);
  ASSERT_EQ(mkfifo(folder.narrow("pipe").c_str(), 0600), 0);
  ASSERT_EQ(symlink("loop", folder.narrow("loop").c_str()), 0);
  const auto opening = [&](const std::string& name) {
    const std::string raised = support::raisedBy([&] { ArchiveFile file(folder.narrow(name)); });
    return raised.substr(0, raised.find('('));
  };
  EXPECT_THROW(ArchiveFile(folder.narrow("missing.zip")), model::PackageNotFound);
  EXPECT_THROW(ArchiveFile(folder.narrow("locked.zip/below.zip")), model::PackageNotFound);
  EXPECT_THROW(ArchiveFile(folder.narrow("locked.zip") + std::string("\0", 1)), model::PackageNotFound);
  EXPECT_EQ(opening("."), "opc:zip:NotAFile");
  EXPECT_EQ(opening("pipe"), "opc:zip:NotAFile") << "and does not wait for a writer";
  EXPECT_EQ(opening("loop"), "opc:zip:CannotOpen");
  const support::Unprivileged user;
  EXPECT_EQ(opening("locked.zip"), "opc:zip:CannotOpen");
}

}  // namespace
}  // namespace opc::zip
