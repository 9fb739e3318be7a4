#include "platform/errors/package_errors.h"

namespace opc {

// The destructors stand here for the reason given in exceptions.cpp: one library owns the types.
Exception::~Exception() = default;

namespace model {

PackageNotFound::PackageNotFound(std::string_view narrowPath)
    : Exception("opc:package:NotFound", {foundation::core::except::toArgument(narrowPath)}) {}
PackageNotFound::~PackageNotFound() = default;
PackageOpenFailed::~PackageOpenFailed() = default;

}  // namespace model
}  // namespace opc
