// The Record toggle and the watch on free disk space.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/unit/app/app_rig.h"

namespace {
const std::string low_disk = "Warning: low disk space on output directory (10)";

// One check with the disk far below the warning threshold.
void check_low_disk(CapApp& a) {
    bool warned = false;
    a.free_fraction = 0.01;
    a.low_disk_check(warned);
}
}  // namespace

TEST(RecordToggle, OnADvVcrItRecordsIntoTheNextFileAndBackToPreviewWithTheTapePlaying) {
    AppRig rig;
    CapApp& a = rig.start();
    rig.system.folders[a.output_directory] = {"kestrel 011.avi"};
    const std::size_t mark = rig.deck.modes.size();

    ASSERT_TRUE(a.toggle_recording());
    EXPECT_TRUE(a.recording);
    EXPECT_EQ(rig.media.builder.output_paths.back(), rig.system.videos + "/kestrel 012.avi");
    EXPECT_EQ(rig.modes_since(mark), (std::vector<long>{media::ED_MODE_STOP, media::ED_MODE_PLAY}));
    EXPECT_TRUE(a.win->attached());
    EXPECT_TRUE(a.win->running());
    EXPECT_EQ(rig.media.graph.owner, rig.main_pane());
    EXPECT_TRUE(rig.media.graph.is_running);

    const std::size_t outputs = rig.media.builder.output_paths.size();
    const std::size_t second = rig.deck.modes.size();
    ASSERT_TRUE(a.toggle_recording());
    EXPECT_FALSE(a.recording);
    EXPECT_EQ(rig.media.builder.output_paths.size(), outputs) << "no new file";
    // Ending a recording leaves a VCR tape playing under the preview.
    EXPECT_EQ(rig.modes_since(second),
              (std::vector<long>{media::ED_MODE_STOP, media::ED_MODE_PLAY}));
    EXPECT_TRUE(a.win->running());
    EXPECT_EQ(rig.media.builder.described_requests().back(),
              "preview interleaved DV Camcorder -> - -> -");
}

TEST(RecordToggle, AMissingOutputDirectoryIsRefusedWithNothingChanged) {
    AppRig rig;
    CapApp& a = rig.start();
    a.output_directory = "/nowhere";
    const std::size_t calls = rig.media.ledger.calls.size();
    EXPECT_FALSE(a.toggle_recording());
    EXPECT_EQ(rig.messages(),
              std::vector<std::string>{"The selected output directory is invalid (12)"});
    EXPECT_FALSE(a.recording);
    EXPECT_EQ(rig.media.ledger.calls.size(), calls);
}

TEST(RecordToggle, ANonDvSourceRecordsWithoutAnyTransportCommand) {
    AppRig rig;
    CapApp& a = rig.start(1);
    a.video_codec = 1;
    ASSERT_TRUE(a.toggle_recording());
    EXPECT_TRUE(a.recording);
    EXPECT_EQ(rig.media.builder.finds.back().type, media::MajorType::video);
    ASSERT_TRUE(a.toggle_recording());
    EXPECT_FALSE(a.recording);
    EXPECT_TRUE(rig.deck.modes.empty());
    EXPECT_TRUE(a.win->running());
}

TEST(RecordToggle, AFailingCaptureGraphKeepsTheOldStateAndRaises) {
    AppRig rig;
    CapApp& a = rig.start();
    rig.media.builder.fail("set_output_file_name", E_FAIL);
    EXPECT_EQ(com_error_of([&] { a.toggle_recording(); }).first, ERR_SET_OUTPUT_FILE);
    EXPECT_FALSE(a.recording);
}

TEST(RecordToggle, TheTypeTwoSettingChoosesSeparateStreams) {
    AppRig rig;
    CapApp& a = rig.start();
    a.dv_type2 = 1;
    ASSERT_TRUE(a.toggle_recording());
    EXPECT_EQ(rig.media.builder.described_requests()[1],
              "capture interleaved DV Camcorder -> DV Splitter -> AVI Mux");
}

TEST(DiskSpace, AReadingSetsTheShareAndBytesAFailedOneKeepsTheLast) {
    AppRig rig;
    CapApp& a = rig.make();
    rig.system.disk_ok = false;
    a.update_disk_space();
    EXPECT_EQ(a.free_fraction, 1.0);
    EXPECT_EQ(a.free_bytes, -1.0);

    rig.system.disk_ok = true;
    rig.system.available = 25'000'000'000ull;
    rig.system.total = 100'000'000'000ull;
    a.update_disk_space();
    EXPECT_DOUBLE_EQ(a.free_fraction, 0.25);
    EXPECT_EQ(a.free_bytes, 25e9);

    // A disk that reports no size cannot give a share.
    rig.system.total = 0;
    a.update_disk_space();
    EXPECT_DOUBLE_EQ(a.free_fraction, 0.25);
}

TEST(DiskCheck, WarnsOncePerFallBelowTheThresholdAndReArms) {
    AppRig rig;
    CapApp& a = rig.make();
    bool warned = false;
    auto tick = [&](double fraction) {
        a.free_fraction = fraction;
        a.low_disk_check(warned);
        return rig.messages().size();
    };
    EXPECT_EQ(tick(0.1), 0u) << "equal to the threshold is not below it";
    EXPECT_EQ(tick(0.0999), 1u);
    EXPECT_TRUE(warned);
    EXPECT_EQ(tick(0.05), 1u);
    EXPECT_EQ(tick(0.0999), 1u);
    EXPECT_EQ(tick(0.1), 1u);
    EXPECT_FALSE(warned);
    EXPECT_EQ(tick(0.09), 2u);
    EXPECT_EQ(rig.messages().back(), low_disk);
    // A share that is not a number never warns and re-arms.
    EXPECT_EQ(tick(std::nan("")), 2u);
    EXPECT_FALSE(warned);
}

TEST(DiskCheck, AThresholdOfZeroNeverWarnsOneAboveOneWarnsAtOnce) {
    AppRig rig;
    CapApp& a = rig.make();
    bool warned = false;
    a.disk_warning = 0;
    a.free_fraction = 0;
    a.low_disk_check(warned);
    EXPECT_TRUE(rig.messages().empty());
    a.disk_warning = 1.5;
    a.free_fraction = 1.0;  // also the value before any reading
    a.low_disk_check(warned);
    a.low_disk_check(warned);
    EXPECT_EQ(rig.messages().size(), 1u);
}

TEST(DiskCheck, LowDiskWhileRecordingEndsTheRecordingIntoAStoppedPreview) {
    AppRig rig;
    CapApp& a = rig.start();
    ASSERT_TRUE(a.toggle_recording());
    const std::size_t mark = rig.deck.modes.size();
    check_low_disk(a);
    EXPECT_FALSE(a.recording);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{low_disk});
    // The tape stays stopped; the preview graph is built but neither shown nor run.
    EXPECT_EQ(rig.modes_since(mark), std::vector<long>{media::ED_MODE_STOP});
    EXPECT_FALSE(a.win->attached());
    EXPECT_FALSE(a.win->running());
    EXPECT_EQ(rig.media.builder.described_requests().back(),
              "preview interleaved DV Camcorder -> - -> -");
}

TEST(DiskCheck, LowDiskWhileRecordingIntoAVanishedFolderOnlyWarns) {
    AppRig rig;
    CapApp& a = rig.start();
    ASSERT_TRUE(a.toggle_recording());
    rig.system.existing_paths.clear();
    check_low_disk(a);
    EXPECT_TRUE(a.recording);
    EXPECT_TRUE(a.win->running());
    EXPECT_EQ(rig.messages(), std::vector<std::string>{low_disk});
}

TEST(DiskCheck, LowDiskDuringABatchOnlyAsksItToStop) {
    AppRig rig;
    CapApp& a = rig.start();
    a.inbatch = true;
    a.callback = &rig.callback;
    const std::size_t calls = rig.media.ledger.calls.size();
    check_low_disk(a);
    EXPECT_TRUE(rig.callback.aborted);
    EXPECT_EQ(rig.media.ledger.calls.size(), calls);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{low_disk});
    a.inbatch = false;
}
