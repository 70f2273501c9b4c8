#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "platform/gst/avi/dv_frame.h"
#include "tests/integration/gst/gst_test_support.h"
#include "tests/unit/avi/riff_reader.h"

namespace kc::gst::test {
namespace {

namespace fs = std::filesystem;
using avi::DvSystem;
using avi::test::AviHeader;
using avi::test::Chunk;
using avi::test::fourcc_at;
using avi::test::le32;

constexpr int tape_frames = 50;

AviHeader read_header(const fs::path& file) {
    return avi::test::read_avi(read_file(file));
}

class AviSinkTest : public ::testing::Test {
  protected:
    void SetUp() override {
        init_gstreamer();
        for (const char* element : {"avenc_dvvideo", "avmux_dv", "dvdemux", "identity"}) {
            if (!has_element(element)) {
                GTEST_SKIP() << element << " is missing (scripts/install-deps.sh installs it)";
            }
        }
    }

    // A tape of this test's own, made on first use.
    const fs::path& tape(DvSystem system) {
        auto& path = system == DvSystem::pal_625_50 ? pal_tape_ : ntsc_tape_;
        if (path.empty()) {
            path = dir_ / (system == DvSystem::pal_625_50 ? "pal.dv" : "ntsc.dv");
            if (!make_dv_tape(path, system, tape_frames)) {
                ADD_FAILURE() << "could not make the test tape " << path;
            }
        }
        return path;
    }

    static std::string type2_pipeline(const fs::path& tape, const fs::path& out,
                                      const std::string& video_extra = "",
                                      const std::string& sink_extra = "") {
        std::ostringstream d;
        d << "filesrc location=\"" << tape.string() << "\" ! dvdemux name=demux "
          << "demux.video ! queue ! " << video_extra << "avisink.video_0 "
          << "demux.audio ! queue ! avisink.audio_0 "
          << "kestrelavisink name=avisink location=\"" << out.string() << "\" " << sink_extra;
        return d.str();
    }

    // A type 1 capture of `in`; `source_extra` goes on after the file source's location.
    static std::string type1_pipeline(const fs::path& in, const fs::path& out,
                                      const std::string& source_extra = "") {
        return "filesrc location=\"" + in.string() + "\" " + source_extra +
               " ! video/x-dv,systemstream=true ! kestrelavisink name=avisink location=\"" +
               out.string() + "\"";
    }

    // What readers see in a whole capture of the tape, whatever its type: DV video and the
    // tape's 48 kHz stereo sound, every frame there and decodable. Returns ffprobe's view.
    std::map<std::string, std::string> expect_whole_tape(const fs::path& out, bool pal) {
        auto p = ffprobe(out);
        EXPECT_EQ(p["format.nb_streams"], "2") << "type 1 is split into video and audio too";
        EXPECT_EQ(p["streams.stream.0.codec_name"], "dvvideo");
        EXPECT_EQ(p["streams.stream.0.height"], pal ? "576" : "480");
        EXPECT_EQ(p["streams.stream.0.r_frame_rate"], pal ? "25/1" : "30000/1001");
        EXPECT_EQ(p["streams.stream.1.codec_name"], "pcm_s16le");
        EXPECT_EQ(p["streams.stream.1.sample_rate"], "48000");
        EXPECT_EQ(p["streams.stream.1.channels"], "2");
        EXPECT_NEAR(number(p["format.duration"]), tape_frames * (pal ? 0.04 : 1001.0 / 30000),
                    0.001);
        EXPECT_EQ(count_packets(out, "v:0"), tape_frames);
        EXPECT_EQ(decode_video_frames(out), tape_frames);
        return p;
    }

    TempDir dir_;
    fs::path pal_tape_;
    fs::path ntsc_tape_;
};

TEST_F(AviSinkTest, Type1FileIsOneDvStreamThatFfprobeReadsCompletely) {
    for (const DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        const bool pal = system == DvSystem::pal_625_50;
        SCOPED_TRACE(pal ? "PAL" : "NTSC");
        const fs::path out = dir_ / (pal ? "type1-pal.avi" : "type1-ntsc.avi");
        // An odd block size: the element cuts the byte stream into frames itself.
        const RunResult r = run_pipeline(type1_pipeline(tape(system), out, "blocksize=50000"));
        ASSERT_TRUE(r.eos) << r.error;
        EXPECT_EQ(r.frames, static_cast<guint64>(tape_frames));
        auto p = expect_whole_tape(out, pal);
        EXPECT_EQ(p["format.format_name"], "avi");
        EXPECT_EQ(p["streams.stream.0.width"], "720");

        const AviHeader h = read_header(out);
        ASSERT_EQ(h.streams.size(), 1u);
        EXPECT_EQ(h.streams[0].type, "iavs");
        EXPECT_EQ(h.streams[0].handler, "dvsd");
        EXPECT_EQ(h.streams[0].length, static_cast<std::uint32_t>(tape_frames));
        // DVINFO carries the packs of the tape's own first frame.
        const auto tape_bytes = read_file(tape(system));
        const auto info =
            avi::inspect_dv_frame(std::span(tape_bytes).first(avi::dv_frame_bytes(system)));
        ASSERT_TRUE(info);
        ASSERT_EQ(h.streams[0].strf.size(), 32u);
        EXPECT_NE(info->dvinfo.aaux_src, 0u);
        EXPECT_EQ(le32(h.streams[0].strf, 0), info->dvinfo.aaux_src);
        EXPECT_EQ(le32(h.streams[0].strf, 4), info->dvinfo.aaux_ctl);
        EXPECT_EQ(le32(h.streams[0].strf, 16), info->dvinfo.vaux_src);
        EXPECT_EQ(le32(h.streams[0].strf, 20), info->dvinfo.vaux_ctl);
    }
}

TEST_F(AviSinkTest, Type2FileHasDvsdVideoAndPcmAudioInEveryInterleaveMode) {
    struct Case {
        DvSystem system;
        const char* interleave;
    };
    for (const Case c :
         {Case{DvSystem::pal_625_50, "none"}, Case{DvSystem::pal_625_50, "capture"},
          Case{DvSystem::pal_625_50, "full"}, Case{DvSystem::ntsc_525_60, "capture"}}) {
        const bool pal = c.system == DvSystem::pal_625_50;
        SCOPED_TRACE(std::string(pal ? "PAL " : "NTSC ") + c.interleave);
        const fs::path out =
            dir_ / (std::string("type2-") + (pal ? "pal-" : "ntsc-") + c.interleave + ".avi");
        const RunResult r = run_pipeline(
            type2_pipeline(tape(c.system), out, "", std::string("interleave=") + c.interleave));
        ASSERT_TRUE(r.eos) << r.error;
        EXPECT_EQ(r.frames, static_cast<guint64>(tape_frames));

        auto p = expect_whole_tape(out, pal);
        EXPECT_EQ(p["streams.stream.0.codec_type"], "video");
        EXPECT_EQ(p["streams.stream.0.codec_tag_string"], "dvsd");
        EXPECT_EQ(p["streams.stream.0.nb_frames"], std::to_string(tape_frames));
        EXPECT_EQ(p["streams.stream.1.codec_type"], "audio");
        EXPECT_EQ(p["streams.stream.1.codec_tag_string"], "[1][0][0][0]");
        EXPECT_EQ(p["streams.stream.1.sample_fmt"], "s16");
        const double seconds = tape_frames * (pal ? 0.04 : 1001.0 / 30000);

        const AviHeader h = read_header(out);
        ASSERT_EQ(h.streams.size(), 2u);
        EXPECT_EQ(h.streams[0].type, "vids");
        EXPECT_EQ(h.streams[0].handler, "dvsd");
        ASSERT_GE(h.streams[0].strf.size(), 40u);
        EXPECT_EQ(fourcc_at(h.streams[0].strf, 16), "dvsd") << "biCompression";
        EXPECT_EQ(h.streams[1].type, "auds");
        // All the audio dvdemux took out of the frames, to within one frame's worth.
        EXPECT_NEAR(h.streams[1].length, seconds * 48000, 1602);
        if (std::string(c.interleave) != "none") {
            // Ordered by time: each frame's video chunk with its audio chunk beside it.
            const Chunk* movi = h.top[0].child("LIST", "movi");
            ASSERT_TRUE(movi);
            std::size_t pairs = 0;
            for (std::size_t i = 0; i + 1 < movi->children.size(); i += 2) {
                pairs += movi->children[i].id != movi->children[i + 1].id ? 1 : 0;
            }
            EXPECT_GE(pairs, static_cast<std::size_t>(tape_frames - 1));
        }
    }
}

TEST_F(AviSinkTest, SourceErrorMidStreamLeavesAFinishedFileWithEveryFrameBeforeIt) {
    const fs::path type1 = dir_ / "cut-type1.avi";
    const RunResult r1 = run_pipeline(type1_pipeline(
        tape(DvSystem::pal_625_50), type1, "blocksize=144000 ! identity name=cut error-after=20"));
    EXPECT_FALSE(r1.eos);
    EXPECT_EQ(r1.error_source, "cut") << r1.error;
    EXPECT_EQ(r1.frames, 19u) << "the 20th buffer is the failing one";
    EXPECT_EQ(count_packets(type1, "v:0"), 19);
    EXPECT_EQ(decode_video_frames(type1), 19);
    const AviHeader h1 = read_header(type1);
    ASSERT_EQ(h1.streams.size(), 1u);
    EXPECT_EQ(h1.streams[0].length, 19u);
    EXPECT_EQ(h1.flags & 0x10, 0x10u) << "stopping finished the file with its index";

    const fs::path type2 = dir_ / "cut-type2.avi";
    const RunResult r2 = run_pipeline(
        type2_pipeline(tape(DvSystem::pal_625_50), type2, "identity name=cut error-after=30 ! "));
    EXPECT_FALSE(r2.eos);
    EXPECT_EQ(r2.error_source, "cut") << r2.error;
    EXPECT_EQ(r2.frames, 29u);
    EXPECT_EQ(count_packets(type2, "v:0"), 29);
    EXPECT_EQ(decode_video_frames(type2), 29);
    EXPECT_GT(count_packets(type2, "a:0"), 0);
    auto p = ffprobe(type2);
    EXPECT_EQ(p["streams.stream.0.nb_frames"], "29");
}

TEST_F(AviSinkTest, CaptureStoppedWithoutEosIsFinished) {
    // The tape played at its real rate, as a camera delivers it: the video waits for its
    // time on the clock, and the audio with it.
    const fs::path out = dir_ / "stopped.avi";
    const RunResult r =
        run_pipeline(type2_pipeline(tape(DvSystem::pal_625_50), out, "clocksync ! "), 1);
    EXPECT_EQ(r.error, "timed out") << "the capture runs until it is stopped";
    EXPECT_GT(r.frames, 10u);
    EXPECT_LT(r.frames, static_cast<guint64>(tape_frames)) << "the source is paced";
    EXPECT_EQ(count_packets(out, "v:0"), static_cast<long>(r.frames));
    EXPECT_GT(count_packets(out, "a:0"), 0);
    const AviHeader h = read_header(out);
    ASSERT_EQ(h.streams.size(), 2u);
    EXPECT_EQ(h.streams[0].length, r.frames);
    EXPECT_EQ(h.flags & 0x10, 0x10u) << "stopping wrote the index";
}

TEST_F(AviSinkTest, WriteAndFormatFailuresAreErrorsOnTheBus) {
    const RunResult unwritable =
        run_pipeline(type1_pipeline(tape(DvSystem::pal_625_50), "/nonexistent-kestrel-dir/x.avi"));
    EXPECT_FALSE(unwritable.eos);
    EXPECT_EQ(unwritable.error_source, "avisink");
    EXPECT_EQ(unwritable.error_domain, GST_RESOURCE_ERROR);
    EXPECT_EQ(unwritable.error_code, GST_RESOURCE_ERROR_OPEN_WRITE);

    const fs::path junk = dir_ / "junk.bin";
    write_file(junk, std::vector<std::uint8_t>(300000, 0xFF));
    const RunResult not_dv = run_pipeline(type1_pipeline(junk, dir_ / "junk.avi"));
    EXPECT_FALSE(not_dv.eos);
    EXPECT_EQ(not_dv.error_source, "avisink");
    EXPECT_EQ(not_dv.error_domain, GST_STREAM_ERROR);
    EXPECT_EQ(not_dv.error_code, GST_STREAM_ERROR_FORMAT);
    EXPECT_EQ(not_dv.frames, 0u);

    // A type 1 file has no place for a separate audio stream, also when the audio comes
    // before the video says what it is (the video is held back to make sure of that).
    const RunResult type1_audio =
        run_pipeline("filesrc location=\"" + tape(DvSystem::pal_625_50).string() +
                     "\" ! identity sleep-time=300000 ! video/x-dv,systemstream=true ! "
                     "avisink.video_0 "
                     "audiotestsrc num-buffers=10 ! audio/x-raw,format=S16LE,rate=48000,channels=2 "
                     "! avisink.audio_0 "
                     "kestrelavisink name=avisink location=\"" +
                     (dir_ / "t1a.avi").string() + "\"");
    EXPECT_FALSE(type1_audio.eos);
    EXPECT_EQ(type1_audio.error_source, "avisink");
    EXPECT_EQ(type1_audio.error_code, GST_STREAM_ERROR_FORMAT);
}

TEST_F(AviSinkTest, ElementOffersOneVideoAndOneAudioPadAndItsProperties) {
    GstElement* sink = gst_element_factory_make("kestrelavisink", "avisink");
    ASSERT_TRUE(sink);
    GstPad* video = gst_element_request_pad_simple(sink, "video_%u");
    ASSERT_TRUE(video);
    EXPECT_EQ(gst_element_request_pad_simple(sink, "video_%u"), nullptr) << "one video stream";
    GstPad* audio = gst_element_request_pad_simple(sink, "audio_%u");
    ASSERT_TRUE(audio);
    EXPECT_EQ(sink->numsinkpads, 2);
    gst_element_release_request_pad(sink, audio);
    gst_object_unref(audio);
    EXPECT_EQ(sink->numsinkpads, 1);
    EXPECT_TRUE(GST_OBJECT_FLAG_IS_SET(sink, GST_ELEMENT_FLAG_SINK));

    g_object_set(sink, "location", "/tmp/x.avi", "max-part-bytes", guint64{4 << 20}, nullptr);
    gst_util_set_object_arg(G_OBJECT(sink), "interleave", "none");
    gchar* location = nullptr;
    guint64 part = 0;
    gint interleave = -1;
    guint64 frames = 1;
    g_object_get(sink, "location", &location, "max-part-bytes", &part, "interleave", &interleave,
                 "frames", &frames, nullptr);
    EXPECT_STREQ(location, "/tmp/x.avi");
    EXPECT_EQ(part, guint64{4 << 20});
    EXPECT_EQ(interleave, 0);
    EXPECT_EQ(frames, 0u);
    g_free(location);
    gst_object_unref(video);
    gst_object_unref(sink);
}

TEST_F(AviSinkTest, LocationIsFixedWhileTheFileIsOpenAndAStopWithoutDataLeavesAnEmptyAvi) {
    GstElement* sink = gst_element_factory_make("kestrelavisink", "avisink");
    ASSERT_TRUE(sink);
    GstPad* video = gst_element_request_pad_simple(sink, "video_%u");
    ASSERT_TRUE(video);
    const fs::path first = dir_ / "first.avi";
    const fs::path second = dir_ / "second.avi";
    g_object_set(sink, "location", first.c_str(), "interleave", 2, nullptr);
    GstBus* bus = gst_bus_new();
    gst_element_set_bus(sink, bus);
    ASSERT_EQ(gst_element_set_state(sink, GST_STATE_PAUSED), GST_STATE_CHANGE_SUCCESS);
    g_object_set(sink, "location", second.c_str(), nullptr);
    gchar* location = nullptr;
    gint interleave = -1;
    g_object_get(sink, "location", &location, "interleave", &interleave, nullptr);
    EXPECT_EQ(location, first.string());
    EXPECT_EQ(interleave, 2) << "the multiplexer's mode numbers set it directly";
    g_free(location);
    ASSERT_EQ(gst_element_set_state(sink, GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
    GstMessage* error = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    EXPECT_EQ(error, nullptr) << "stopping a capture that got nothing is no error";
    if (error) {
        gst_message_unref(error);
    }
    EXPECT_FALSE(fs::exists(second));
    auto p = ffprobe(first);
    EXPECT_EQ(p["format.format_name"], "avi");
    EXPECT_EQ(count_packets(first, "v:0"), 0);

    // Closed again, the element takes a new name for its next file.
    g_object_set(sink, "location", second.c_str(), nullptr);
    g_object_get(sink, "location", &location, nullptr);
    EXPECT_EQ(location, second.string());
    g_free(location);
    gst_element_set_bus(sink, nullptr);
    gst_object_unref(bus);
    gst_object_unref(video);
    gst_object_unref(sink);
}

}  // namespace
}  // namespace kc::gst::test
