#include "tests/unit/workflow/platform_system.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_system.h"

std::unique_ptr<SystemServices> make_platform_system() {
    return std::make_unique<WinSystemServices>();
}
