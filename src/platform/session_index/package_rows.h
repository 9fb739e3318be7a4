#pragma once

#include <cstdio>
#include <string>

namespace tavlox::session_index {

/// Reads a package and writes all that an index keeps of it, as rows: file, properties, runs, signals, and
/// minimum, maximum and count of the samples of each recorded signal. A package that cannot be read gives its
/// error as a row; nothing is raised but out of memory and what a progress listener raises. If only the
/// samples are unsound, runs and signals stand beside the error.
void writePackageRows(const std::u16string& path, std::FILE* stream);

/// The rows of a package whose reading ended the process: the file with tavlox:index:ProcessEnded. It counts
/// as read long ago, so that the next update tries again.
void writeEndedRows(const std::u16string& path, std::FILE* stream);

}  // namespace tavlox::session_index
