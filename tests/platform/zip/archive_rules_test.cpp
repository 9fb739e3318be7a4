// What is refused and by which rule, and what is let pass although it is odd.

#include <gtest/gtest.h>

#include "tests/platform/zip/read_archive.h"
#include "tests/support/archive_builder.h"
#include "tests/support/temporary_folder.h"

namespace zip {
namespace {

using support::ArchiveBuilder;
using support::extraField;
using support::littleEndian;
using Packing = ArchiveBuilder::Packing;

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

}  // namespace
}  // namespace zip
