// The Linux file, disk and process services; what every platform must do with files and
// disks is checked by the workflow tests (platform_system_test.cpp).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/posix/posix_system.h"
#include "tests/unit/posix/env_guard.h"
#include "tests/unit/workflow/temp_dir.h"

TEST(PosixSystem, SystemTextDescribesErrnoFailuresOnly) {
    PosixSystemServices system;
    std::string text;
    ASSERT_TRUE(system.system_text(hresult_from_errno(ENOENT), text));
    EXPECT_EQ(text, "No such file or directory");
    text = "untouched";
    EXPECT_FALSE(system.system_text(E_FAIL, text));
    EXPECT_FALSE(system.system_text(S_OK, text));
    EXPECT_EQ(text, "untouched");
}

TEST(PosixSystem, ModuleFileNameIsThisProgramAndFoldersJoinWithASlash) {
    PosixSystemServices system;
    EXPECT_EQ(std::filesystem::path(system.module_file_name()).filename(), "posix_test");
    EXPECT_EQ(system.folder_separator(), '/');
}

TEST(PosixSystem, DefaultOutputDirectoryPrefersTheXdgVideosFolder) {
    TempDir home;
    EnvGuard home_env("HOME", home.path());
    EnvGuard xdg("XDG_CONFIG_HOME", std::nullopt);
    PosixSystemServices system;
    EXPECT_EQ(system.default_output_directory(), home.path()) << "nothing else exists";

    std::filesystem::create_directory(home.file("Videos"));
    EXPECT_EQ(system.default_output_directory(), home.file("Videos"));

    std::filesystem::create_directories(home.file(".config"));
    std::ofstream(home.file(".config/user-dirs.dirs"))
        << "# written by xdg-user-dirs-update\nXDG_VIDEOS_DIR=\"$HOME/Filme\"\n";
    EXPECT_EQ(system.default_output_directory(), home.file("Videos")) << "Filme does not exist";
    std::filesystem::create_directory(home.file("Filme"));
    EXPECT_EQ(system.default_output_directory(), home.file("Filme"));

    // A videos folder set to the home folder itself means none.
    std::ofstream(home.file(".config/user-dirs.dirs")) << "XDG_VIDEOS_DIR=\"$HOME/\"\n";
    EXPECT_EQ(system.default_output_directory(), home.file("Videos"));
}

TEST(PosixSystem, ShellOpenStartsTheOpenerWithoutWaitingAndReportsWhatIsMissing) {
    TempDir dir;
    dir.touch("manual.htm", "<html></html>");
    PosixSystemServices system;
    {
        EnvGuard path("PATH", dir.file("bin"));
        EXPECT_EQ(system.shell_open(dir.file("manual.htm")), 31) << "no opener installed";
    }
    EXPECT_EQ(system.shell_open(dir.file("missing.htm")), 2);

    // A stand-in opener that notes what it was asked to open.
    std::filesystem::create_directory(dir.file("bin"));
    std::ofstream(dir.file("bin/xdg-open"))
        << "#!/bin/sh\nprintf '%s' \"$1\" > \"" << dir.file("opened.tmp") << "\"\nmv \""
        << dir.file("opened.tmp") << "\" \"" << dir.file("opened") << "\"\n";
    std::filesystem::permissions(dir.file("bin/xdg-open"), std::filesystem::perms::owner_all);
    EnvGuard path("PATH", dir.file("bin") + ":/usr/bin:/bin");
    EXPECT_GT(system.shell_open(dir.file("manual.htm")), 32);
    // The opener runs on its own; wait for its note rather than for a fixed time.
    while (!std::filesystem::exists(dir.file("opened"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::ifstream in(dir.file("opened"));
    std::string opened;
    std::getline(in, opened);
    EXPECT_EQ(opened, dir.file("manual.htm"));
}
