#include "platform/zip/local_headers.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>

#include "platform/errors/package_errors.h"
#include "platform/zip/records.h"

// An entry is described by its record in the directory, by the local header in front of its data (APPNOTE
// 4.3.7) and, where the writer did not know the numbers yet when it wrote that, by a data descriptor behind
// the data (4.3.9). Programs that read an archive as a stream never see the directory, so all descriptions
// must agree.
//
// The entries are visited in the order in which they lie in the file. That makes overlaps easy to see,
// because an entry then only has to end before the next one starts, and reading fast, because the window on
// the file moves in one direction.

namespace zip {
namespace {

using opc::refuse;

// Signature, checksum and two sizes of 64 bits.
constexpr std::size_t kLargestDescriptor = 24;
/// Large enough for the largest header, small enough to stay in the processor's cache.
constexpr std::uint64_t kWindow = std::uint64_t{256} << 10;
/// Reading over a gap of this length costs no more than a read of its own.
constexpr std::uint64_t kGapWorthReading = std::uint64_t{8} << 10;
/// What a local header's extra fields usually stay below.
constexpr std::uint64_t kUsualExtra = 64;

/// A local header cut into its pieces.
struct Header {
  std::string_view name, extra;
  std::uint16_t flags, method;
  std::uint32_t checksum;
  std::uint64_t compressedSize, size;
  bool hasZip64 = false;

  bool isStreamed() const { return (flags & kHasDescriptor) != 0; }
};

/// Whether the header gave all numbers itself, so that nothing rests on a descriptor.
enum class Given { InHeader, InDescriptor };

/// One of the four ways to write a data descriptor. The signature is optional, and no field tells how wide
/// the sizes are.
struct DescriptorForm {
  std::size_t signature, width;  ///< in bytes
  std::size_t size() const { return signature + 4 + 2 * width; }
};
constexpr std::array<DescriptorForm, 4> kDescriptorForms = {{{4, 4}, {4, 8}, {0, 4}, {0, 8}}};

/// `at` has `form.size()` bytes.
bool matches(const DescriptorForm& form, const char* at, const Entry& entry) {
  if (form.signature != 0 && load32(at) != kDescriptorSignature) return false;
  at += form.signature;
  const auto number = [&](const char* from) { return form.width == 8 ? load64(from) : load32(from); };
  return load32(at) == entry.checksum && number(at + 4) == entry.compressedSize &&
         number(at + 4 + form.width) == entry.size;
}

/// One pass over the entries of an archive.
class HeaderCheck {
 public:
  HeaderCheck(const fl::filesystem::InputFile& file, std::vector<Entry>& entries,
              std::uint64_t directoryOffset, const RuleBroken& tell);
  void run();

 private:
  void check(Entry& entry);
  /// Also fills in where the entry's data starts.
  Header readHeader(Entry& entry);
  void checkMethod(const Entry& entry, const Header& header) const;
  void checkName(const Entry& entry, const Header& header) const;
  void readZip64Sizes(const Entry& entry, Header& header) const;
  Given checkNumbers(const Entry& entry, const Header& header) const;
  /// The size of the descriptor behind the data, which must match the directory; 0 if there is none and none
  /// is needed.
  std::uint64_t descriptorSize(const Entry& entry, const Header& header, Given given);

  /// Refuses the entry if it reaches from `offset` into the next entry or the directory.
  void requireRoom(const Entry& entry, std::uint64_t offset, std::uint64_t count) const;
  const Entry& inFileOrder(std::size_t index) const { return entries_[order_[index]]; }

  /// Bytes of the file that lie before the directory; valid until the next call.
  const char* bytes(std::uint64_t offset, std::size_t count);
  /// Reads the bytes asked for and goes on over the headers that follow, as long as they lie close together.
  void fillWindow(std::uint64_t offset, std::uint64_t count);
  const std::string& path() const { return file_.path(); }

  const fl::filesystem::InputFile& file_;
  std::vector<Entry>& entries_;
  const std::uint64_t directoryOffset_;
  const RuleBroken& tell_;
  std::vector<std::uint32_t> order_;  ///< of the entries in the file
  std::size_t following_ = 0;         ///< index in `order_` behind the entry that is being checked
  std::uint64_t nextOffset_ = 0;      ///< where that next entry in the file, or the directory, starts

  std::unique_ptr<char[]> window_ = std::make_unique_for_overwrite<char[]>(kWindow);
  std::uint64_t windowOffset_ = 0, windowEnd_ = 0;
};

HeaderCheck::HeaderCheck(const fl::filesystem::InputFile& file, std::vector<Entry>& entries,
                         std::uint64_t directoryOffset, const RuleBroken& tell)
    : file_(file), entries_(entries), directoryOffset_(directoryOffset), tell_(tell), order_(entries.size()) {
  std::iota(order_.begin(), order_.end(), 0);
  const auto liesBefore = [&](std::uint32_t a, std::uint32_t b) {
    return entries_[a].headerOffset < entries_[b].headerOffset;
  };
  if (!std::is_sorted(order_.begin(), order_.end(), liesBefore))
    std::sort(order_.begin(), order_.end(), liesBefore);
}

void HeaderCheck::run() {
  for (const std::uint32_t index : order_) {
    ++following_;
    nextOffset_ = directoryOffset_;
    if (following_ < order_.size()) nextOffset_ = std::min(nextOffset_, inFileOrder(following_).headerOffset);
    holds(tell_, &entries_[index], [&] { check(entries_[index]); });
  }
}

void HeaderCheck::check(Entry& entry) {
  Header header = readHeader(entry);
  // First, since in a masked header the other fields are not the true ones.
  if ((header.flags & kAnyEncryption) != 0) refuse("opc:zip:Encrypted", path(), entry.name);
  holds(tell_, &entry, [&] { checkMethod(entry, header); });
  holds(tell_, &entry, [&] { checkName(entry, header); });
  if (!header.extra.empty()) readZip64Sizes(entry, header);
  const Given given = checkNumbers(entry, header);
  entry.endOffset = entry.dataOffset + entry.compressedSize;
  if (header.isStreamed()) entry.endOffset += descriptorSize(entry, header, given);
}

Header HeaderCheck::readHeader(Entry& entry) {
  // Name and extra fields have lengths that only the header itself tells, so room is asked for step by step.
  requireRoom(entry, entry.headerOffset, kLocalSize);
  const char* at = bytes(entry.headerOffset, kLocalSize);
  if (load32(at) != kLocalSignature) refuse("opc:zip:LocalHeaderMissing", path(), entry.name);
  const std::size_t name = load16(at + 26), extra = load16(at + 28);
  const std::size_t whole = kLocalSize + name + extra;
  requireRoom(entry, entry.headerOffset, whole);
  entry.dataOffset = entry.headerOffset + whole;
  requireRoom(entry, entry.dataOffset, entry.compressedSize);

  // The window may end before the name does; it is then read anew, and what was read of it is no longer
  // valid.
  at = bytes(entry.headerOffset, whole);
  Header header{};
  header.name = {at + kLocalSize, name};
  header.extra = {at + kLocalSize + name, extra};
  header.flags = load16(at + 6);
  header.method = load16(at + 8);
  header.checksum = load32(at + 14);
  header.compressedSize = load32(at + 18);
  header.size = load32(at + 22);
  return header;
}

void HeaderCheck::checkMethod(const Entry& entry, const Header& header) const {
  const bool isSame = header.method == static_cast<std::uint16_t>(entry.method);
  if (!isSame || (header.flags & kPatchData) != 0) refuse("opc:zip:LocalMethodDiffers", path(), entry.name);
}

void HeaderCheck::checkName(const Entry& entry, const Header& header) const {
  if (header.name != entry.name) refuse("opc:zip:LocalNameDiffers", path(), entry.name, header.name);
  const std::uint16_t centralFlags = load16(entry.centralRecord.data() + 8);
  // The same bytes in another encoding are another name.
  if (((header.flags ^ centralFlags) & kUtf8Name) == 0) return;
  if (!isAscii(entry.name)) refuse("opc:zip:TwoNames", path(), entry.name);
}

void HeaderCheck::readZip64Sizes(const Entry& entry, Header& header) const {
  const auto fields = ExtraFields::parse(header.extra);
  if (!fields) refuse("opc:zip:ExtraFieldBroken", path(), entry.name);
  if (fields->givesOtherNameThan(entry.name)) refuse("opc:zip:TwoNames", path(), entry.name);
  if (!fields->zip64) return;
  header.hasZip64 = true;
  Zip64Numbers numbers(*fields->zip64);
  if (!numbers.resolve(header.size) || !numbers.resolve(header.compressedSize))
    refuse("opc:zip:Zip64FieldBroken", path(), entry.name);
}

Given HeaderCheck::checkNumbers(const Entry& entry, const Header& header) const {
  // A writer that streams does not know the numbers yet and leaves zero, or refers to 64 bits.
  const auto isLeftOpen = [&](std::uint64_t size) {
    return header.isStreamed() && (size == 0 || size == kInZip64Field);
  };
  const bool sameChecksum = header.checksum == entry.checksum;
  const bool sameCompressed = header.compressedSize == entry.compressedSize;
  const bool sameSize = header.size == entry.size;
  holds(tell_, &entry, [&] {
    if (sameChecksum || (header.isStreamed() && header.checksum == 0)) return;
    refuse("opc:zip:LocalChecksumDiffers", path(), entry.name);
  });
  holds(tell_, &entry, [&] {
    if ((sameCompressed || isLeftOpen(header.compressedSize)) && (sameSize || isLeftOpen(header.size)))
      return;
    refuse("opc:zip:LocalSizesDiffer", path(), entry.name);
  });
  return sameChecksum && sameCompressed && sameSize ? Given::InHeader : Given::InDescriptor;
}

std::uint64_t HeaderCheck::descriptorSize(const Entry& entry, const Header& header, Given given) {
  const std::uint64_t room = nextOffset_ - entry.endOffset;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(room, kLargestDescriptor));
  const char* at = bytes(entry.endOffset, count);
  std::uint64_t best = 0;
  for (const DescriptorForm& form : kDescriptorForms) {
    if (form.size() > count || !matches(form, at, entry)) continue;
    // An empty entry's descriptor reads the same in both widths. The one that leaves no gap is meant.
    if (form.size() == room) return room;
    const bool hasExpectedWidth = (form.width == 8) == header.hasZip64;
    if (best == 0 || hasExpectedWidth) best = form.size();
  }
  if (best != 0) return best;

  // Some writers set the flag and then give the numbers in the header after all.
  // What looks like a descriptor by its signature, or fills the gap as one without signature would, is taken
  // for one, and is wrong.
  const bool hasSignature = count >= 4 && load32(at) == kDescriptorSignature;
  const bool mustBeOne = hasSignature || room == 12 || room == 20;
  if (given == Given::InDescriptor || mustBeOne) refuse("opc:zip:DescriptorDiffers", path(), entry.name);
  return 0;
}

void HeaderCheck::requireRoom(const Entry& entry, std::uint64_t offset, std::uint64_t count) const {
  if (offset <= nextOffset_ && count <= nextOffset_ - offset) return;
  if (offset > directoryOffset_ || count > directoryOffset_ - offset)
    refuse("opc:zip:EntryOutOfBounds", path(), entry.name);
  refuse("opc:zip:EntriesOverlap", path(), entry.name, inFileOrder(following_).name);
}

const char* HeaderCheck::bytes(std::uint64_t offset, std::size_t count) {
  if (offset < windowOffset_ || offset + count > windowEnd_) fillWindow(offset, count);
  return window_.get() + (offset - windowOffset_);
}

void HeaderCheck::fillWindow(std::uint64_t offset, std::uint64_t count) {
  std::uint64_t end = offset + count + kUsualExtra;
  for (std::size_t index = following_; index < order_.size() && end - offset < kWindow; ++index) {
    const Entry& next = inFileOrder(index);
    if (next.headerOffset > end + kGapWorthReading) break;
    end = std::max(end, next.headerOffset + kLocalSize + next.name.size() + kUsualExtra);
  }
  end = std::min({end, offset + kWindow, directoryOffset_});
  // Emptied first: a failed read must not leave bytes of two offsets.
  windowEnd_ = windowOffset_ = offset;
  file_.read(offset, window_.get(), end - offset);
  windowEnd_ = end;
}

}  // namespace

void checkLocalHeaders(const fl::filesystem::InputFile& file, std::vector<Entry>& entries,
                       std::uint64_t directoryOffset, const RuleBroken& tell) {
  HeaderCheck(file, entries, directoryOffset, tell).run();
}

}  // namespace zip
