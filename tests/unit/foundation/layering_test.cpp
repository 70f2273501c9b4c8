#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

// The portable core reaches the platform only through platform/*.h.
TEST(Layering, CoreIncludesNoPlatformHeader) {
    const std::regex forbidden(
        R"(#\s*include\s*[<"](gst/|glib|gio/|Q[A-Za-z]*[>"/]|qt|libavc1394|libraw1394|libiec61883|windows\.h|platform/(gst|qt|avc|posix)/|deck/))");
    int scanned = 0;
    for (const char* area : {"app", "workflow", "graph", "ui"}) {
        const auto dir = std::filesystem::path(KC_SOURCE_DIR) / area;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
            const auto ext = entry.path().extension();
            if (ext != ".h" && ext != ".cpp") {
                continue;
            }
            // The program's entry wires the real platform together; it is not core.
            if (entry.path().filename() == "main.cpp") {
                continue;
            }
            std::ifstream in(entry.path());
            std::string line;
            int number = 0;
            while (std::getline(in, line)) {
                ++number;
                EXPECT_FALSE(std::regex_search(line, forbidden))
                    << entry.path() << ":" << number << ": " << line;
            }
            ++scanned;
        }
    }
    EXPECT_GT(scanned, 5);
}
