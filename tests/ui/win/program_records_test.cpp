// The real program under Wine on the virtual deck, driving itself as a person would: it
// plays a tape, records for three seconds, quits; once with type 1 files, once with type
// 2. Each file must have the layout asked for, and frames that are tape frames, byte for
// byte, in tape order, none twice, as many as three seconds of tape. And a scene-detection
// capture over a tape of three recordings: one file per recording, split exactly at the
// breaks. A batch of three logged scenes. And the camera lost mid-recording.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
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

// Runs the program with `arguments` until it ends by itself (within `timeout_ms`, else it
// is ended), what it prints going to the file `output` when one is named. Success when it
// ends with `status`.
::testing::AssertionResult runs_to_its_end(const std::string& arguments, DWORD timeout_ms,
                                           DWORD status = 0, const std::string& output = {}) {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE printed = nullptr;
    if (!output.empty()) {
        printed = CreateFileA(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (printed == INVALID_HANDLE_VALUE) {
            return ::testing::AssertionFailure() << "no file " << output;
        }
    }
    PROCESS_INFORMATION process{};
    const bool started = start_program(arguments, process, printed);
    if (printed != nullptr) {
        CloseHandle(printed);
    }
    if (!started) {
        return ::testing::AssertionFailure() << "not started: " << GetLastError();
    }
    const DWORD waited = WaitForSingleObject(process.hProcess, timeout_ms);
    if (waited != WAIT_OBJECT_0) {
        TerminateProcess(process.hProcess, 1);
    }
    DWORD ended = 1;
    GetExitCodeProcess(process.hProcess, &ended);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (waited != WAIT_OBJECT_0) {
        return ::testing::AssertionFailure() << "the program did not end";
    }
    if (ended != status) {
        return ::testing::AssertionFailure() << "exit status " << ended;
    }
    return ::testing::AssertionSuccess();
}

// The capture files in `folder`, by name.
std::vector<std::string> avi_files(const std::string& folder) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA found{};
    const HANDLE search = FindFirstFileA((folder + "\\*.avi").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            names.push_back(folder + "\\" + found.cFileName);
        } while (FindNextFileA(search, &found));
        FindClose(search);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The tape frames a file's DV chunks hold, by the mark each frame of the tape carries.
std::vector<std::int64_t> tape_frames_in(const std::vector<std::uint8_t>& bytes,
                                         const std::vector<const kc::avi::test::Chunk*>& chunks,
                                         kc::deck::DvSystem system) {
    std::vector<std::int64_t> marks;
    const std::size_t frame_size = kc::deck::frame_bytes(system);
    for (const auto* chunk : chunks) {
        if (chunk->size == frame_size) {
            marks.push_back(tapes::frame_mark(std::vector<std::uint8_t>(
                bytes.begin() + static_cast<long>(chunk->data),
                bytes.begin() + static_cast<long>(chunk->data + frame_size))));
        }
    }
    return marks;
}

// A text file's lines, each ended by "\n" alone.
std::string text_of(const std::string& path) {
    const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(path);
    std::string text(bytes.begin(), bytes.end());
    std::erase(text, '\r');
    return text;
}

// The dropped frames a capture file's log counts.
std::int64_t logged_drops(const std::string& file) {
    const std::string log = text_of(file.substr(0, file.size() - 4) + ".log");
    const std::string key = "\ndropped frames: ";
    const auto at = log.find(key);
    return at == std::string::npos ? -1 : std::stoll(log.substr(at + key.size()));
}

// A tape laced in the virtual deck, the program's settings as a user left them, and a
// folder of the test's own; the settings and the deck are gone again afterwards.
class WinProgram : public ::testing::Test {
  protected:
    void lace(const kc::deck::TapePlan& tape_plan) {
        plan = tape_plan;
        tape = tapes::make_tape_bytes(plan);
        const std::string path = dir.path() + "\\tape.dv";
        tapes::write_file_bytes(path, tape);
        SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK", path.c_str());
        SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK_UNPACED", nullptr);
        RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
    }
    void set(const char* setting, DWORD value) {
        ASSERT_EQ(RegSetKeyValueA(HKEY_CURRENT_USER, settings_key_path, setting, REG_DWORD, &value,
                                  sizeof value),
                  ERROR_SUCCESS);
    }
    std::string folder(const std::string& name) {
        const std::string path = dir.path() + "\\" + name;
        EXPECT_TRUE(CreateDirectoryA(path.c_str(), nullptr));
        return path;
    }
    void TearDown() override {
        SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK", nullptr);
        SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK_LOST_AT", nullptr);
        RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
    }

    TempDir dir;
    kc::deck::TapePlan plan;
    std::vector<std::uint8_t> tape;
};

}  // namespace

TEST_F(WinProgram, OnTheVirtualDeckItRecordsTheTapeFrameForFrame) {
    lace(tapes::small_plan(kc::deck::DvSystem::pal_625_50, 400, 0));
    for (const DWORD type2 : {0u, 1u}) {
        SCOPED_TRACE(type2 ? "type 2" : "type 1");
        set("DV2", type2);  // the file type chosen
        const std::string captures = folder("captures" + std::to_string(type2));

        // The self-test ends the program by itself; two minutes bound a hung one.
        ASSERT_TRUE(runs_to_its_end("--self-test-capture 3 --output \"" + captures + "\"", 120000));
        const std::vector<std::string> files = avi_files(captures);
        ASSERT_EQ(files.size(), 1u) << "one recording, one file";

        const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(files[0]);
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
}

// Scene detection over a tape of four recordings (the second jumps forward in timecode,
// the third steps back, the fourth runs on from it with a start flagged for two frames,
// which the dialog's 250 ms steps may not see), played in real time as those steps need
// it, in type 2 files: the capture ends with the tape, one file per recording it met,
// each split exactly at the recording break although the program stops and plays the
// tape again there. Each file holds its recording's frames, byte for byte, in order, with the sound
// of each frame beside it, and its log says so.
TEST_F(WinProgram, SceneDetectionSplitsTheFilesExactlyAtTheRecordingBreaks) {
    using kc::deck::Recording;
    kc::deck::TapePlan scenes;
    // The program plays four seconds before it captures: the first recording is longer.
    scenes.recordings = {
        Recording{"One", {0, 10, 0, 0}, 175, 0, 440, {2004, 7, 17, 10, 0, 0}},
        Recording{"Two", {1, 0, 0, 0}, 75, 0, 550, {2004, 7, 17, 11, 0, 0}},
        Recording{"Three", {0, 5, 0, 0}, 75, 0, 660, {2004, 7, 18, 9, 0, 0}},
        Recording{"Four", {0, 5, 3, 0}, 50, 2, 770, {2004, 7, 18, 10, 0, 0}},
    };
    lace(scenes);
    set("DV2", 1);
    const std::string captures = folder("scenes");

    // Longer than the tape: the capture ends where the tape does, and the program with it.
    ASSERT_TRUE(
        runs_to_its_end("--self-test-capture 40 --scenes --output \"" + captures + "\"", 150000));
    const std::vector<std::string> files = avi_files(captures);
    ASSERT_EQ(files.size(), 4u) << "one file per recording";
    const std::int64_t ends[] = {174, 249, 324, 374};
    for (std::size_t i = 0; i < files.size(); ++i) {
        SCOPED_TRACE(files[i]);
        const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(files[i]);
        const auto header = kc::avi::test::read_avi(bytes);
        ASSERT_EQ(header.streams.size(), 2u);
        const auto video = kc::avi::test::movi_chunks(header.top, "00dc");
        tapes::expect_tape_frames(bytes, video, tape, plan);
        const std::vector<std::int64_t> frames = tape_frames_in(bytes, video, plan.system);
        ASSERT_GE(frames.size(), 2u);
        const std::string log = text_of(files[i].substr(0, files[i].size() - 4) + ".log");
        EXPECT_NE(log.find("\nframes: " + std::to_string(frames.size()) + "\n"), std::string::npos)
            << log;
        EXPECT_NE(log.find("\nsource: Virtual DV deck (tape.dv)\n"), std::string::npos);
        if (i > 0) {
            EXPECT_NE(log.find("(the recording break the previous file ended at)"),
                      std::string::npos);
        }
        if (i < 3) {
            EXPECT_NE(log.find("the file ends here and the next begins"), std::string::npos);
        }
        // Frames a loaded machine lost at the deck are counted, never silently missing.
        const std::int64_t dropped = logged_drops(files[i]);
        ASSERT_GE(dropped, 0) << log;
        EXPECT_EQ(frames.back() - frames.front() + 1,
                  static_cast<std::int64_t>(frames.size()) + dropped)
            << "every frame between the first and the last, or counted";
        if (i > 0) {
            EXPECT_EQ(frames.front(), ends[i - 1] + 1) << "the recording's first frame";
        }
        EXPECT_EQ(frames.back(), ends[i]) << "the recording's last frame";
    }
}

// The camera unplugged mid-recording (the deck disappears as the tape reaches frame 200,
// about four seconds into the recording): the program says what the system says then and
// closes by itself; the file written up to there reads, and every frame in it is a tape
// frame, in order, from before the loss.
TEST_F(WinProgram, ACameraLostMidRecordingIsReportedAndTheFileSoFarReads) {
    lace(tapes::small_plan(kc::deck::DvSystem::pal_625_50, 400, 0));
    SetEnvironmentVariableA("KESTREL_VIRTUAL_DECK_LOST_AT", "200");
    const std::string captures = folder("captures");
    const std::string printed = dir.path() + "\\printed.txt";

    // Recording for longer than the deck lasts: the program ends before the self-test would.
    EXPECT_TRUE(runs_to_its_end("--self-test-capture 20 --output \"" + captures + "\"", 120000, 0,
                                printed));
    const std::string said = text_of(printed);
    EXPECT_NE(said.find("the program says: Your camera has been disconnected, or has been "
                        "turned off. The program will now exit (9)\n"),
              std::string::npos)
        << said;

    const std::vector<std::string> files = avi_files(captures);
    ASSERT_EQ(files.size(), 1u);
    const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(files[0]);
    const auto header = kc::avi::test::read_avi(bytes);
    ASSERT_EQ(header.streams.size(), 1u);
    const auto chunks = kc::avi::test::movi_chunks(header.top, "00dc");
    tapes::expect_tape_frames(bytes, chunks, tape, plan);
    const std::vector<std::int64_t> frames = tape_frames_in(bytes, chunks, plan.system);
    ASSERT_GE(frames.size(), 25u) << "a recording, not a glimpse";
    EXPECT_LT(frames.back(), 200);
}

// A batch of three scenes logged while the tape plays (two seconds each), captured with a
// preroll of ten frames: three files named after their scenes, each holding tape frames
// byte for byte, in order, none missing uncounted, from within the preroll to just past
// the scene's out point, by the points the program says it logged.
TEST_F(WinProgram, ABatchOfThreeLoggedScenesGoesIntoAFileOfItsFramesEach) {
    lace(tapes::small_plan(kc::deck::DvSystem::pal_625_50, 250, 0));
    const std::int64_t tracks_per_frame = kc::deck::tracks_per_frame(plan.system);
    const DWORD preroll = static_cast<DWORD>(10 * tracks_per_frame);
    set("Preroll", preroll);
    const std::string captures = folder("batch");
    const std::string printed = dir.path() + "\\printed.txt";

    EXPECT_TRUE(runs_to_its_end("--self-test-capture 2 --batch --output \"" + captures + "\"",
                                150000, 0, printed));
    const std::string said = text_of(printed);

    struct Scene {
        std::string name;
        long long start = 0, in = 0, out = 0;
    };
    std::vector<Scene> scenes;
    for (std::size_t at = said.find("scene \""); at != std::string::npos;
         at = said.find("scene \"", at + 1)) {
        const std::size_t name_end = said.find('"', at + 7);
        Scene scene{said.substr(at + 7, name_end - at - 7)};
        ASSERT_EQ(std::sscanf(said.c_str() + name_end,
                              "\": capture start track %lld, in track %lld, out track %lld",
                              &scene.start, &scene.in, &scene.out),
                  3)
            << said;
        scenes.push_back(scene);
    }
    ASSERT_EQ(scenes.size(), 3u) << said;
    ASSERT_EQ(avi_files(captures).size(), 3u);
    for (const Scene& scene : scenes) {
        const std::string file = captures + "\\" + scene.name + ".avi";
        SCOPED_TRACE(file);
        EXPECT_EQ(scene.start, scene.in - static_cast<long long>(preroll));
        EXPECT_GT(scene.out, scene.in);
        const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(file);
        const auto header = kc::avi::test::read_avi(bytes);
        const auto chunks = kc::avi::test::movi_chunks(header.top, "00dc");
        tapes::expect_tape_frames(bytes, chunks, tape, plan);
        const std::vector<std::int64_t> frames = tape_frames_in(bytes, chunks, plan.system);
        ASSERT_FALSE(frames.empty());
        const std::int64_t dropped = logged_drops(file);
        ASSERT_GE(dropped, 0) << "the log counts the dropped frames";
        EXPECT_EQ(frames.back() - frames.front() + 1,
                  static_cast<std::int64_t>(frames.size()) + dropped)
            << "every frame between the first and the last, or counted";
        // The tape rolls from the capture start before the graph takes its first frame;
        // the preroll is there so that this happens before the in point. The scene ends at
        // the first 250 ms step past its out point, which a loaded machine may take late:
        // within two seconds of tape, not at the tape's end.
        EXPECT_GE(frames.front(), scene.start / tracks_per_frame);
        EXPECT_LE(frames.front(), scene.in / tracks_per_frame);
        EXPECT_GT(frames.back(), scene.out / tracks_per_frame);
        EXPECT_LE(frames.back(), scene.out / tracks_per_frame + 50);
    }
}
