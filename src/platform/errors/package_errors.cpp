#include "platform/errors/package_errors.h"

namespace opc {

Exception::~Exception() = default;

namespace model {

PackageNotFound::PackageNotFound(std::string_view narrowPath)
    : Exception("opc:package:NotFound", {foundation::core::except::toArgument(narrowPath)}) {}
PackageNotFound::~PackageNotFound() = default;
PackageOpenFailed::~PackageOpenFailed() = default;

}  // namespace model
}  // namespace opc
