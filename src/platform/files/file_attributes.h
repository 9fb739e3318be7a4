#pragma once

#include <string>

#include <sys/types.h>

namespace fl::filesystem {

/// Gives one file the owner, group, access lists, extended attributes and mode of another, and answers the
/// mode it got. Where the system does not let the owner or group be kept, the file never becomes accessible
/// to anyone who could not access the original. Raises opc::Exception, naming `path`.
mode_t copyAttributes(int from, int to, const std::string& path);

}  // namespace fl::filesystem
