#include "platform/errors/exceptions.h"

using namespace foundation::core::except;

void raisingCall() { CALL; }
