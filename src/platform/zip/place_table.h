#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace zip {

/// Finds the places of a list by the texts that stand there: an open-addressed hash table that holds no texts
/// and allocates once, since a package has many thousand names. `textAt`, a callable, gives the text of a
/// place; it must stay the same as long as the place is in the table. Copies are cheap.
class PlaceTable {
 public:
  std::size_t size() const { return size_; }
  /// Whether texts were met that collide more often than chance explains: then finding them is slow.
  bool isCrowded() const { return isCrowded_; }

  void reserve(std::size_t count) {
    if (slotsFor(count) > slots_.size()) rebuild(slotsFor(count));
  }

  template <class TextAt>
  std::optional<std::size_t> find(std::string_view text, const TextAt& textAt) const {
    const Slot* slot = slotOf(text, hashOf(text), textAt);
    if (slot == nullptr) return std::nullopt;
    return slot->place;
  }

  /// Whether no place with the same text was there; otherwise nothing changes.
  template <class TextAt>
  bool add(std::size_t place, const TextAt& textAt) {
    const std::string_view text = textAt(place);
    const std::uint32_t hash = hashOf(text);
    if (slotOf(text, hash, textAt) != nullptr) return false;
    if (slotsFor(used_ + 1) > slots_.size()) rebuild(slotsFor(2 * size_ + 1));
    put({static_cast<std::uint32_t>(place), hash, State::Taken});
    ++size_;
    return true;
  }

  /// Removing what is not there does nothing.
  template <class TextAt>
  void remove(std::string_view text, const TextAt& textAt) {
    const Slot* slot = slotOf(text, hashOf(text), textAt);
    if (slot == nullptr) return;
    slots_[static_cast<std::size_t>(slot - slots_.data())].state = State::Left;
    --size_;
  }

 private:
  enum class State : std::uint32_t { Free, Taken, Left };
  struct Slot {
    std::uint32_t place = 0, hash = 0;
    State state = State::Free;
  };

  // Far more than chance needs in a table that is at most half full.
  static constexpr std::size_t kManyProbes = 128;

  static std::size_t slotsFor(std::size_t count) { return std::bit_ceil(2 * count + 1); }

  static std::uint32_t hashOf(std::string_view text) {
    const std::uint64_t hash = std::hash<std::string_view>()(text);
    return static_cast<std::uint32_t>(hash ^ hash >> 32);
  }

  template <class TextAt>
  const Slot* slotOf(std::string_view text, std::uint32_t hash, const TextAt& textAt) const {
    if (slots_.empty()) return nullptr;
    for (std::size_t at = hash;; ++at) {
      const Slot& slot = slots_[at & (slots_.size() - 1)];
      if (slot.state == State::Free) return nullptr;
      if (slot.state == State::Taken && slot.hash == hash && textAt(slot.place) == text) return &slot;
    }
  }

  void put(Slot added) {
    std::size_t at = added.hash;
    while (slots_[at & (slots_.size() - 1)].state != State::Free) ++at;
    slots_[at & (slots_.size() - 1)] = added;
    isCrowded_ = isCrowded_ || at - added.hash > kManyProbes;
    ++used_;
  }

  void rebuild(std::size_t count) {
    const std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(count));
    used_ = 0;
    for (const Slot& slot : old) {
      if (slot.state == State::Taken) put(slot);
    }
  }

  std::vector<Slot> slots_;
  std::size_t size_ = 0;
  std::size_t used_ = 0;  // slots that are not free
  bool isCrowded_ = false;
};

}  // namespace zip
