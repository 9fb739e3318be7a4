#include "platform/errors/bad_alloc.h"

namespace foundation::core::except {

bad_alloc::~bad_alloc() = default;  // here, so that one library owns the type's run-time information

}  // namespace foundation::core::except
