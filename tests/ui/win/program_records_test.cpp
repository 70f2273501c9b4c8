// The real program under Wine on the virtual deck, driving itself as a person would: it
// plays a tape, records for three seconds, quits; once with type 1 files, once with type
// 2. Each file must have the layout asked for, and frames that are tape frames, byte for
// byte, in tape order, none twice, as many as three seconds of tape.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "app/settings.h"
#include "tests/unit/avi/riff_reader.h"
#include "tests/unit/deck/deck_test_tapes.h"
#include "tests/unit/deck/tape_frames_check.h"
#include "tests/unit/workflow/temp_dir.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win32.h"
#include "tests/ui/win/program_process.h"

namespace {

namespace tapes = kc::deck::testing;

}  // namespace

TEST(WinProgram, OnTheVirtualDeckItRecordsTheTapeFrameForFrame) {
    TempDir dir;
    const kc::deck::TapePlan plan = tapes::small_plan(kc::deck::DvSystem::pal_625_50, 400, 0);
    const std::vector<std::uint8_t> tape = tapes::make_tape_bytes(plan);
    const std::string tape_path = dir.path() + "\\tape.dv";
    tapes::write_file_bytes(tape_path, tape);
    SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK", tape_path.c_str());
    SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK_UNPACED", nullptr);
    for (const DWORD type2 : {0u, 1u}) {
        SCOPED_TRACE(type2 ? "type 2" : "type 1");
        // The program's settings as a user left them: the file type chosen.
        RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
        ASSERT_EQ(RegSetKeyValueA(HKEY_CURRENT_USER, settings_key_path, "DV2", REG_DWORD, &type2,
                                  sizeof type2),
                  ERROR_SUCCESS);
        const std::string captures = dir.path() + "\\captures" + std::to_string(type2);
        ASSERT_TRUE(CreateDirectoryA(captures.c_str(), nullptr));

        PROCESS_INFORMATION process{};
        ASSERT_TRUE(start_program("--self-test-capture 3 --output \"" + captures + "\"", process))
            << GetLastError();
        // The self-test ends the program by itself; two minutes bound a hung one.
        const DWORD waited = WaitForSingleObject(process.hProcess, 120000);
        if (waited != WAIT_OBJECT_0) {
            TerminateProcess(process.hProcess, 1);
        }
        DWORD status = 1;
        GetExitCodeProcess(process.hProcess, &status);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        ASSERT_EQ(waited, WAIT_OBJECT_0) << "the program did not end";
        EXPECT_EQ(status, 0u);

        WIN32_FIND_DATAA found{};
        const HANDLE search = FindFirstFileA((captures + "\\*.avi").c_str(), &found);
        ASSERT_NE(search, INVALID_HANDLE_VALUE) << "no file written";
        const std::string name = found.cFileName;
        EXPECT_FALSE(FindNextFileA(search, &found)) << "one recording, one file";
        FindClose(search);

        const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(captures + "\\" + name);
        const auto header = kc::avi::test::read_avi(bytes);
        if (type2 != 0) {
            ASSERT_EQ(header.streams.size(), 2u);
            EXPECT_EQ(header.streams[0].type, "vids");
            EXPECT_EQ(header.streams[1].type, "auds");
        } else {
            ASSERT_EQ(header.streams.size(), 1u);
            EXPECT_EQ(header.streams[0].type, "iavs") << "the camera's stream as it is";
        }
        const auto frames = kc::avi::test::movi_chunks(header.top, "00dc");
        // Three seconds of a 25 frame/s tape, give or take the moments Record takes and
        // a loaded machine's late timer: a recording, not a glimpse, and not the whole tape.
        EXPECT_GE(frames.size(), 25u);
        EXPECT_LE(frames.size(), 150u);
        tapes::expect_tape_frames(bytes, frames, tape, plan);
    }
    SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK", nullptr);
    RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
}
