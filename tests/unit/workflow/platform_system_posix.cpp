#include "platform/posix/posix_system.h"
#include "tests/unit/workflow/platform_system.h"

std::unique_ptr<SystemServices> make_platform_system() {
    return std::make_unique<PosixSystemServices>();
}
