// Files past 1 GiB written as fast as the disk allows: the OpenDML parts, their indexes and
// the header totals must carry ffprobe to the end with the right duration.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/integration/gst/gst_test_support.h"

namespace kc::gst::test {
namespace {

namespace fs = std::filesystem;

constexpr int tape_frames = 50;
constexpr int loops = 150;  // 7500 PAL frames: 5 minutes, 1.08 GB of DV
constexpr long total_frames = tape_frames * loops;

struct RiffPart {
    std::string type;
    std::uint64_t bytes;
};

// The top-level RIFF chunks, found by hopping from header to header.
std::vector<RiffPart> riff_parts(const fs::path& file) {
    std::vector<RiffPart> parts;
    std::ifstream in(file, std::ios::binary);
    const std::uint64_t size = fs::file_size(file);
    std::uint64_t pos = 0;
    unsigned char head[12];
    while (pos + 12 <= size) {
        in.seekg(static_cast<std::streamoff>(pos));
        in.read(reinterpret_cast<char*>(head), 12);
        if (std::string(reinterpret_cast<char*>(head), 4) != "RIFF") {
            break;
        }
        const std::uint64_t bytes =
            8 + (head[4] | (head[5] << 8) | (head[6] << 16) | (std::uint64_t{head[7]} << 24));
        parts.push_back({std::string(reinterpret_cast<char*>(head) + 8, 4), bytes});
        pos += bytes;
    }
    return parts;
}

class AviSinkLargeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        init_gstreamer();
        for (const char* element : {"avenc_dvvideo", "avmux_dv", "dvdemux", "multifilesrc"}) {
            if (!has_element(element)) {
                GTEST_SKIP() << element << " is missing";
            }
        }
        tape_ = dir_ / "tape.dv";
        ASSERT_TRUE(make_dv_tape(tape_, avi::DvSystem::pal_625_50, tape_frames));
    }

    // The tape played over and over, unpaced: the file grows at disk speed.
    std::string looped_source() const {
        std::ostringstream d;
        d << "multifilesrc location=\"" << tape_.string() << "\" loop=true num-buffers=" << loops
          << " ! video/x-dv,systemstream=true ! ";
        return d.str();
    }

    void expect_read_to_the_end(const fs::path& out) {
        EXPECT_GT(fs::file_size(out), std::uint64_t{1} << 30);
        const auto parts = riff_parts(out);
        ASSERT_GE(parts.size(), 2u);
        std::uint64_t covered = 0;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            EXPECT_EQ(parts[i].type, i == 0 ? "AVI " : "AVIX") << i;
            EXPECT_LE(parts[i].bytes, std::uint64_t{1} << 30) << i;
            covered += parts[i].bytes;
        }
        EXPECT_EQ(covered, fs::file_size(out)) << "the parts cover the whole file";

        auto p = ffprobe(out);
        EXPECT_DOUBLE_EQ(number(p["format.duration"]), total_frames * 0.04);
        EXPECT_EQ(count_packets(out, "v:0"), total_frames);
        // Seeking near the end goes through the OpenDML indexes.
        int status = 0;
        const std::string last =
            run_program({"ffmpeg", "-nostdin", "-v", "error", "-ss", "299.9", "-i", out.string(),
                         "-map", "0:v:0", "-f", "null", "-progress", "pipe:1", "-"},
                        &status);
        EXPECT_EQ(status, 0);
        EXPECT_NE(last.find("frame=1\n"), std::string::npos) << last;
    }

    TempDir dir_;
    fs::path tape_;
};

TEST_F(AviSinkLargeTest, Type1PastOneGigabyte) {
    const fs::path out = dir_ / "big-type1.avi";
    const RunResult r = run_pipeline(
        looped_source() + "kestrelavisink name=avisink location=\"" + out.string() + "\"", 300);
    ASSERT_TRUE(r.eos) << r.error;
    EXPECT_EQ(r.frames, static_cast<guint64>(total_frames));
    expect_read_to_the_end(out);
}

TEST_F(AviSinkLargeTest, Type2PastOneGigabyte) {
    const fs::path out = dir_ / "big-type2.avi";
    const RunResult r = run_pipeline(
        looped_source() +
            "dvdemux name=demux demux.video ! queue ! avisink.video_0 demux.audio ! queue ! "
            "avisink.audio_0 kestrelavisink name=avisink location=\"" +
            out.string() + "\"",
        300);
    ASSERT_TRUE(r.eos) << r.error;
    EXPECT_EQ(r.frames, static_cast<guint64>(total_frames));
    expect_read_to_the_end(out);
    auto p = ffprobe(out);
    EXPECT_EQ(p["streams.stream.0.nb_frames"], std::to_string(total_frames));
    // ffprobe gives a PCM stream of an AVI no duration of its own ("N/A"), but counts its
    // sample frames: 48 kHz for as long as the video runs.
    ASSERT_EQ(p["streams.stream.1.sample_rate"], "48000");
    EXPECT_EQ(p["streams.stream.1.nb_frames"], std::to_string(total_frames * 1920));
}

}  // namespace
}  // namespace kc::gst::test
