// The real program, started under Wine, which has no capture device: it must say that it
// found no camera, wait for OK, end with -1, and still write its eight settings at exit.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "app/errors.h"
#include "app/settings.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_system.h"
#include "tests/ui/win/program_process.h"

namespace {

struct Search {
    DWORD process = 0;
    HWND dialog = nullptr;
};

BOOL CALLBACK find_dialog(HWND window, LPARAM param) {
    auto* search = reinterpret_cast<Search*>(param);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == search->process && IsWindowVisible(window) &&
        GetDlgItem(window, IDC_ERROR_MESSAGE) != nullptr) {
        search->dialog = window;
        return FALSE;
    }
    return TRUE;
}

// The error dialog of `process` once it shows; null when the process ends first or
// nothing shows within a minute (a bound for a hung program, not a timing under test).
HWND error_dialog_of(const PROCESS_INFORMATION& process) {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    Search search{process.dwProcessId, nullptr};
    while (std::chrono::steady_clock::now() < give_up) {
        EnumWindows(find_dialog, reinterpret_cast<LPARAM>(&search));
        if (search.dialog != nullptr || WaitForSingleObject(process.hProcess, 0) == WAIT_OBJECT_0) {
            return search.dialog;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return nullptr;
}

struct Stored {
    DWORD type = REG_NONE;
    std::string bytes;
};

std::string bytes_of(const void* data, std::size_t size) {
    return std::string(static_cast<const char*>(data), size);
}

}  // namespace

TEST(WinProgram, WithoutACameraItSaysSoEndsWithMinusOneAndWritesTheEightSettings) {
    // The program's key in the build's own Wine prefix, written afresh by this run.
    RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
    SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK", nullptr);

    PROCESS_INFORMATION process{};
    ASSERT_TRUE(start_program("", process)) << GetLastError();

    HWND dialog = error_dialog_of(process);
    if (dialog == nullptr) {
        TerminateProcess(process.hProcess, 1);
    }
    ASSERT_NE(dialog, nullptr) << "no error dialog";
    char text[2048] = {};
    GetDlgItemTextA(dialog, IDC_ERROR_MESSAGE, text, sizeof text);
    const std::string expected = std::string(app_messages[MSG_CAMERA_NOT_DETECTED]) + " (8)\r\n";
    EXPECT_EQ(std::string(text).substr(0, expected.size()), expected) << text;
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 0), static_cast<DWORD>(WAIT_TIMEOUT))
        << "the program waits for OK";

    PostMessageA(dialog, WM_COMMAND, IDOK, 0);
    ASSERT_EQ(WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
    DWORD status = 0;
    GetExitCodeProcess(process.hProcess, &status);
    EXPECT_EQ(status, 0xFFFFFFFFu) << "exit(-1)";
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);

    // The first run's defaults, as the exit wrote them.
    const std::string videos = WinSystemServices().default_output_directory();
    const std::int32_t zero = 0;
    const double tenth = 0.1;
    const std::uint8_t off = 0;
    const struct {
        const char* name;
        DWORD type;
        std::string bytes;
    } expected_values[] = {
        {"DV2", REG_DWORD, bytes_of(&zero, 4)},
        {"VideoCodec", REG_DWORD, bytes_of(&zero, 4)},
        {"AudioCodec", REG_DWORD, bytes_of(&zero, 4)},
        {"OutputDirectory", REG_SZ, videos + '\0'},
        {"DefaultScene", REG_SZ, std::string("kestrel", 8)},
        {"Preroll", REG_DWORD, bytes_of(&zero, 4)},
        {"DiskspaceWarning", REG_BINARY, bytes_of(&tenth, 8)},
        {"SceneDetection", REG_BINARY, bytes_of(&off, 1)},
    };
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, settings_key_path, 0, KEY_READ, &key),
              ERROR_SUCCESS);
    DWORD values = 0;
    RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr,
                     nullptr, nullptr, nullptr);
    EXPECT_EQ(values, 8u);
    for (const auto& e : expected_values) {
        char buffer[1024];
        DWORD type = REG_NONE;
        DWORD size = sizeof buffer;
        ASSERT_EQ(
            RegQueryValueExA(key, e.name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size),
            ERROR_SUCCESS)
            << e.name;
        EXPECT_EQ(type, e.type) << e.name;
        EXPECT_EQ(std::string(buffer, size), e.bytes) << e.name;
    }
    RegCloseKey(key);
}
