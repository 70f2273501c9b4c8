#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace {

// The include target of a line such as `#  include <gst/gst.h>`, or empty when the line is
// no include. Plain string scanning: std::regex trips a false maybe-uninitialized warning
// in GCC 12 under the sanitizers.
std::string_view include_target(std::string_view line) {
    auto rest = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!rest.starts_with('#')) {
        return {};
    }
    rest.remove_prefix(1);
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
    if (!rest.starts_with("include")) {
        return {};
    }
    rest.remove_prefix(7);
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
    if (rest.empty() || (rest[0] != '<' && rest[0] != '"')) {
        return {};
    }
    const auto end = rest.find_first_of(">\"", 1);
    return rest.substr(1, end == std::string_view::npos ? std::string_view::npos : end - 1);
}

bool is_platform_specific(std::string_view target) {
    static constexpr std::array<std::string_view, 12> prefixes = {
        "gst/",          "glib",         "gio/",          "qt",
        "libavc1394",    "libraw1394",   "libiec61883",   "windows.h",
        "platform/gst/", "platform/qt/", "platform/avc/", "platform/posix/"};
    for (const auto prefix : prefixes) {
        if (target.starts_with(prefix)) {
            return true;
        }
    }
    // Qt's own headers: QWidget, QtCore/..., and so on.
    return target.starts_with("deck/") || (target.size() > 1 && target[0] == 'Q');
}

}  // namespace

TEST(Layering, IncludeTargetsAreRecognised) {
    EXPECT_EQ(include_target("#include <gst/gst.h>"), "gst/gst.h");
    EXPECT_EQ(include_target("  #  include \"platform/qt/host.h\""), "platform/qt/host.h");
    EXPECT_EQ(include_target("// #include <x.h> in a comment"), "");
    EXPECT_TRUE(is_platform_specific("QWidget"));
    EXPECT_TRUE(is_platform_specific("deck/vcr.h"));
    EXPECT_FALSE(is_platform_specific("platform/media.h"));
    EXPECT_FALSE(is_platform_specific("string"));
}

// The portable core reaches the platform only through platform/*.h.
TEST(Layering, CoreIncludesNoPlatformHeader) {
    int scanned = 0;
    for (const char* area : {"app", "workflow", "graph", "ui"}) {
        const auto dir = std::filesystem::path(KC_SOURCE_DIR) / area;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
            const auto ext = entry.path().extension();
            if (ext != ".h" && ext != ".cpp") {
                continue;
            }
            std::ifstream in(entry.path());
            std::string line;
            int number = 0;
            while (std::getline(in, line)) {
                ++number;
                EXPECT_FALSE(is_platform_specific(include_target(line)))
                    << entry.path() << ":" << number << ": " << line;
            }
            ++scanned;
        }
    }
    EXPECT_GT(scanned, 5);
}
