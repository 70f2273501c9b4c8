// The real file and disk services of the platform the tests are built for; CMake picks
// the file that makes them.
#pragma once

#include <memory>

#include "platform/system.h"

std::unique_ptr<SystemServices> make_platform_system();
