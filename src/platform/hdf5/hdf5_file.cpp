#include "platform/hdf5/hdf5_file.h"

#include <algorithm>

namespace tavlox::hdf5 {
namespace {

/// Takes the description of the first error that is walked over, which is where it arose.
herr_t takeReason(unsigned index, const H5E_error2_t* error, void* reason) {
  if (index == 0 && error->desc != nullptr) *static_cast<std::string*>(reason) = error->desc;
  return 0;
}

herr_t takeLink(hid_t, const char* name, const H5L_info_t* info, void* names) {
  // No exception may pass through the library.
  try {
    if (info->type == H5L_TYPE_HARD) static_cast<std::vector<std::string>*>(names)->emplace_back(name);
    return 0;
  } catch (...) {
    return -1;
  }
}

/// A text that fills its room, or ends with a NUL or with blanks.
std::string trimmed(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  return std::string(text.substr(0, text.find_last_not_of(' ') + 1));
}

}  // namespace

void keepQuiet() { H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); }

std::string lastReason() {
  std::string reason;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, takeReason, &reason);
  // "..., errno = 28, error message = 'No space left on device', ..."
  constexpr std::string_view kSystem = "error message = '";
  const std::size_t system = reason.find(kSystem);
  if (system == std::string::npos) return reason;
  const std::size_t begin = system + kSystem.size();
  return reason.substr(begin, reason.find('\'', begin) - begin);
}

std::string pathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

std::vector<std::string> linksOf(hid_t group) {
  std::vector<std::string> names;
  for (const H5_index_t order : {H5_INDEX_CRT_ORDER, H5_INDEX_NAME}) {
    names.clear();
    if (H5Literate(group, order, H5_ITER_INC, nullptr, takeLink, &names) >= 0) break;
  }
  return names;
}

std::vector<std::string> textsOf(hid_t object, const char* attribute) {
  if (H5Aexists(object, attribute) <= 0) return {};
  const Handle opened(H5Aopen(object, attribute, H5P_DEFAULT));
  const Handle type(H5Aget_type(opened.get())), space(H5Aget_space(opened.get()));
  const hssize_t count = H5Sget_simple_extent_npoints(space.get());
  if (!opened || H5Tget_class(type.get()) != H5T_STRING || count <= 0) return {};
  std::vector<std::string> texts;
  if (H5Tis_variable_str(type.get()) > 0) {
    std::vector<char*> pointers(static_cast<std::size_t>(count));
    if (H5Aread(opened.get(), type.get(), pointers.data()) < 0) return {};
    for (const char* const text : pointers) texts.emplace_back(text != nullptr ? text : "");
    H5Dvlen_reclaim(type.get(), space.get(), H5P_DEFAULT, pointers.data());
    return texts;
  }
  const std::size_t size = H5Tget_size(type.get());
  // As large as it is stored, but for damaged files: attributes are small.
  std::string bytes(std::min(size, std::size_t{1} << 24) * static_cast<std::size_t>(count), '\0');
  if (size > (std::size_t{1} << 24) || H5Aread(opened.get(), type.get(), bytes.data()) < 0) return {};
  for (std::size_t at = 0; at < bytes.size(); at += size)
    texts.push_back(trimmed(std::string_view(bytes).substr(at, size)));
  return texts;
}

bool writeText(hid_t object, const char* attribute, const std::string& text) {
  const Handle type(H5Tcopy(H5T_C_S1)), space(H5Screate(H5S_SCALAR));
  H5Tset_size(type.get(), H5T_VARIABLE);
  H5Tset_cset(type.get(), H5T_CSET_UTF8);
  const Handle made(H5Acreate2(object, attribute, type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT));
  const char* const pointer = text.c_str();
  return made && H5Awrite(made.get(), type.get(), &pointer) >= 0;
}

}  // namespace tavlox::hdf5
