#include "platform/zip/directory.h"

#include <fstream>

#include <gtest/gtest.h>

#include "tests/platform/zip/archives.h"
#include "tests/support/temporary_folder.h"

namespace zip {
namespace {

using support::ArchiveBuilder;
using Packing = ArchiveBuilder::Packing;
using support::extraField;
using support::littleEndian;

struct Case {
  const char* what;
  const char* rule;  ///< "" for a sound archive
  void (*change)(ArchiveBuilder&);
};

void check(const Case& now) {
  SCOPED_TRACE(now.what);
  support::TemporaryFolder folder;
  ArchiveBuilder archive = twoEntries();
  now.change(archive);
  const std::string path = folder.write("archive.zip", archive.bytes()).string();
  EXPECT_EQ(ruleOf(path), *now.rule == '\0' ? "" : std::string("opc:zip:") + now.rule);
  if (*now.rule != '\0') return;
  EXPECT_NE(readAll(path).find("first.txt=some text;second.txt=more text;"), std::string::npos);
}

std::string unicodePath(const std::string& of, const std::string& name) {
  return extraField(0x7075, "\1" + littleEndian(support::checksumOf(of), 4) + name);
}

const Case kHostile[] = {
    // The end of the archive.
    {"no end record", "NotAnArchive", [](auto& a) { a.end.commentSize = 1; }},
    {"too much behind the end", "NotAnArchive", [](auto& a) { a.trailing = std::string(17, ' '); }},
    {"a second end record in the comment", "NotAnArchive",
     [](auto& a) { a.end.comment = "PK\5\6" + std::string(30, 'x'); }},
    {"an entry on another disk", "SeveralDisks", [](auto& a) { a.entries[1].disk = 2; }},
    {"directory size too small", "DirectoryMisplaced", [](auto& a) { a.end.directorySize = 55; }},
    {"bytes between directory and end", "DirectoryMisplaced", [](auto& a) { a.beforeEnd = "x"; }},
    {"one entry less than declared", "EntryCountDiffers",
     [](auto& a) { a.end.entries = a.end.entriesOnDisk = 1; }},
    {"far more entries than fit", "EntryCountDiffers",
     [](auto& a) { a.end.entries = a.end.entriesOnDisk = 60000; }},
    {"no record where one should be", "RecordBroken", [](auto& a) { a.entries[0].central.extraSize = 1; }},
    {"ZIP64 record of another size", "Zip64EndBroken", [](auto& a) { a.zip64End.emplace().recordSize = 45; }},
    {"ZIP64 record past the file", "Zip64EndBroken",
     [](auto& a) { a.zip64End.emplace().recordOffset = ~0ULL; }},
    {"ZIP64 locator with no room for a record", "Zip64EndBroken",
     [](auto& a) { a.entries.clear(), a.beforeEnd = "PK\6\7" + std::string(12, '\0') + littleEndian(1, 4); }},
    {"ZIP64 record says other things", "EndRecordsDiffer", [](auto& a) { a.zip64End.emplace().entries = 1; }},
    {"ZIP64 count of entries that wraps around", "TooManyEntries",
     [](auto& a) { a.end.entries = a.end.entriesOnDisk = 0xFFFF, a.zip64End.emplace().entries = ~0ULL; }},

    // Names.
    {"no name", "EmptyName", [](auto& a) { a.entries[0].central.name = ""; }},
    {"NUL in a name", "NameWithNul", [](auto& a) { a.entries[0].central.name[5] = '\0'; }},
    {"climbs at the end", "NameClimbs", [](auto& a) { a.add("a..b/..", ""); }},
    {"climbs with backslashes", "NameClimbs", [](auto& a) { a.add("a\\..\\x", ""); }},
    {"a name twice", "DuplicateName", [](auto& a) { a.add("first.txt", "other text"); }},
    {"a second name in the directory", "TwoNames",
     [](auto& a) { a.entries[0].central.extra = unicodePath("first.txt", "other.txt"); }},
    {"a second name in the local header, its checksum stale", "TwoNames",
     [](auto& a) { a.entries[0].local.extra = unicodePath("old.txt", "other.txt"); }},
    {"a name in two encodings", "TwoNames", [](auto& a) { a.add("\xC3\xA4", "").local.flags = 1 << 11; }},

    // What an entry says of itself in the directory.
    {"encrypted", "Encrypted", [](auto& a) { a.entries[0].central.flags = 1; }},
    {"encrypted in the local header only", "Encrypted", [](auto& a) { a.entries[0].local.flags = 1; }},
    {"method 12", "UnsupportedMethod", [](auto& a) { a.entries[0].central.method = 12; }},
    {"a patch", "UnsupportedMethod", [](auto& a) { a.entries[0].central.flags = 1 << 5; }},
    {"a patch in the local header only", "LocalMethodDiffers",
     [](auto& a) { a.entries[0].local.flags = 1 << 5; }},
    {"stored with two sizes", "StoredSizesDiffer", [](auto& a) { a.entries[1].central.size = 8; }},
    {"extra field past its end", "ExtraFieldBroken",
     [](auto& a) { a.entries[0].central.extra = littleEndian(9, 2) + littleEndian(1, 2); }},
    {"two ZIP64 fields", "ExtraFieldBroken",
     [](auto& a) { a.entries[0].useZip64(0), a.entries[0].central.extra += a.entries[0].central.extra; }},
    {"ZIP64 field too short", "Zip64FieldBroken",
     [](auto& a) {
       a.entries[0].central.size = 0xFFFFFFFF, a.entries[0].central.extra = extraField(1, "1234567");
     }},
    {"ZIP64 field without the disk", "Zip64FieldBroken",
     [](auto& a) { a.entries[0].disk = 0xFFFF, a.entries[0].central.extra = extraField(1, "123"); }},
    {"ZIP64 field too short in the local header", "Zip64FieldBroken",
     [](auto& a) {
       a.entries[0].local.size = 0xFFFFFFFF, a.entries[0].local.extra = extraField(1, "1234567");
     }},

    // Where entries lie.
    {"header past the file", "EntryOutOfBounds", [](auto& a) { a.entries[1].offset = 0xFFFFFF; }},
    {"data reaches into the next entry", "EntriesOverlap",
     [](auto& a) { a.entries[0].central.compressedSize = a.entries[0].local.compressedSize += 1; }},
    {"an entry inside another's data", "EntriesOverlap",
     [](auto& a) {
       const std::string inner = a.bytes().substr(secondOffset(), 30 + 10 + 9);
       a.add("outer", inner, Packing::Stored);
       a.entries[1].offset = secondOffset() + inner.size() + 30 + 5;
     }},
    {"no header there", "LocalHeaderMissing", [](auto& a) { a.entries[0].offset = 1; }},

    // Local header and descriptor against the directory.
    {"another name", "LocalNameDiffers", [](auto& a) { a.entries[0].local.name = "First.txt"; }},
    {"another method", "LocalMethodDiffers", [](auto& a) { a.entries[0].local.method = 0; }},
    {"another size", "LocalSizesDiffer", [](auto& a) { a.entries[0].local.size = 10; }},
    {"sizes left open without a descriptor", "LocalSizesDiffer",
     [](auto& a) { a.entries[0].local.size = a.entries[0].local.compressedSize = 0; }},
    {"another checksum", "LocalChecksumDiffers", [](auto& a) { ++a.entries[0].local.checksum; }},
    {"another checksum in the descriptor", "DescriptorDiffers",
     [](auto& a) { a.entries[0].stream(), ++a.entries[0].descriptor[4]; }},
    {"another size in a descriptor without signature", "DescriptorDiffers",
     [](auto& a) { a.entries[0].stream(""), ++a.entries[0].descriptor[8]; }},
    {"descriptor that lies though the header is right", "DescriptorDiffers",
     [](auto& a) {
       const auto local = a.entries[0].local;
       a.entries[0].stream(), a.entries[0].local = local, a.entries[0].local.flags = 8,
                              ++a.entries[0].descriptor[12];
     }},

    // The data itself.
    {"wrong checksum everywhere", "ChecksumDiffers",
     [](auto& a) { a.entries[0].central.checksum = ++a.entries[0].local.checksum; }},
    {"declared too long", "DataTooShort",
     [](auto& a) { a.entries[0].central.size = ++a.entries[0].local.size; }},
    {"declared too short", "DataTooLong",
     [](auto& a) { a.entries[0].central.size = --a.entries[0].local.size; }},
    {"declared empty", "DataTooLong",
     [](auto& a) { a.entries[0].central.size = a.entries[0].local.size = 0; }},
    {"stream that does not end", "DataTooShort", [](auto& a) { a.entries[0].data[0] = 0; }},
    {"no stream at all", "DataBroken", [](auto& a) { a.entries[0].data[0] = 7; }},
    {"bytes behind the stream", "DataTooLong",
     [](auto& a) {
       a.entries[0].data += "x";
       a.entries[0].central.compressedSize = ++a.entries[0].local.compressedSize;
     }},
};

TEST(Directory, RefusesWhatReadersCouldDisagreeAboutAndNamesTheRule) {
  for (const Case& hostile : kHostile) check(hostile);
}

TEST(Directory, RefusesEveryTruncation) {
  support::TemporaryFolder folder;
  const std::string whole = twoEntries().bytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string path = folder.write("cut.zip", whole.substr(0, size)).string();
    EXPECT_EQ(ruleOf(path), "opc:zip:NotAnArchive") << size;
  }
}

const Case kSound[] = {
    {"comment", "", [](auto& a) { a.end.comment = std::string(65535, 'c'); }},
    {"padded to a block", "", [](auto& a) { a.end.comment = "c", a.trailing = std::string(16, '\0'); }},
    {"stub counted by every offset", "", [](auto& a) { a.entries[0].before = "#!/bin/sh\n"; }},
    {"other times in the local headers", "", [](auto& a) { a.entries[0].local.time = 0; }},
    {"flag of a descriptor, numbers in the header, no descriptor", "",
     [](auto& a) { a.entries[0].local.flags = a.entries[0].central.flags = 8; }},
    {"descriptor", "", [](auto& a) { a.entries[0].stream(), a.entries[1].stream(); }},
    {"descriptor without signature", "", [](auto& a) { a.entries[0].stream(""), a.entries[1].stream(""); }},
    {"wide descriptor without signature", "",
     [](auto& a) { a.entries[0].stream("", 8), a.entries[1].stream("", 8); }},
    {"wide descriptor of an empty entry", "",
     [](auto& a) { a.add("empty", "", Packing::Stored).stream("PK\7\10", 8); }},
    {"ZIP64 fields", "",
     [](auto& a) { a.entries[0].useZip64(0), a.entries[1].useZip64(secondOffset() + 20); }},
    {"ZIP64 end", "", [](auto& a) { a.zip64End.emplace().extension = "future", a.end.entries = 0xFFFF; }},
    {"aligned with three bytes of padding", "", [](auto& a) { a.entries[0].local.extra.assign(3, '\0'); }},
    {"the same name once more in an extra field", "",
     [](auto& a) { a.entries[0].central.extra = unicodePath("first.txt", "first.txt"); }},
    {"dots that do not climb", "",
     [](auto& a) { a.add("..a/b../...", ""), a.add("a..b", ""), a.add("...", ""); }},
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
  EXPECT_EQ(Directory::read(file, {.entries = 2, .directoryBytes = 2 * 46 + 19}).entries().size(), 2U);
  EXPECT_EQ(support::raisedBy([&] { Directory::read(file, {.entries = 1}); }),
            "opc:zip:TooManyEntries(" + file.path() + ", 1)");
  EXPECT_EQ(support::raisedBy([&] { Directory::read(file, {.directoryBytes = 110}); }),
            "opc:zip:DirectoryTooLarge(" + file.path() + ", 110)");
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
  const std::string said =
      support::outputOf("cd '" + folder.path().string() + "' && rm -f out.zip && { " + command + "; }");
  EXPECT_EQ(said.find("exit "), std::string::npos) << said;
  return folder.narrow("out.zip");
}

std::string python(const std::string& program) {
  return "/usr/bin/python3 -c \"import zipfile\n" + program + "\"";
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
    std::string command, expected;  ///< part of what is read
  } kCommands[] = {
      {"zip -r out.zip text.csv empty sub", "text.csv=" + text + ";empty=;"},
      {"echo remark | zip -0 -z out.zip text.csv empty", "text.csv=" + text},
      {"cat text.csv | zip - - | cat > out.zip", "-=" + text},
      {"zip -fz out.zip text.csv empty", "text.csv=" + text},
      {"ln -sf empty link && zip -y out.zip link text.csv", "link=empty;"},
      {"zip in.zip text.csv && cat empty /bin/true in.zip > out.zip && zip -A out.zip", text},
      {"7z a -tzip out.zip text.csv empty sub", "text.csv=" + text},
      {"7z a -tzip -mx=9 out.zip text.csv", "text.csv=" + text},
      {python(inPython + "z.write('text.csv')\nz.comment=b'note'\nz.close()"), "text.csv=" + text},
      {python(inPython + "with z.open('text.csv', 'w', force_zip64=True) as f: "
                         "f.write(open('text.csv','rb').read())\nz.close()"),
       "text.csv=" + text},
      {python(inPython + "z.close()"), ""},
  };
  for (const auto& now : kCommands) {
    SCOPED_TRACE(now.command);
    const std::string path = madeBy(folder, now.command);
    EXPECT_EQ(support::raisedBy([&] { EXPECT_NE(readAll(path).find(now.expected), std::string::npos); }), "");
  }
  folder.write("small.csv", text.substr(0, 400));
  flipEveryByte(madeBy(folder, "zip out.zip small.csv empty"));
}

}  // namespace
}  // namespace zip
