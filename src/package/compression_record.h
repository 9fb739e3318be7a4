#pragma once

#include <string>

namespace orra::tavloxio {

/// What a session's compression record (JSON, UTF-8) gives as its CompressionType, as text. Raises what POCO
/// raises for a record that is no JSON object or has no such member, and
/// Corvan:ObjectSystem:CannotLoadModule where the library that reads it is missing.
///
/// That library is the module's own, tavlox_io_json.so, and is loaded with the first record: POCO, which it
/// brings along, takes longer to load than everything else together, and most calls have no use for it.
std::string compressionTypeOf(const std::string& record);

/// What the library exports.
using CompressionTypeReader = void(const std::string& record, std::string& type);
inline constexpr char kCompressionTypeReader[] = "tavloxCompressionType";

}  // namespace orra::tavloxio
