// The Windows file, disk, shell and process services under Wine; what every platform
// must do with files and disks is checked by the workflow tests (platform_system_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/unit/workflow/temp_dir.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_system.h"

namespace {
// Sets a text value of a file-type key, creating the key. Wine looks file types up in
// the machine's classes only, which in the build's own prefix nobody else sees.
void set_class_value(const std::string& key, const char* name, const std::string& text) {
    ASSERT_EQ(RegSetKeyValueA(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, text.c_str(),
                              static_cast<DWORD>(text.size() + 1)),
              ERROR_SUCCESS);
}

bool appears_within(const std::string& path, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
        if (std::filesystem::exists(path)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}
}  // namespace

TEST(WinSystem, DisksAnswerForTheCallerAndFoldersJoinWithABackslash) {
    TempDir dir;
    WinSystemServices system;
    std::uint64_t available = 0, total = 0, total_free = 0;
    ASSERT_TRUE(system.disk_free_space(dir.path(), available, total, total_free));
    EXPECT_GT(available, 0u);
    EXPECT_EQ(system.folder_separator(), '\\');
}

TEST(WinSystem, SystemTextIsTheSystemsMessageWithItsLineEnd) {
    WinSystemServices system;
    std::string text;
    ASSERT_TRUE(system.system_text(E_OUTOFMEMORY, text));
    EXPECT_GT(text.size(), 2u);
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n") << "the core cuts at the last CR";

    std::string other;
    ASSERT_TRUE(system.system_text(E_ACCESSDENIED, other));
    EXPECT_NE(other, text);

    text = "untouched";
    EXPECT_FALSE(system.system_text(static_cast<HRESULT>(0x8004FFF1u), text));
    EXPECT_EQ(text, "untouched");
}

TEST(WinSystem, TheProgramFileAndTheUsersVideosFolderExist) {
    WinSystemServices system;
    const std::string program = system.module_file_name();
    ASSERT_GT(program.size(), 3u);
    EXPECT_EQ(program.substr(1, 2), ":\\") << program;
    EXPECT_EQ(program.substr(program.rfind('\\') + 1), "win_test.exe");
    EXPECT_TRUE(system.path_exists(program));

    const std::string videos = system.default_output_directory();
    EXPECT_FALSE(videos.empty());
    EXPECT_NE(GetFileAttributesA(videos.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u) << videos;
}

TEST(WinSystem, ShellOpenRunsTheRegisteredHandlerOrSaysWhyNot) {
    TempDir dir;
    WinSystemServices system;
    EXPECT_EQ(system.shell_open(dir.file("missing.kcopen")), SE_ERR_FNF);

    dir.touch("unknown.kcnohandler", "x");
    EXPECT_EQ(system.shell_open(dir.file("unknown.kcnohandler")), SE_ERR_NOASSOC);

    // A file type of this test's own whose "open" copies the file beside itself, so that
    // the open can be seen without starting anything outside the prefix.
    set_class_value(".kcopen", nullptr, "kestrel.test.open");
    set_class_value("kestrel.test.open\\shell\\open\\command", nullptr,
                    "C:\\windows\\system32\\cmd.exe /c copy \"%1\" \"%1.opened\"");
    dir.touch("manual.kcopen", "x");
    const std::string file =
        std::filesystem::path(dir.file("manual.kcopen")).make_preferred().string();
    EXPECT_GT(system.shell_open(file), 32);
    EXPECT_TRUE(appears_within(file + ".opened", std::chrono::seconds(20)));
    RegDeleteTreeA(HKEY_CLASSES_ROOT, "kestrel.test.open");
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ".kcopen");
}

TEST(WinSystem, ComIsTakenOnceAndGivenBackOnce) {
    WinSystemServices system;
    EXPECT_EQ(system.initialize(), S_OK);
    // A second apartment on the same thread is refused while the first is held ...
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    system.uninitialize();
    system.uninitialize();  // nothing left to give back
    // ... and possible again once it is released.
    const HRESULT again = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    EXPECT_EQ(again, S_OK);
    if (SUCCEEDED(again)) {
        CoUninitialize();
    }
}
