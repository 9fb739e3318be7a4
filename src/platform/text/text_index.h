#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <boost/unordered/unordered_flat_set.hpp>

#include "platform/text/text_hash.h"

namespace fl::i18n {

/// Finds the indexes of a list by the texts that stand there. It holds no text itself: every call is given
/// `textAt`, a callable that gives the text at an index, which must stay the same while the index is in here.
/// Copies are therefore cheap and work with the copy of a list.
///
///     const auto nameAt = [&](std::size_t index) { return entries[index].name; };
///     if (!byName.add(index, nameAt)) …  // another entry has the name
///     if (const auto index = byName.find(name, nameAt)) …
class TextIndex {
 public:
  /// How many indexes are in here.
  std::size_t size() const { return slots_.size(); }
  void reserve(std::size_t count) { slots_.reserve(count); }

  /// The index of the text, or nothing.
  template <class TextAt>
  std::optional<std::size_t> find(std::string_view text, const TextAt& textAt) const {
    const auto found = slots_.find(Wanted<TextAt>{text, hashOf(text), textAt});
    if (found == slots_.end()) return std::nullopt;
    return found->index;
  }

  /// False, and nothing changed, if another index with the same text is in here already. An index must be
  /// below 2^32, which halves the memory of a slot.
  template <class TextAt>
  bool add(std::size_t index, const TextAt& textAt) {
    const std::string_view text = textAt(index);
    const Wanted<TextAt> wanted{text, hashOf(text), textAt};
    // Not left to `insert`, which compares indexes and would not see an equal text.
    if (slots_.find(wanted) != slots_.end()) return false;
    slots_.insert({static_cast<std::uint32_t>(index), wanted.hash});
    return true;
  }

  /// Removing what is not there does nothing. Call it before the list changes: `textAt` must still give the
  /// text at the index that is removed.
  template <class TextAt>
  void remove(std::string_view text, const TextAt& textAt) {
    const auto found = slots_.find(Wanted<TextAt>{text, hashOf(text), textAt});
    if (found != slots_.end()) slots_.erase(found);
  }

 private:
  /// Half of the hash is kept, so that growing reads no text and a search seldom compares a wrong one.
  struct Slot {
    std::uint32_t index, hash;
  };
  /// A text that is looked for, with its hash, so that it is hashed once for all the slots it is compared
  /// with.
  template <class TextAt>
  struct Wanted {
    std::string_view text;
    std::uint32_t hash;
    const TextAt& textAt;
  };
  // The texts are hashed already when the container asks.
  struct HashOf {
    using is_transparent = void;
    std::size_t operator()(const auto& slotOrWanted) const noexcept { return slotOrWanted.hash; }
  };
  struct IsSame {
    using is_transparent = void;
    // Of two slots the texts differ, or `add` would have refused the later one.
    bool operator()(const Slot& a, const Slot& b) const noexcept { return a.index == b.index; }
    template <class TextAt>
    bool operator()(const Wanted<TextAt>& wanted, const Slot& slot) const {
      return wanted.hash == slot.hash && wanted.textAt(slot.index) == wanted.text;
    }
    template <class TextAt>
    bool operator()(const Slot& slot, const Wanted<TextAt>& wanted) const {
      return (*this)(wanted, slot);
    }
  };

  static std::uint32_t hashOf(std::string_view text) { return static_cast<std::uint32_t>(TextHash()(text)); }

  boost::unordered_flat_set<Slot, HashOf, IsSame> slots_;
};

}  // namespace fl::i18n
