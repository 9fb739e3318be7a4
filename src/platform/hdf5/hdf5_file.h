#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <hdf5.h>

/// The C library for HDF5 files in terms of this system: handles that close themselves, errors with a reason,
/// attributes that are texts.
namespace tavlox::hdf5 {

/// Owns one identifier of the library, of whatever kind: they are all counted alike.
class Handle {
 public:
  Handle() = default;
  explicit Handle(hid_t id) : id_(id) {}
  Handle(Handle&& other) noexcept : id_(std::exchange(other.id_, H5I_INVALID_HID)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
  }
  ~Handle() {
    if (id_ >= 0) H5Idec_ref(id_);
  }

  hid_t get() const { return id_; }
  /// For a file that was written: false if not all of it could be.
  bool close() { return H5Idec_ref(std::exchange(id_, H5I_INVALID_HID)) >= 0; }
  explicit operator bool() const { return id_ >= 0; }

 private:
  hid_t id_ = H5I_INVALID_HID;
};

/// Keeps the library from printing its errors, which it does by itself.
void keepQuiet();

/// Why the last call failed: the system's reason if it was a refusal of the system's, else what the library
/// found where it failed, in English.
std::string lastReason();

/// Where an open file can be opened once more: the library takes paths only.
std::string pathOf(int descriptor);

/// The links of a group that lie in this file, in the order in which they were made if the file keeps that
/// and by name if not. Links to other files, and by name to other places, are left out: a table is in one
/// place.
std::vector<std::string> linksOf(hid_t group);

/// The texts of an attribute: one, or a list of them. Empty if there is none of that name, or it is no text.
std::vector<std::string> textsOf(hid_t object, const char* attribute);

/// Writes an attribute that is one text. False where the library fails.
bool writeText(hid_t object, const char* attribute, const std::string& text);

}  // namespace tavlox::hdf5
