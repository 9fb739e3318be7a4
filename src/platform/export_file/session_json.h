#pragma once

#include <string>

#include "platform/export_file/session_writer.h"

namespace tavlox {

/// The record as one JSON object with the members that are set. Raises opc::Exception, naming `path` and the
/// member, for what the session could not be read back with: a text that is not well-formed, a number that is
/// not finite.
std::string toJson(const RunRecord& run, const std::u16string& path);
std::string toJson(const SignalRecord& signal, const std::u16string& path);

}  // namespace tavlox
