#include "platform/recovery/salvage.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include <sys/stat.h>

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/opc/part_name.h"
#include "platform/opc/percent_encoding.h"
#include "platform/progress/progress.h"
#include "platform/recovery/finding.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/records.h"

// Reading an archive whose directory cannot be trusted. One pass over the file (Scan) collects claims: a
// local header, a record of the directory and a data descriptor each say where an item's data lies, how long
// it is and which checksum it has, and any of them may be the damaged one. A second step (Decision) goes
// through the places where items may begin, front to back, and tries the claims of each until one has the
// right checksum. Bytes of an item that was proved are passed over, so that an archive stored inside another
// one is not taken apart.
namespace tavlox::recovery {
namespace {

using fl::filesystem::InputFile;
using zip::Entry;
using zip::load16;
using zip::load32;
using zip::load64;
using zip::Method;

/// Reads data to its end, which checks it.
class DataCheck {
 public:
  DataCheck(std::shared_ptr<const InputFile> file, std::uint64_t limit)
      : file_(std::move(file)), limit_(limit) {}

  /// What is wrong with the data, or nothing. Raises if the file cannot be read.
  std::optional<opc::Exception> damageOf(const Entry& entry) {
    if (entry.dataOffset > file_->size() || entry.compressedSize > file_->size() - entry.dataOffset) {
      return rule<opc::Exception>("opc:zip:EntryOutOfBounds", file_->path(), entry.name);
    }
    try {
      zip::EntryReader reader(file_, entry);
      // Size and checksum are compared by the reader when it comes to the end, so everything has to be read.
      while (const std::size_t got = reader.read(buffer_.get(), kBufferSize)) count(got);
    } catch (const opc::Exception& error) {
      const std::string_view id = error.GetID();
      // These speak of the file or of the limits, not of this item: going on would report every item as
      // damaged.
      if (id == "opc:zip:ReadFailed" || id == "opc:zip:EndsEarly" || id == "opc:package:TooMuchData") throw;
      return error;
    }
    reached_ = std::max(reached_, entry.dataOffset + entry.compressedSize);
    corvan::reportProgress({u"Checking data", reached_, file_->size()});
    return std::nullopt;
  }

 private:
  void count(std::size_t bytes) {
    // Counted over all items: many small ones that inflate to much are as costly as a single one.
    inflated_ += bytes;
    if (inflated_ > limit_) opc::raise("opc:package:TooMuchData", file_->path(), limit_);
  }

  static constexpr std::size_t kBufferSize = std::size_t{256} << 10;
  std::shared_ptr<const InputFile> file_;
  const std::uint64_t limit_;
  std::uint64_t inflated_ = 0, reached_ = 0;
  std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
};

/// Where an item's data may lie and what it may be, as one of several sources says.
/// Offsets and sizes are as they stand in the file, so they may lie anywhere, and their sum may wrap around.
struct Claim {
  std::uint64_t dataOffset = 0, compressedSize = 0, size = 0;
  std::uint32_t checksum = 0;
  std::uint16_t method = 0;

  std::uint64_t end() const { return dataOffset + compressedSize; }
};

/// What is known of the item whose local header lies, or should lie, at one offset.
/// The names stay apart until it is decided which of them counts; they point into the list of kept names.
struct Candidate {
  std::string_view localName, centralName;
  std::uint64_t dataOffset = 0;
  std::uint16_t method = 0;
  bool isSymbolicLink = false;
  std::vector<Claim> claims = {};
};

/// Chosen inputs could pretend that one item ends in very many places.
constexpr std::size_t kMostClaims = 16;

/// Looks at every byte of a file for the records of an archive, in one pass.
class Scan {
 public:
  Scan(const InputFile& file, const zip::Limits& limits, std::deque<std::string>& names)
      : file_(file), limits_(limits), names_(names) {}

  /// By the offset of the local header.
  std::map<std::uint64_t, Candidate> run() {
    std::vector<char> window(kStep + kLookahead);
    for (std::uint64_t base = 0; base < file_.size(); base += kStep) {
      // Windows overlap by more than a record's fixed part, so that none is missed where two of them meet.
      const std::size_t count = std::min<std::uint64_t>(window.size(), file_.size() - base);
      file_.read(base, window.data(), count);
      for (std::size_t at = 0; at < std::min(count, kStep); ++at) look(base + at, &window[at], count - at);
      corvan::reportProgress({u"Looking for items", base + count, file_.size()});
    }
    return std::move(candidates_);
  }

 private:
  void look(std::uint64_t offset, const char* at, std::size_t left) {
    // Every record begins with 'P'; the test of one byte keeps the pass fast where nothing is.
    if (at[0] == 'P' && left >= zip::kLocalSize && load32(at) == zip::kLocalSignature) {
      takeLocalHeader(offset, at);
    } else if (at[0] == 'P' && left >= zip::kCentralSize && load32(at) == zip::kCentralSignature) {
      takeCentralRecord(offset, at);
    }
    if (!streamed_.empty()) takeDescriptor(offset, at, left);
  }

  void takeLocalHeader(std::uint64_t offset, const char* at) {
    const std::size_t name = load16(at + 26), extra = load16(at + 28);
    const auto text = readText(offset + zip::kLocalSize, name + extra);
    // The signature may stand in data by chance; a name that is missing or runs out of the file gives it
    // away.
    if (name == 0 || !text) return;
    Candidate& item = add(offset);
    item.localName = keep(text->substr(0, name));
    item.dataOffset = offset + zip::kLocalSize + name + extra;
    item.method = load16(at + 8);
    Claim claim{item.dataOffset, load32(at + 18), load32(at + 22), load32(at + 14), item.method};
    const bool isEncrypted = (load16(at + 6) & zip::kAnyEncryption) != 0;
    const bool isWhole = resolve(std::string_view(*text).substr(name), claim);
    // The item is known to be there without a claim: it is then reported as damaged and not as missing.
    if (isEncrypted || !isWhole) return;
    // Also where the flag for that is not set: data of no length at all is rare, a damaged flag is not.
    if (claim.compressedSize == 0) streamed_.emplace(item.dataOffset, offset);
    item.claims.push_back(claim);
  }

  // The record is one of this archive, and not of one that is kept inside, if it fits what it points to.
  void takeCentralRecord(std::uint64_t offset, const char* at) {
    const std::size_t name = load16(at + 28), extra = load16(at + 30);
    const auto text = readText(offset + zip::kCentralSize, name + extra);
    if (name == 0 || !text) return;
    Claim claim{0, load32(at + 20), load32(at + 24), load32(at + 16), load16(at + 10)};
    std::uint64_t headerOffset = load32(at + 42);
    if (!resolve(std::string_view(*text).substr(name), claim, &headerOffset)) return;
    // The directory lies behind all items, and each local header has at least room for its name.
    if (headerOffset >= offset || offset - headerOffset < zip::kLocalSize + name) return;
    std::string header(zip::kLocalSize + name, '\0');
    file_.read(headerOffset, header.data(), header.size());
    const std::string_view centralName = std::string_view(*text).substr(0, name);
    const bool isNamedThere = std::string_view(header).substr(zip::kLocalSize) == centralName;
    if (load32(header.data()) != zip::kLocalSignature && !isNamedThere) return;

    // From here on the record counts, also where the local header it points to has lost its signature.
    Candidate& item = add(headerOffset);
    item.centralName = keep(centralName);
    // "Version made by": the upper byte tells the system, whose file attributes the record holds.
    const int madeOn = load16(at + 4) >> 8;  // Unix or Darwin, which alone give a mode
    item.isSymbolicLink = (madeOn == 3 || madeOn == 19) && S_ISLNK(load32(at + 38) >> 16);
    if ((load16(at + 8) & zip::kAnyEncryption) != 0) return;
    // Lengths in the local header may be what is damaged: with those of the directory there are two guesses.
    const std::uint64_t nameEnd = headerOffset + zip::kLocalSize + name;
    if (item.dataOffset == 0) {
      item.dataOffset = nameEnd + load16(header.data() + 28);
      item.method = claim.method;
    }
    for (const std::uint64_t dataOffset : {item.dataOffset, nameEnd}) {
      claim.dataOffset = dataOffset;
      // In front, so that it is tried first: a streamed item's local header has no sizes, the directory has.
      item.claims.insert(item.claims.begin(), claim);
      if (item.dataOffset == nameEnd) break;
    }
  }

  /// Its number of compressed bytes leads back to where some streamed item's data begins.
  void takeDescriptor(std::uint64_t offset, const char* at, std::size_t left) {
    const std::size_t signature = left >= 4 && load32(at) == zip::kDescriptorSignature ? 4 : 0;
    // APPNOTE leaves open whether a descriptor has a signature and, without ZIP64, how wide its sizes are.
    for (const std::size_t width : {4, 8}) {
      const std::size_t sizes = signature + 4;
      if (left < sizes + 2 * width) return;
      const auto number = [&](const char* from) { return width == 8 ? load64(from) : load32(from); };
      const std::uint64_t compressed = number(at + sizes);
      if (compressed > offset) continue;
      const auto item = streamed_.find(offset - compressed);
      if (item == streamed_.end()) continue;
      Candidate& found = candidates_.at(item->second);
      // Further claims are left out, not the item.
      if (found.claims.size() >= kMostClaims) continue;
      found.claims.push_back(
          {found.dataOffset, compressed, number(at + sizes + width), load32(at + signature), found.method});
    }
  }

  /// Takes numbers from the ZIP64 field where they are referred to; false if they are not there.
  static bool resolve(std::string_view extra, Claim& claim, std::uint64_t* offset = nullptr) {
    const auto fields = zip::ExtraFields::parse(extra);
    if (!fields || !fields->zip64) return fields.has_value();
    zip::Zip64Numbers numbers(*fields->zip64);
    return numbers.resolve(claim.size) && numbers.resolve(claim.compressedSize) &&
           (offset == nullptr || numbers.resolve(*offset));
  }

  /// Nothing if the file ends before.
  std::optional<std::string> readText(std::uint64_t offset, std::size_t count) const {
    // Written as a difference, so that numbers chosen near 2^64 do not wrap around.
    if (offset > file_.size() || count > file_.size() - offset) return std::nullopt;
    std::string text(count, '\0');
    file_.read(offset, text.data(), count);
    return text;
  }

  Candidate& add(std::uint64_t headerOffset) {
    Candidate& item = candidates_[headerOffset];
    if (candidates_.size() > limits_.entries) {
      opc::raise("opc:zip:TooManyEntries", file_.path(), limits_.entries);
    }
    return item;
  }

  std::string_view keep(std::string_view name) {
    // The same limit as on a directory, which these names stand in for.
    nameBytes_ += name.size();
    if (nameBytes_ > limits_.directoryBytes) {
      opc::raise("opc:zip:DirectoryTooLarge", file_.path(), limits_.directoryBytes);
    }
    return names_.emplace_back(name);
  }

  static constexpr std::size_t kStep = std::size_t{1} << 20, kLookahead = 64;
  const InputFile& file_;
  const zip::Limits& limits_;
  std::deque<std::string>& names_;
  std::uint64_t nameBytes_ = 0;
  std::map<std::uint64_t, Candidate> candidates_;
  /// Where data begins whose length only a descriptor tells, and the offset of its header.
  boost::unordered_flat_map<std::uint64_t, std::uint64_t> streamed_;
};

/// Decides what is true of the candidates, front to back.
class Decision {
 public:
  Decision(const std::shared_ptr<const InputFile>& file, const zip::Limits& limits,
           const std::map<std::uint64_t, Candidate>& candidates)
      : file_(*file), check_(file, limits.inflatedBytesPerOpen), candidates_(candidates) {}

  std::vector<FoundEntry> run() {
    for (auto item = candidates_.begin(); item != candidates_.end(); ++item) {
      if (item->first < coveredUntil_) continue;
      FoundEntry found = decide(item->first, item->second);
      found.isDoubtful = item->second.centralName.empty() && item->first < doubtfulUntil_;
      if (found.damage) {
        skip(item->first, item->second);
      } else {
        coveredUntil_ = found.entry.dataOffset + found.entry.compressedSize;
      }
      // What only looks like the header of an item, in data that is lost already, is not another loss.
      if (!found.damage || !found.isDoubtful) list_.push_back(std::move(found));
    }
    return std::move(list_);
  }

 private:
  FoundEntry decide(std::uint64_t headerOffset, const Candidate& item) {
    FoundEntry found;
    Entry& entry = found.entry;
    entry.name = item.localName.empty() ? item.centralName : item.localName;
    if (!item.centralName.empty() && item.centralName != entry.name) found.otherName = item.centralName;
    entry.headerOffset = headerOffset;
    entry.isSymbolicLink = item.isSymbolicLink;
    for (const Claim& claim : item.claims) {
      if (!isKnown(claim.method) || (claim.compressedSize == 0 && !isBoundary(claim.dataOffset))) continue;
      apply(claim, entry);
      auto damage = check_.damageOf(entry);
      if (!damage) {
        found.damage.reset();
        return found;
      }
      if (!found.damage) found.damage = std::move(damage);
    }
    if (!found.damage) found.damage = whyUnreadable(item, entry.name);
    guessExtent(headerOffset, item, entry);
    return found;
  }

  opc::Exception whyUnreadable(const Candidate& item, std::string_view name) const {
    if (!isKnown(item.method)) {
      return rule<opc::Exception>("opc:zip:UnsupportedMethod", file_.path(), name, item.method);
    }
    return rule<opc::Exception>("opc:zip:DescriptorDiffers", file_.path(), name);
  }

  static bool isKnown(std::uint16_t method) {
    return method == static_cast<int>(Method::Stored) || method == static_cast<int>(Method::Deflate);
  }

  static void apply(const Claim& claim, Entry& entry) {
    entry.dataOffset = claim.dataOffset;
    entry.compressedSize = claim.compressedSize;
    entry.size = claim.size;
    entry.checksum = claim.checksum;
    entry.method = static_cast<Method>(claim.method);
  }

  /// All up to the next item or the end of the file, for whoever looks for readable pieces in it.
  void guessExtent(std::uint64_t headerOffset, const Candidate& item, Entry& entry) const {
    const auto next = candidates_.upper_bound(headerOffset);
    const std::uint64_t end = next == candidates_.end() ? file_.size() : next->first;
    entry.dataOffset = std::min(item.dataOffset, end);
    entry.compressedSize = end - entry.dataOffset;
    if (isKnown(item.method)) entry.method = static_cast<Method>(item.method);
  }

  /// Goes past a damaged item. If something else begins where it should end, its length is true. If not, it
  /// cannot be told whether what follows is inside of it.
  void skip(std::uint64_t headerOffset, const Candidate& item) {
    std::uint64_t farthest = item.claims.empty() ? file_.size() : 0;
    for (const Claim& claim : item.claims) {
      const bool isLonger = claim.compressedSize != 0 && claim.end() > claim.dataOffset;
      if (isLonger && claim.end() <= file_.size() && isBoundary(claim.end())) {
        coveredUntil_ = claim.end();
        return;
      }
      farthest = std::max(farthest, isLonger ? claim.end() : file_.size());
    }
    coveredUntil_ = headerOffset + 1;
    doubtfulUntil_ = std::max(doubtfulUntil_, farthest);
  }

  /// Whether another item or the directory begins at the offset, or a descriptor and then one of them.
  bool isBoundary(std::uint64_t offset) const {
    if (offset == file_.size()) return true;
    for (const std::uint64_t descriptor : {0, 12, 20}) {
      if (isSignature(offset + descriptor)) return true;
    }
    return false;
  }

  /// Of any record of an archive. Chance gives one in some 700 million places.
  bool isSignature(std::uint64_t offset) const {
    if (offset > file_.size() || file_.size() - offset < 4) return false;
    std::array<char, 4> bytes{};
    file_.read(offset, bytes.data(), bytes.size());
    constexpr std::array kSignatures = {zip::kLocalSignature,    zip::kDescriptorSignature,
                                        zip::kCentralSignature,  zip::kEndSignature,
                                        zip::kZip64EndSignature, zip::kZip64LocatorSignature};
    return std::ranges::find(kSignatures, load32(bytes.data())) != kSignatures.end();
  }

  const InputFile& file_;
  DataCheck check_;
  const std::map<std::uint64_t, Candidate>& candidates_;
  std::vector<FoundEntry> list_;
  std::uint64_t coveredUntil_ = 0;   ///< by the items so far
  std::uint64_t doubtfulUntil_ = 0;  ///< a damaged item of unknown length may reach so far
};

}  // namespace

FoundEntries checkEntries(const std::shared_ptr<const InputFile>& file, const zip::Directory& directory,
                          const zip::Limits& limits) {
  DataCheck check(file, limits.inflatedBytesPerOpen);
  FoundEntries found;
  found.list.reserve(directory.entries().size());
  for (const Entry& entry : directory.entries()) found.list.push_back({entry, {}, check.damageOf(entry)});
  return found;
}

FoundEntries findEntries(const std::shared_ptr<const InputFile>& file, const zip::Limits& limits) {
  FoundEntries found;
  const auto candidates = Scan(*file, limits, found.names).run();
  found.list = Decision(file, limits, candidates).run();
  return found;
}

bool isDocument(std::string_view name) {
  if (opc::percent::equalsIgnoringCase(name, "[Content_Types].xml")) return true;
  const std::size_t slash = name.rfind('/');
  if (slash == std::string_view::npos) return false;
  const std::string_view folder = name.substr(0, slash);
  return opc::model::isRelationshipPart(folder.substr(folder.rfind('/') + 1), name.substr(slash + 1));
}

}  // namespace tavlox::recovery
