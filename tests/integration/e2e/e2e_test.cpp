// The application object driving the real media platform: the virtual deck plays the
// demo tape, CapApp connects, previews and records as the main window makes it do, and
// the files are read back with ffprobe. The deck runs at its frame rate so that a fault
// can be switched on while a capture runs; waits end on a result or a generous deadline,
// never on a measured time.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"
#include "deck/tape_image.h"
#include "dv/dv_frame.h"
#include "platform/gst/media/gst_media.h"
#include "platform/gst/media/media_internal.h"
#include "platform/posix/posix_system.h"
#include "platform/window.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_settings_store.h"
#include "tests/integration/gst/gst_test_support.h"

namespace {

namespace test = kc::gst::test;
namespace fs = std::filesystem;

// Posts come from the media layer's streaming threads; they are queued under a lock and
// delivered on the test's thread, as the toolkit's event loop would.
class Host : public FakeDialogHost {
  public:
    bool post_message(WindowHandle window, unsigned message, WParam wparam,
                      LParam lparam) override {
        std::lock_guard guard(lock);
        queue.push_back({window, message, wparam, lparam});
        return true;
    }
    void deliver() {
        for (;;) {
            Post post;
            {
                std::lock_guard guard(lock);
                if (queue.empty()) {
                    return;
                }
                post = queue.front();
                queue.erase(queue.begin());
            }
            send(post.window, post.message, post.wparam, post.lparam);
        }
    }

  private:
    struct Post {
        WindowHandle window = nullptr;
        unsigned message = 0;
        WParam wparam = 0;
        LParam lparam = 0;
    };
    std::mutex lock;
    std::vector<Post> queue;
};

class Surface : public VideoSurface, public VideoSurfaces {
  public:
    void present(const std::uint8_t*, int w, int h, int) override {
        std::lock_guard guard(lock);
        ++frames;
        width = w;
        height = h;
    }
    void clear() override {}
    VideoSurface* surface_for(WindowHandle window) override {
        return window != nullptr && window == pane ? this : nullptr;
    }
    int presented() {
        std::lock_guard guard(lock);
        return frames;
    }
    WindowHandle pane = nullptr;
    std::mutex lock;
    int frames = 0, width = 0, height = 0;
};

// The main dialog stand-in: counts the graph's message as the main window receives it.
int graph_messages = 0;
LResult main_proc(WindowHandle, unsigned message, WParam, LParam) {
    if (message == wm::graph_event) {
        ++graph_messages;
    }
    return 0;
}

// The tape frames a file holds, in file order, found by the timecode every DV frame
// carries (-1 for a frame whose timecode is not on the tape).
std::vector<std::int64_t> tape_frames_of(const fs::path& file, const kc::deck::TapeImage& tape) {
    std::map<kc::deck::BcdTimecode, std::int64_t> frame_of;
    for (std::int64_t i = 0; i < tape.frame_count(); ++i) {
        if (tape.frame(i).timecode) {
            frame_of.emplace(*tape.frame(i).timecode, i);
        }
    }
    test::TempDir scratch;
    const fs::path raw = scratch / "video.dv";
    test::run_program({"ffmpeg", "-nostdin", "-v", "error", "-i", file.string(), "-map", "0:v",
                       "-c", "copy", "-f", "rawvideo", raw.string()});
    const std::vector<std::uint8_t> bytes = test::read_file(raw);
    std::vector<std::int64_t> frames;
    for (std::size_t at = 0; at + tape.frame_bytes() <= bytes.size(); at += tape.frame_bytes()) {
        const auto timecode = kc::deck::read_timecode(
            std::span(bytes).subspan(at, tape.frame_bytes()), tape.system());
        const auto found = timecode ? frame_of.find(*timecode) : frame_of.end();
        frames.push_back(found == frame_of.end() ? -1 : found->second);
    }
    return frames;
}

// The capture log beside a capture file.
std::string log_of(const fs::path& file) {
    const auto bytes = test::read_file(fs::path(file).replace_extension(".log"));
    return std::string(bytes.begin(), bytes.end());
}

// The frames a file's log counts as dropped (-1 when it does not say).
std::int64_t logged_drops(const fs::path& file) {
    const std::string log = log_of(file);
    const std::string key = "\ndropped frames: ";
    const auto at = log.find(key);
    return at == std::string::npos ? -1 : std::stoll(log.substr(at + key.size()));
}

// The frames a file's log counts as lost on their way to it between its first and last
// frame (by the source or after it), as against those the file could not take.
std::int64_t lost_before_the_end(const fs::path& file) {
    const std::string log = log_of(file);
    std::int64_t lost = 0;
    for (std::size_t at = log.find("\ndropped: "); at != std::string::npos;
         at = log.find("\ndropped: ", at + 1)) {
        const std::string line = log.substr(at + 1, log.find('\n', at + 1) - at - 1);
        if (line.find("not written") == std::string::npos &&
            line.find("as the stream ended") == std::string::npos) {
            lost += std::stoll(line.substr(std::string("dropped: ").size()));
        }
    }
    return lost;
}

// Tape frames in order, none twice, and any missing between the first and the last are
// exactly the `counted` drops: a loaded machine may lose frames at the deck, as a bus
// does, but never without counting them.
::testing::AssertionResult whole_or_counted(const std::vector<std::int64_t>& frames,
                                            std::int64_t counted) {
    std::int64_t missing = 0;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        if (frames[i] <= frames[i - 1]) {
            return ::testing::AssertionFailure()
                   << "tape frame " << frames[i] << " after " << frames[i - 1];
        }
        missing += frames[i] - frames[i - 1] - 1;
    }
    if (missing != counted) {
        return ::testing::AssertionFailure()
               << missing << " frames missing, " << counted << " counted as dropped";
    }
    return ::testing::AssertionSuccess();
}

// A progress dialog's side of a batch or scene capture: its picture control, and the
// fractions it was given.
struct Progress : CapBatchCallback {
    void progress(float fraction) override { fractions.push_back(fraction); }
    std::vector<float> fractions;
};

class EndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        test::init_gstreamer();
        if (!test::has_element("avenc_dvvideo") || !test::has_element("dvdemux") ||
            !test::has_element("dvdec")) {
            GTEST_SKIP() << "GStreamer DV elements are missing";
        }
        setenv("KESTREL_VIRTUAL_DECK", "demo", 0);
        std::string error;
        ASSERT_TRUE(kc::deck::register_virtual_deck(error)) << error;
        demo = kc::deck::registered_virtual_deck();
        ASSERT_NE(demo, nullptr);
        if (const auto plan = tape_plan()) {
            const fs::path tape = dir.path() / "tape.dv";
            ASSERT_TRUE(kc::deck::write_tape(*plan, tape, error)) << error;
            const auto loaded = kc::deck::open_virtual_deck(tape.string(), false, error);
            ASSERT_NE(loaded, nullptr) << error;
            fs::remove(tape);  // the deck keeps it mapped; the folder is for the captures
            kc::deck::insert_tape(loaded, tape.string());
        }
        vcr = kc::deck::registered_virtual_deck();
        vcr->set_faults({});
        // One deck serves every test of a run: each begins with the tape at its start.
        if (vcr->state().frame() != 0) {
            ASSERT_EQ(vcr->seek_track(0), S_OK);
            ASSERT_TRUE(wait_for([&] { return !vcr->state().seeking; }));
        }

        factory = kc::gst::make_media_factory(host, surfaces);
        platform = std::make_unique<CapPlatform>(CapPlatform{host, system, settings, *factory});
        scoped = std::make_unique<ScopedInstance>(*platform);
        graph_messages = 0;
        main_window = host.open(&main_proc, 0, IDD_MAIN);
        surfaces.pane = host.get_dlg_item(main_window, IDC_PREVIEW);

        // The entry's start-up: the settings are read, the device connected, the preview built.
        app = new CapApp(*platform);
        app->output_directory = dir.path().string();
        app->scene_name = "e2e";
        app->connect();
        app->build_preview();
    }

    void TearDown() override {
        if (app != nullptr) {
            CapApp* ending = app;
            app = nullptr;
            delete ending;
        }
        main_window = nullptr;
        scoped.reset();
        if (demo) {
            kc::deck::insert_tape(demo, "demo");  // the next test in this process finds it
        }
    }

    // A tape of the test's own for the deck, instead of the demo tape.
    virtual std::optional<kc::deck::TapePlan> tape_plan() { return std::nullopt; }

    // Delivers posted messages until `done` holds or two minutes pass.
    bool wait_for(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (std::chrono::steady_clock::now() < deadline) {
            host.deliver();
            if (done()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    long frames_captured() {
        long count = -1;
        if (app->dropped->valid()) {
            (*app->dropped)->get_num_not_dropped(&count);
        }
        return count;
    }

    // Attaches the preview to the pane and runs it, as the main window does on opening.
    void show_preview() {
        app->win->attach(surfaces.pane, app->graph->graph.get());
        if (app->dv_vcr()) {
            app->dv->play();
        }
        app->win->run();
    }

    // Record on, at least `frames` frames captured, Record off.
    void record(long frames) {
        EXPECT_TRUE(app->toggle_recording());
        EXPECT_TRUE(app->recording);
        EXPECT_TRUE(wait_for([&] { return frames_captured() >= frames; }))
            << "frames captured: " << frames_captured();
        EXPECT_TRUE(app->toggle_recording());
        EXPECT_FALSE(app->recording);
    }

    // The small file system the small-disk test mounts and names in KC_SMALL_DISK, emptied
    // of what an earlier case left; none outside that test.
    static std::optional<fs::path> small_disk() {
        const char* path = std::getenv("KC_SMALL_DISK");
        if (path == nullptr) {
            return std::nullopt;
        }
        for (const auto& entry : fs::directory_iterator(path)) {
            fs::remove_all(entry.path());
        }
        return fs::path(path);
    }

    // The texts of the message and error dialogs shown so far.
    std::vector<std::string> shown_messages() const { return ::shown_messages(host); }

    // The capture files written (their logs lie beside them).
    std::vector<fs::path> files() { return files_in(dir.path()); }
    static std::vector<fs::path> files_in(const fs::path& folder) {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() == ".avi") {
                found.push_back(entry.path());
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    test::TempDir dir;
    Host host;
    Surface surfaces;
    PosixSystemServices system;
    FakeSettingsStore settings;
    std::unique_ptr<media::MediaFactory> factory;
    std::unique_ptr<CapPlatform> platform;
    std::unique_ptr<ScopedInstance> scoped;
    std::shared_ptr<kc::deck::VirtualVcr> demo;
    std::shared_ptr<kc::deck::VirtualVcr> vcr;
};

TEST_F(EndToEnd, StartUpFindsTheDeckInVcrModeAndPreviewsIntoThePane) {
    EXPECT_TRUE(app->source_is_dv);
    EXPECT_TRUE(app->dv_vcr());
    show_preview();
    EXPECT_TRUE(app->win->running());
    EXPECT_TRUE(wait_for([&] { return surfaces.presented() >= 10; }))
        << "frames presented: " << surfaces.presented();
    // The picture is scaled to the pane it was attached to.
    const Rect pane = host.get_client_rect(surfaces.pane);
    std::lock_guard guard(surfaces.lock);
    EXPECT_EQ(surfaces.width, pane.right - pane.left);
    EXPECT_EQ(surfaces.height, pane.bottom - pane.top);
}

// Record writes "<scene> NNN.avi"; type 1 carries one interleaved stream that ffprobe
// reads as DV video, type 2 a DV video and a PCM audio stream.
class Record : public EndToEnd, public ::testing::WithParamInterface<int> {};

TEST_P(Record, WritesAReadableFileOfTheFramesCaptured) {
    const int type2 = GetParam();
    show_preview();
    app->dv_type2 = type2;
    record(25);
    const auto written = files();
    ASSERT_EQ(written.size(), 1u);
    const fs::path file = written[0];
    EXPECT_EQ(file.filename().string(), "e2e 000.avi");

    auto probe = test::ffprobe(file);
    EXPECT_EQ(probe["streams.stream.0.codec_name"], "dvvideo");
    if (type2) {
        EXPECT_EQ(probe["streams.stream.1.codec_name"].substr(0, 4), "pcm_");
    }
    const long packets = test::count_packets(file, "v:0");
    EXPECT_GE(packets, 25);
    const double duration = test::number(probe["format.duration"]);
    EXPECT_GT(duration, 0.0);
    EXPECT_NEAR(duration, packets / 25.0, 0.2);
    EXPECT_EQ(test::decode_video_frames(file), packets);
    // Frame by frame: the tape's frames one after the other, none lost, and the log says so.
    const std::vector<std::int64_t> frames = tape_frames_of(file, vcr->tape());
    EXPECT_EQ(static_cast<long>(frames.size()), packets);
    EXPECT_TRUE(whole_or_counted(frames, logged_drops(file)));
    const std::string log = log_of(file);
    EXPECT_NE(log.find("\nframes: " + std::to_string(packets) + "\n"), std::string::npos) << log;
}

// Record a second time: the next number, and the deck's stream picked up again. The frame
// count starts again with each recording, so each file holds the frames counted for it.
TEST_F(EndToEnd, ASecondRecordingIsWrittenToTheNextNumber) {
    show_preview();
    record(25);
    record(25);
    const auto written = files();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[1].filename().string(), "e2e 001.avi");
    for (const fs::path& file : written) {
        SCOPED_TRACE(file.filename().string());
        const std::vector<std::int64_t> frames = tape_frames_of(file, vcr->tape());
        EXPECT_GE(frames.size(), 25u);
        EXPECT_TRUE(whole_or_counted(frames, logged_drops(file)));
    }
}

INSTANTIATE_TEST_SUITE_P(DvTypes, Record, ::testing::Values(0, 1),
                         [](const auto& info) { return info.param ? "Type2" : "Type1"; });

// The deck vanishing mid-capture reaches the main window as the graph's message, the
// graph reports the lost device, and the frames written so far stay readable.
TEST_F(EndToEnd, DeviceLostDuringARecordingReachesTheWindowAndKeepsTheFile) {
    show_preview();
    ASSERT_TRUE(app->toggle_recording());
    ASSERT_TRUE(wait_for([&] { return frames_captured() >= 25; }));
    graph_messages = 0;
    kc::deck::VcrFaults faults;
    faults.device_lost = true;
    vcr->set_faults(faults);

    std::vector<long> codes;
    ASSERT_TRUE(wait_for([&] {
        if (graph_messages == 0) {
            return false;
        }
        long code = 0;
        LParam p1 = 0, p2 = 0;
        media::MediaEvent* events = app->win->media_event();
        while (events != nullptr && events->get_event(&code, &p1, &p2, 0) == S_OK) {
            codes.push_back(code);
            events->free_event_params(code, p1, p2);
        }
        return std::find(codes.begin(), codes.end(), media::EC_DEVICE_LOST) != codes.end();
    })) << "graph messages: "
        << graph_messages << ", events: " << codes.size();

    // Ending the recording as the window does on the lost device finishes the file.
    try {
        app->win->stop();
        app->disconnect();
    } catch (ComError* e) {
        ADD_FAILURE() << "ending the recording failed";
        delete e;
    }
    vcr->set_faults({});
    const auto written = files();
    ASSERT_EQ(written.size(), 1u);
    const fs::path file = written[0];
    auto probe = test::ffprobe(file);
    EXPECT_EQ(probe["streams.stream.0.codec_name"], "dvvideo");
    EXPECT_GE(test::count_packets(file, "v:0"), 25);
}

// Frames lost between the tape and the file are counted where they were lost and
// located in the file's log: three dropped by the deck (as a busy bus drops them), and
// those the deck gave away while its streaming thread was held up. The file holds every
// other frame once, in order, and the frames missing from it are exactly those counted.
TEST_F(EndToEnd, DropsFromTheDeckAndFromAStarvedStreamAreCountedAndLogged) {
    show_preview();
    ASSERT_TRUE(app->toggle_recording());
    ASSERT_TRUE(wait_for([&] { return frames_captured() >= 10; }));
    vcr->drop_next_frames(3);
    ASSERT_TRUE(wait_for([&] { return frames_captured() >= 20; }));

    GstElement* pipeline = static_cast<kc::gst::detail::Graph*>(app->graph->graph.get())->pipeline;
    GstElement* deck = nullptr;
    GstIterator* it = gst_bin_iterate_recurse(GST_BIN(pipeline));
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(it, &item) == GST_ITERATOR_OK) {
        auto* element = GST_ELEMENT(g_value_get_object(&item));
        if (g_strcmp0(G_OBJECT_TYPE_NAME(element), "KcDeckSrc") == 0) {
            deck = GST_ELEMENT(gst_object_ref(element));
        }
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(it);
    ASSERT_NE(deck, nullptr);
    static std::atomic<bool> held;
    held = false;
    GstPad* src = gst_element_get_static_pad(deck, "src");
    const gulong probe = gst_pad_add_probe(
        src, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer) {
            if (!held.exchange(true)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(400));
            }
            return GST_PAD_PROBE_OK;
        },
        nullptr, nullptr);
    const long before = frames_captured();
    ASSERT_TRUE(wait_for([&] { return held && frames_captured() >= before + 20; }));
    gst_pad_remove_probe(src, probe);
    gst_object_unref(src);
    gst_object_unref(deck);
    long counted = -1;
    (*app->dropped)->get_num_dropped(&counted);
    ASSERT_TRUE(app->toggle_recording());

    const auto written = files();
    ASSERT_EQ(written.size(), 1u);
    const std::vector<std::int64_t> frames = tape_frames_of(written[0], vcr->tape());
    ASSERT_GE(frames.size(), 40u);
    std::int64_t missing = 0;
    std::vector<std::int64_t> runs;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        ASSERT_GT(frames[i], frames[i - 1]) << "no frame twice, none out of order";
        if (frames[i] > frames[i - 1] + 1) {
            runs.push_back(frames[i] - frames[i - 1] - 1);
            missing += runs.back();
        }
    }
    ASSERT_GE(runs.size(), 2u);
    EXPECT_EQ(runs.front(), 3) << "the deck's three dropped frames";
    EXPECT_GE(runs[1], 5) << "a 400 ms stall at 25 frames a second";
    EXPECT_GE(counted, runs[0] + runs[1]) << "counted while the capture ran";
    EXPECT_LE(counted, missing);
    const std::string log = log_of(written[0]);
    EXPECT_NE(log.find("\ndropped frames: " + std::to_string(missing) + "\n"), std::string::npos)
        << log;
    std::size_t logged_runs = 0;
    for (std::size_t at = log.find("\ndropped: "); at != std::string::npos;
         at = log.find("\ndropped: ", at + 1)) {
        ++logged_runs;
    }
    EXPECT_EQ(logged_runs, runs.size()) << log;
    EXPECT_NE(log.find("\ndropped: 3 frames, "), std::string::npos) << log;
    EXPECT_NE(log.find(", lost by the source\n"), std::string::npos) << log;
}

// A recording onto a disk that fills up (a small file system of its own, which the test
// command mounts and names in KC_SMALL_DISK): the main window's one-second disk check stops
// it with the low-disk warning, nothing crashes, the file holds every frame it took, in
// order, readable to the last, and the frames that no longer fitted are counted.
TEST_F(EndToEnd, ARecordingThatFillsTheDiskStopsWithTheWarningAndStaysReadable) {
    const auto small = small_disk();
    if (!small) {
        GTEST_SKIP() << "run by the small-disk test, which mounts a small file system";
    }
    app->output_directory = small->string();
    show_preview();
    ASSERT_TRUE(app->toggle_recording());
    bool warned = false;
    const bool stopped = wait_for([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
        app->update_disk_space();
        app->low_disk_check(warned);
        return !app->recording;
    });
    ASSERT_TRUE(stopped) << "free: " << app->free_bytes;
    EXPECT_EQ(shown_messages(),
              std::vector<std::string>{"Warning: low disk space on output directory (10)"});

    const auto written = files_in(*small);
    ASSERT_EQ(written.size(), 1u);
    const std::vector<std::int64_t> frames = tape_frames_of(written[0], vcr->tape());
    ASSERT_GE(frames.size(), 25u);
    EXPECT_TRUE(whole_or_counted(frames, lost_before_the_end(written[0])));
    EXPECT_EQ(test::decode_video_frames(written[0]), static_cast<long>(frames.size()));
    const std::string log = log_of(written[0]);
    EXPECT_NE(log.find("\nframes: " + std::to_string(frames.size()) + "\n"), std::string::npos)
        << log;
    EXPECT_GT(logged_drops(written[0]), 0) << log;
    EXPECT_NE(log.find(", not written (the file could not take it)\n"), std::string::npos) << log;
    // The tape is left stopped; the preview graph runs again, as the main window restarts it.
    EXPECT_EQ(vcr->state().mode, kc::deck::TransportMode::stop);
    app->win->attach(surfaces.pane, app->graph->graph.get());
    app->win->run();
    EXPECT_TRUE(app->win->running());
}

// Three logged scenes, one in each recording of the demo tape, captured with a preroll of
// ten frames from wherever the tape stands: before the first scene, inside the second, or
// past them all. The seek to each scene returns when the tape is there, so each file is
// named after its scene and holds its frames in order from within the preroll to just past
// its out point, and the progress climbs to the end.
class Batch : public EndToEnd, public ::testing::WithParamInterface<std::int64_t> {};

TEST_P(Batch, ThreeScenesWithPrerollEachGoIntoTheirOwnFileFromWhereverTheTapeStands) {
    const kc::deck::TapeImage& tape = vcr->tape();
    const int preroll_frames = 10;
    app->dv_type2 = 1;
    app->preroll = preroll_frames * tape.tracks_per_frame();
    const std::int64_t in_points[] = {50, 260, 470};
    const std::int64_t scene_frames = 30;
    for (const std::int64_t in : in_points) {
        Timecode position;
        position.track = static_cast<std::int32_t>(tape.track_of_frame(in));
        app->add_job(position);
        position.track = static_cast<std::int32_t>(tape.track_of_frame(in + scene_frames));
        ASSERT_TRUE(app->set_out_point(position));
    }
    app->apply_preroll();
    app->dv->seek(static_cast<long>(tape.track_of_frame(GetParam())));
    ASSERT_EQ(vcr->state().frame(), GetParam()) << "the seek returned with the tape there";

    Progress progress;
    progress.preview_window = surfaces.pane;
    app->start_batch(&progress);
    ASSERT_TRUE(app->inbatch);
    // The batch dialog's timer: every 250 ms the tape's track moves the batch on. The
    // frames the tape moved in the step that ended each scene bound how far past its out
    // point the file may run.
    std::vector<std::int64_t> ending_step;
    std::int64_t last_frame = -1;
    std::size_t scene = 0;
    const bool finished = wait_for([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(230));
        Timecode position;
        if (!app->dv->attached() || !app->dv->get_timecode(position)) {
            return false;
        }
        const std::int64_t frame = tape.frame_of_track(position.track);
        const bool ends_scene =
            scene < std::size(in_points) && frame > in_points[scene] + scene_frames;
        if (ends_scene) {
            ending_step.push_back(last_frame < 0 ? frame : frame - last_frame);
            ++scene;
        }
        last_frame = frame;
        return !app->batch_step(static_cast<std::uint32_t>(position.track));
    });
    ASSERT_TRUE(finished);
    EXPECT_FALSE(app->inbatch);
    ASSERT_EQ(ending_step.size(), 3u);
    ASSERT_FALSE(progress.fractions.empty());
    EXPECT_GT(progress.fractions.back(), 0.6f);

    const auto written = files();
    ASSERT_EQ(written.size(), 3u);
    for (std::size_t i = 0; i < written.size(); ++i) {
        SCOPED_TRACE(written[i].filename().string());
        EXPECT_EQ(written[i].filename().string(), "e2e 00" + std::to_string(i + 1) + ".avi");
        const std::vector<std::int64_t> frames = tape_frames_of(written[i], tape);
        ASSERT_FALSE(frames.empty());
        EXPECT_TRUE(whole_or_counted(frames, logged_drops(written[i])));
        const std::int64_t capture_start = in_points[i] - preroll_frames;
        const std::int64_t out_point = in_points[i] + scene_frames;
        // The tape rolls before the graph takes its first frame; the preroll is there so
        // that this happens before the in point.
        EXPECT_GE(frames.front(), capture_start);
        EXPECT_LE(frames.front(), in_points[i]);
        EXPECT_GT(frames.back(), out_point);
        EXPECT_LE(frames.back(), out_point + ending_step[i] + 2)
            << "the step that ended the scene moved " << ending_step[i] << " frames";
        EXPECT_EQ(test::count_packets(written[i], "v:0"), static_cast<long>(frames.size()));
        EXPECT_NE(log_of(written[i]).find("\nframes: " + std::to_string(frames.size()) + "\n"),
                  std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(StartingPositions, Batch, ::testing::Values(0, 270, 590),
                         [](const auto& info) {
                             return info.param == 0     ? std::string("BeforeTheScenes")
                                    : info.param == 270 ? std::string("InsideTheSecond")
                                                        : std::string("FarPastThemAll");
                         });

// A tape of four recordings: the second jumps forward in timecode, the third steps back,
// the fourth continues the third's timecode with its first frames flagged.
class SceneTape : public EndToEnd {
  protected:
    std::optional<kc::deck::TapePlan> tape_plan() override {
        using kc::deck::Recording;
        kc::deck::TapePlan plan;
        plan.recordings = {
            Recording{"One", {0, 10, 0, 0}, 70, 0, 440, {2004, 7, 17, 10, 0, 0}},
            Recording{"Two", {1, 0, 0, 0}, 70, 0, 550, {2004, 7, 17, 11, 0, 0}},
            Recording{"Three", {0, 5, 0, 0}, 70, 0, 660, {2004, 7, 18, 9, 0, 0}},
            Recording{"Four", {0, 5, 2, 20}, 70, 6, 770, {2004, 7, 18, 9, 30, 0}},
        };
        return plan;
    }

    // A scene-detection capture from tape frame `from`, driven as the dialog's timer drives
    // it, but ticking every six frames of tape time (as long as the flagged run), so that a
    // late tick on a busy machine does not step over the flag. False when it did not end
    // by itself within two minutes. `tick` runs before every step, as the main window's
    // timers do while the dialog is up.
    bool capture_scenes_from(std::int64_t from, const std::function<void()>& tick = {}) {
        app->dv->seek(static_cast<long>(vcr->tape().track_of_frame(from)));
        Progress dialog;
        dialog.preview_window = surfaces.pane;
        std::string file;
        app->start_scene_capture(&dialog, file);
        EXPECT_TRUE(app->inbatch);
        std::int64_t ticked = vcr->state().frame();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        bool going = true;
        while (going && std::chrono::steady_clock::now() < deadline) {
            host.deliver();
            const kc::deck::VcrState state = vcr->state();
            if (state.frame() < ticked + 6 && state.mode == kc::deck::TransportMode::play) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            ticked = state.frame();
            if (tick) {
                tick();
            }
            Timecode position;
            if (app->dv->get_timecode(position)) {
                going = app->scene_step(position, file);
            }
        }
        EXPECT_TRUE(dialog.fractions.empty()) << "scene detection reports no progress";
        // The dialog's end: the device back and the preview rebuilt.
        app->connect();
        app->build_preview();
        return !going;
    }
};

// Scene detection over the whole tape: one file per recording, each after the first
// beginning with its recording's first frame, each ending with its recording's last frame,
// every tape frame from the first captured to the last in exactly one file, and the
// capture ending by itself where the tape stops. Each file's log tells where it begins
// and ends and why.
TEST_F(SceneTape, SceneDetectionPutsEveryFrameOnceIntoOneFilePerRecordingAndEndsWithTheTape) {
    const kc::deck::TapeImage& tape = vcr->tape();
    const auto sections = tape.sections();
    ASSERT_EQ(sections.size(), 5u) << "four recordings, the last with a flagged start";
    app->dv_type2 = 1;

    ASSERT_TRUE(capture_scenes_from(tape.frame_count() - 1)) << "the capture did not end";
    EXPECT_TRUE(files().empty()) << "a file of fewer than two frames goes, with its log";

    ASSERT_TRUE(capture_scenes_from(0)) << "the capture did not end with the tape";
    const auto written = files();
    ASSERT_EQ(written.size(), 4u) << "one file per recording";
    std::vector<std::int64_t> all;
    std::int64_t counted = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const fs::path file = written[i];
        SCOPED_TRACE(file.filename().string());
        EXPECT_EQ(file.filename().string(), "e2e 000 " + std::to_string(i + 1) + ".avi");
        const std::vector<std::int64_t> frames = tape_frames_of(file, tape);
        ASSERT_FALSE(frames.empty());
        const std::int64_t first = 70 * static_cast<std::int64_t>(i);
        // Split exactly: no frame of another recording in this file. A loaded machine may
        // lose frames at the deck right at a break; they are counted in the file after it.
        if (i > 0) {
            EXPECT_GE(frames.front(), first) << "the recording's first frame";
            EXPECT_LE(frames.front(), first + logged_drops(file)) << "the recording's first frame";
        }
        EXPECT_LE(frames.back(), first + 69) << "the recording's last frame";
        if (i < 3) {
            EXPECT_GE(frames.back(), first + 69 - logged_drops(written[i + 1]))
                << "the recording's last frame";
        }
        all.insert(all.end(), frames.begin(), frames.end());

        const std::string log = log_of(file);
        EXPECT_NE(log.find("\nsource: Virtual DV deck (tape.dv)"), std::string::npos) << log;
        EXPECT_NE(log.find("\nframes: " + std::to_string(frames.size()) + "\n"), std::string::npos);
        counted += logged_drops(file);
        if (i < 3) {
            EXPECT_NE(log.find("the file ends here and the next begins"), std::string::npos) << log;
        }
        if (i > 0) {
            EXPECT_NE(log.find("(the recording break the previous file ended at)"),
                      std::string::npos)
                << log;
        }
    }
    ASSERT_FALSE(all.empty());
    EXPECT_TRUE(whole_or_counted(all, counted)) << "every frame once, in order";
    EXPECT_EQ(all.back(), tape.frame_count() - 1);
    const std::string last_log = log_of(written[3]);
    EXPECT_NE(last_log.find("\nlast frame: 00:05:05:14, track 3348, recorded 2004-07-18 09:30:02"),
              std::string::npos)
        << last_log;
}

// Scene detection onto a small file system that fills up just after the first split:
// the disk check (the main window's timer, which runs while the dialog is up) ends the
// capture at its next step with the low-disk warning; the first file holds its whole
// recording, and the second every frame it took, in order, readable to the last.
TEST_F(SceneTape, ASceneCaptureThatFillsTheDiskEndsWithTheWarningAndKeepsEveryFileWhole) {
    const auto small = small_disk();
    if (!small) {
        GTEST_SKIP() << "run by the small-disk test, which mounts a small file system";
    }
    app->output_directory = small->string();
    app->dv_type2 = 1;
    bool warned = false;
    auto last_check = std::chrono::steady_clock::now();
    ASSERT_TRUE(capture_scenes_from(0, [&] {
        if (std::chrono::steady_clock::now() - last_check >= std::chrono::seconds(1)) {
            last_check = std::chrono::steady_clock::now();
            app->update_disk_space();
            app->low_disk_check(warned);
        }
    }));
    EXPECT_TRUE(warned);
    EXPECT_EQ(shown_messages(),
              std::vector<std::string>{"Warning: low disk space on output directory (10)"});
    const auto written = files_in(*small);
    ASSERT_GE(written.size(), 2u);
    const std::vector<std::int64_t> first = tape_frames_of(written[0], vcr->tape());
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first.back(), 69) << "the first recording's last frame";
    EXPECT_TRUE(whole_or_counted(first, logged_drops(written[0])));
    const std::vector<std::int64_t> second = tape_frames_of(written[1], vcr->tape());
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(second.front(), 70) << "the second recording's first frame";
    EXPECT_TRUE(whole_or_counted(second, 0));
    EXPECT_EQ(test::decode_video_frames(written[1]), static_cast<long>(second.size()));
    EXPECT_NE(log_of(written[1]).find("\nframes: " + std::to_string(second.size()) + "\n"),
              std::string::npos)
        << log_of(written[1]);
}

}  // namespace
