// The project and the Windows headers agree on every constant they both name, so that
// an adapter may pass values between the core and the system untranslated.
#include <gtest/gtest.h>

#include "platform/media.h"
#include "platform/result.h"
#include "platform/window.h"
#include "resources/dialog_template.h"
#include "tests/unit/win/shared_names.h"
#include "tests/unit/win/shared_names_values.h"

namespace {
NamedValues project_values() {
#define KC_PROJECT_VALUE(ns, name) {#name, static_cast<std::uint32_t>(ns::name)},
    return {KC_SHARED_NAMES(KC_PROJECT_VALUE)};
#undef KC_PROJECT_VALUE
}
}  // namespace

TEST(SharedNames, EveryConstantHasTheWindowsValue) {
    const NamedValues ours = project_values();
    const NamedValues theirs = windows_values();
    ASSERT_EQ(ours.size(), theirs.size());
    EXPECT_EQ(ours.size(), 86u) << "84 names, two of them declared twice";
    for (std::size_t i = 0; i < ours.size(); ++i) {
        ASSERT_EQ(ours[i].first, theirs[i].first);
        EXPECT_EQ(ours[i].second, theirs[i].second)
            << ours[i].first << ": 0x" << std::hex << ours[i].second << " here, 0x"
            << theirs[i].second << " in Windows";
    }
}
