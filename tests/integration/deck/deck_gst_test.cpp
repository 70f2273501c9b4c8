#include <gst/gst.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "deck/dv_terms.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/deck_source.h"
#include "deck/gst/tape_writer.h"
#include "deck/tape_image.h"
#include "deck/vcr_control.h"
#include "tests/unit/workflow/temp_dir.h"

namespace kc::deck {
namespace {

namespace fs = std::filesystem;

std::string run(const std::string& command) {
    std::string out;
    if (FILE* p = ::popen(command.c_str(), "r")) {
        char buf[4096];
        while (std::fgets(buf, sizeof buf, p) != nullptr) {
            out += buf;
        }
        ::pclose(p);
    }
    return out;
}

class DeckGst : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
    // Every test starts with a PAL tape of plan() in a folder of its own.
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(write_tape(plan(DvSystem::pal_625_50), tape_, error)) << error;
    }

    // Two short recordings with a timecode break, the second one's start flagged.
    TapePlan plan(DvSystem system) {
        TapePlan p;
        p.system = system;
        p.recordings = {Recording{"One", {0, 10, 0, 0}, 20, 0, 440},
                        Recording{"Two", {1, 0, 0, 0}, 15, 4, 660}};
        return p;
    }

    std::shared_ptr<VirtualVcr> deck(const fs::path& tape_path) {
        std::error_code ec;
        auto tape = TapeImage::open(tape_path, TapeAccess::mapped, ec);
        EXPECT_TRUE(tape) << ec.message();
        return make_vcr(tape, std::make_shared<SteadyClock>(), VcrOptions{30, 10, Pacing::unpaced});
    }

    static void on_pad(GstElement*, GstPad* pad, gpointer queue) {
        if (std::string(GST_PAD_NAME(pad)) == "video") {
            GstPad* sink = gst_element_get_static_pad(GST_ELEMENT(queue), "sink");
            gst_pad_link(pad, sink);
            gst_object_unref(sink);
        }
    }

    // Runs `source ! tail` to the end (tail "demux": a DV demultiplexer and decoder); the
    // error's text, or empty at EOS.
    static std::string play(GstElement* source, const std::string& tail) {
        GstElement* pipeline = gst_pipeline_new(nullptr);
        gst_bin_add(GST_BIN(pipeline), source);
        if (tail == "demux") {
            GstElement* demux = gst_element_factory_make("dvdemux", nullptr);
            GstElement* queue = gst_element_factory_make("queue", nullptr);
            GstElement* dec = gst_element_factory_make("dvdec", nullptr);
            GstElement* sink = gst_element_factory_make("fakesink", nullptr);
            gst_bin_add_many(GST_BIN(pipeline), demux, queue, dec, sink, nullptr);
            EXPECT_TRUE(gst_element_link(source, demux));
            EXPECT_TRUE(gst_element_link_many(queue, dec, sink, nullptr));
            g_signal_connect(demux, "pad-added", G_CALLBACK(on_pad), queue);
        } else {
            GError* err = nullptr;
            GstElement* rest = gst_parse_bin_from_description(tail.c_str(), TRUE, &err);
            EXPECT_NE(rest, nullptr) << (err ? err->message : "");
            gst_bin_add(GST_BIN(pipeline), rest);
            EXPECT_TRUE(gst_element_link(source, rest));
        }
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        GstBus* bus = gst_element_get_bus(pipeline);
        GstMessage* msg = gst_bus_timed_pop_filtered(
            bus, GST_CLOCK_TIME_NONE,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        std::string result;
        if (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR) {
            GError* e = nullptr;
            gst_message_parse_error(msg, &e, nullptr);
            result = e->message;
            EXPECT_TRUE(g_error_matches(e, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND));
            g_clear_error(&e);
        }
        gst_message_unref(msg);
        gst_object_unref(bus);
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        return result;
    }

    TempDir tmp_;
    fs::path dir_{tmp_.path()};
    fs::path tape_{dir_ / "tape.dv"};
};

TEST_F(DeckGst, GeneratedTapesCarryThePlannedTimecodeForFfprobeAndTheDeck) {
    for (DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        const TapePlan p = plan(system);
        const fs::path path = dir_ / "tape.dv";
        std::string error;
        ASSERT_TRUE(write_tape(p, path, error)) << error;
        EXPECT_EQ(fs::file_size(path), 35 * frame_bytes(system));
        const std::string probe =
            run("ffprobe -v error -count_frames -show_entries "
                "stream=codec_name,nb_read_frames:format_tags=timecode "
                "-of default=nw=1 '" +
                path.string() + "'");
        EXPECT_NE(probe.find("codec_name=dvvideo"), std::string::npos) << probe;
        EXPECT_NE(probe.find("codec_name=pcm_s16le"), std::string::npos) << "the tone" << probe;
        EXPECT_NE(probe.find("nb_read_frames=35"), std::string::npos) << probe;
        EXPECT_NE(probe.find(system == DvSystem::pal_625_50 ? "00:10:00:00" : "00:10:00;00"),
                  std::string::npos)
            << probe;

        std::error_code ec;
        auto tape = TapeImage::open(path, TapeAccess::mapped, ec);
        ASSERT_TRUE(tape) << ec.message();
        ASSERT_EQ(tape->frame_count(), 35);
        for (std::int64_t n : {0, 19, 20, 23, 24, 34}) {
            const PlannedFrame planned = plan_frame(p, n);
            ASSERT_TRUE(tape->frame(n).timecode) << n;
            EXPECT_EQ(*tape->frame(n).timecode, to_bcd_word(planned.timecode)) << n;
            EXPECT_EQ(tape->frame(n).user_flag(), n >= 20 && n < 24) << n;
        }
    }
}

TEST_F(DeckGst, WritingToAMissingFolderFailsWithAClearErrorAndLeavesNothing) {
    std::string error;
    EXPECT_FALSE(write_tape(plan(DvSystem::pal_625_50), dir_ / "no" / "tape.dv", error));
    EXPECT_NE(error.find("Cannot create"), std::string::npos) << error;
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), {}), 1) << "only the set-up's tape";
}

TEST_F(DeckGst, UnpacedSourcePlaysTheWholeTapeThroughTheDvDemultiplexer) {
    auto vcr = deck(tape_);
    ASSERT_EQ(vcr->set_mode(static_cast<long>(TransportMode::play)), S_OK);
    const fs::path copy = dir_ / "out.dv";
    EXPECT_EQ(play(make_deck_source(vcr), "demux"), "");
    ASSERT_EQ(vcr->set_mode(static_cast<long>(TransportMode::stop)), S_OK);
    vcr->seek_track(0);
    while (vcr->state().seeking) {
        ::usleep(1000);
    }
    vcr->set_mode(static_cast<long>(TransportMode::play));
    EXPECT_EQ(play(make_deck_source(vcr), "filesink location=" + copy.string()), "");
    EXPECT_EQ(fs::file_size(copy), fs::file_size(tape_)) << "every frame once, none dropped";
    EXPECT_EQ(vcr->counters().dropped, 0);
}

TEST_F(DeckGst, TheDeviceDisappearingPostsAResourceError) {
    auto vcr = deck(tape_);
    vcr->set_mode(static_cast<long>(TransportMode::play));
    vcr->set_faults(VcrFaults{true, false, false, 0});
    const std::string message = play(make_deck_source(vcr), "fakesink");
    EXPECT_NE(message.find("disconnected"), std::string::npos) << message;
}

struct Seen {
    std::mutex mutex;
    std::vector<std::vector<std::uint8_t>> frames;
};

void on_handoff(GstElement*, GstBuffer* buffer, GstPad*, gpointer data) {
    auto* seen = static_cast<Seen*>(data);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_READ);
    std::lock_guard lock(seen->mutex);
    seen->frames.emplace_back(map.data, map.data + map.size);
    gst_buffer_unmap(buffer, &map);
}

TEST_F(DeckGst, PacedPauseRepeatsTheStillFrameAsTheClockRuns) {
    std::error_code ec;
    auto clock = std::make_shared<ManualClock>();
    auto vcr = make_vcr(TapeImage::open(tape_, TapeAccess::mapped, ec), clock);
    vcr->seek_track(5 * 12);  // arrives at once: no clock time passes
    clock->advance_ms(1000);
    ASSERT_EQ(vcr->state().mode, TransportMode::freeze);

    Seen seen;
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* source = make_deck_source(vcr);
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "signal-handoffs", TRUE, "sync", FALSE, nullptr);
    g_signal_connect(sink, "handoff", G_CALLBACK(on_handoff), &seen);
    gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
    ASSERT_TRUE(gst_element_link(source, sink));
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (;;) {
        clock->advance_ms(40);
        ::usleep(2000);
        std::lock_guard lock(seen.mutex);
        if (seen.frames.size() >= 5) {
            break;
        }
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    std::vector<std::uint8_t> fifth(frame_bytes(DvSystem::pal_625_50));
    ASSERT_TRUE(vcr->tape().read_frame(5, fifth));
    for (const auto& frame : seen.frames) {
        EXPECT_EQ(frame, fifth);
    }
}

TEST_F(DeckGst, DemoTapeIsMadeOnceInTheCacheAndBadImagesGiveClearErrors) {
    ::setenv("XDG_CACHE_HOME", dir_.c_str(), 1);
    std::string error;
    auto vcr = open_virtual_deck("demo", true, error);
    ASSERT_TRUE(vcr) << error;
    const fs::path cached = dir_ / "kestrel-capture" / "demo-pal.dv";
    ASSERT_TRUE(fs::exists(cached));
    const auto written = fs::last_write_time(cached);
    EXPECT_EQ(vcr->system(), DvSystem::pal_625_50);
    // Three recordings; the second starts with a timecode jump.
    const TapeImage& tape = vcr->tape();
    const std::int64_t per = tape.frame_count() / 3;
    EXPECT_EQ(*tape.frame(0).timecode, 0x00100000u);
    EXPECT_EQ(*tape.frame(per).timecode, 0x01254000u);
    EXPECT_TRUE(tape.frame(2 * per).user_flag());
    EXPECT_FALSE(tape.frame(2 * per - 1).user_flag());
    ASSERT_TRUE(open_virtual_deck("demo", true, error)) << error;
    EXPECT_EQ(fs::last_write_time(cached), written) << "the second start reuses the tape";
    auto ntsc = open_virtual_deck("demo-ntsc", true, error);
    ASSERT_TRUE(ntsc) << error;
    EXPECT_EQ(ntsc->system(), DvSystem::ntsc_525_60);

    EXPECT_FALSE(open_virtual_deck((dir_ / "missing.dv").string(), true, error));
    EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
    const fs::path text = dir_ / "notes.txt";
    std::ofstream(text) << "not a tape";
    EXPECT_FALSE(open_virtual_deck(text.string(), true, error));
    EXPECT_NE(error.find("no DV frames"), std::string::npos) << error;
    ::unsetenv("XDG_CACHE_HOME");
}

}  // namespace
}  // namespace kc::deck
