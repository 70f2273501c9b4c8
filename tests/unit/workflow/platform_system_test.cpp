// What the workflows ask of the file and disk services, checked on the real services of
// the platform built for, on real folders.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/unit/workflow/platform_system.h"
#include "tests/unit/workflow/temp_dir.h"

TEST(PlatformSystem, FindFilesMatchesTheEndingWithoutRegardToCase) {
    TempDir dir;
    for (const char* name : {"a 1.avi", "B 2.AVI", "c 3.aVi", "d.avi.txt", "avi", "e.mov"}) {
        dir.touch(name);
    }
    std::filesystem::create_directory(dir.file("folder.avi"));
    const auto system = make_platform_system();
    auto found = system->find_files(dir.path(), ".avi");
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"B 2.AVI", "a 1.avi", "c 3.aVi", "folder.avi"}));
    EXPECT_TRUE(system->find_files(dir.file("missing"), ".avi").empty());
}

TEST(PlatformSystem, PathsFilesAndDisks) {
    TempDir dir;
    const auto system = make_platform_system();
    EXPECT_TRUE(system->path_exists(dir.path()));
    EXPECT_FALSE(system->path_exists(dir.file("none")));
    EXPECT_FALSE(system->path_exists(""));

    dir.touch("x.avi", "data");
    EXPECT_TRUE(system->path_exists(dir.file("x.avi")));
    EXPECT_TRUE(system->delete_file(dir.file("x.avi")));
    EXPECT_FALSE(system->path_exists(dir.file("x.avi")));
    EXPECT_FALSE(system->delete_file(dir.file("x.avi")));

    std::uint64_t available = 0, total = 0, total_free = 0;
    ASSERT_TRUE(system->disk_free_space(dir.path(), available, total, total_free));
    EXPECT_GT(total, 0u);
    EXPECT_LE(available, total_free);
    EXPECT_LE(total_free, total);
    EXPECT_FALSE(system->disk_free_space(dir.file("none"), available, total, total_free));
}
