#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"
#include "platform/recovery/finding.h"
#include "platform/zip/directory.h"

namespace tavlox::recovery {

/// What the parts of a session are to be, and how one reads them. They are checked as they lie in the
/// archive, so that this works with and without a directory: the run list first, then the signals parts, then
/// the others.
/// Keeps the identifiers of the runs, and of each signals part what its samples must have, between the calls;
/// the data of the parts is read and let go of.
class SessionForm {
 public:
  /// Whether the package has a part of this name, decoded.
  using HasPart = std::function<bool(const std::u16string& name)>;

  /// Without `hasPart` it is not asked whether the samples that runs name are there.
  explicit SessionForm(std::shared_ptr<const fl::filesystem::InputFile> file, HasPart hasPart = {})
      : file_(std::move(file)), hasPart_(std::move(hasPart)) {}

  using Tell =
      std::function<void(Severity severity, const foundation::core::except::except_with_causes& problem)>;

  /// Hands over what is wrong with the sound data of the part that a relationship of this type leads to;
  /// nothing for parts whose inside belongs to others. Of lists every element that is at fault, up to a
  /// thousand; of other parts the first fault. Notes are what readers let pass: a run without the samples
  /// that it names. `name` is the part's, decoded.
  void audit(std::u16string_view type, const std::u16string& name, const zip::Entry& entry, const Tell& tell);
  /// Whether a sound run list was seen. Without one readers show no signals at all.
  bool hasRunList() const { return runIds_.has_value(); }

 private:
  void auditRunList(const std::u16string& name, const zip::Entry& entry, const Tell& tell);
  void auditSignals(const std::u16string& number, const std::u16string& name, const zip::Entry& entry,
                    const Tell& tell);
  void checkCompression(const zip::Entry& entry) const;
  void checkSamples(const std::u16string& number, const std::u16string& name, const zip::Entry& entry) const;

  std::shared_ptr<const fl::filesystem::InputFile> file_;
  HasPart hasPart_;
  std::optional<std::set<std::int32_t>> runIds_;
  struct Needs {
    std::uint64_t columns;     ///< one for the time, one for each signal
    std::uint32_t lastColumn;  ///< of those that signals name, from 1; 0 if none does
  };
  std::map<std::u16string, Needs> needs_;  ///< by the number in the signals part's name
};

/// Finds the objects with an `id` in what is left of a JSON array: those that are well-formed, wherever they
/// begin. Data that breaks off or does not have its checksum is read as far as it goes. `take` is given the
/// text of each and the id of its run, if it has one. Gives their number.
/// The text is valid during the call only. Memory is bounded by the largest element that sessions may have.
std::uint64_t forEachReadableElement(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Entry& entry,
    const std::function<void(std::string_view text, std::int64_t id, std::optional<std::int64_t> run)>& take);

/// The role of a part in a session: the type of the relationship that leads to it, the content type that it
/// is written with, and the name, which may hold a number.
struct Role {
  std::u16string_view relationshipType, contentType, namePrefix, nameSuffix;
  bool isOnce;  ///< of several the first counts
};

/// By the relationship that leads there; null for what belongs to no session.
const Role* roleOfRelationship(std::u16string_view type);
/// By the name that writers use, or else by the content type, which may be empty; null likewise.
const Role* roleOfPart(std::u16string_view name, std::u16string_view contentType);

}  // namespace tavlox::recovery
