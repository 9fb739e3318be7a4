#pragma once

#include <vector>

#include "platform/zip/directory.h"

namespace zip {

/// Refuses a name that is empty, holds NUL or has a ".." segment, whichever slash divides the segments.
void checkName(std::string_view name, const std::string& path);

/// Refuses two entries with the same raw name. Takes no more than n log n steps, also where names were chosen
/// so that their hashes are equal.
void checkNamesDiffer(const std::vector<Entry>& entries, const std::string& path);

}  // namespace zip
