#pragma once

#include <string>

#include "package/scoped_ref.h"

namespace orra::tavloxio {

/// The compression type that the session's recorder noted, or empty text when the package has no such record.
/// The text is passed on as it is. The JSON library's errors reach the caller unchanged.
std::u16string readCompressionType(const file::ScopedRef& ref);

}  // namespace orra::tavloxio
