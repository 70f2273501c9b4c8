// Captures cut off at arbitrary moments must stay readable by ffprobe and ffmpeg up to
// their last whole frame: the writer's file as it stands between or inside any of its
// system calls (what killing the process leaves), finished files truncated anywhere, a real
// capture process killed with SIGKILL, and a capture running out of disk space.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <random>
#include <thread>

#include "platform/gst/avi/dv_avi_writer.h"
#include "tests/integration/gst/gst_test_support.h"

extern char** environ;

namespace kc::gst::test {
namespace {

namespace fs = std::filesystem;
using avi::AviLayout;
using avi::Bytes;
using avi::DvSystem;

constexpr int tape_frames = 50;
constexpr std::size_t page_bytes = 4096;

// Where to cut: the n-th call into the output, and how much of it had reached the file.
struct Cut {
    int op;
    double fraction;
};

struct Snapshot {
    fs::path file;
    int op;
    std::uint64_t frames_done;  // write_video calls that had returned before the cut
    std::string what;
};

// What a capture through a SnapshotOutput did: calls into the output, frames written, the
// first call after the first whole frame, and the snapshots saved.
struct CutLog {
    std::uint64_t frames_done = 0;
    int ops = 0;
    int first_frame_op = -1;
    int second_part_op = -1;  // the first RIFF is finished by then
    std::vector<Snapshot> snapshots;
};

// An output that keeps the file in memory and saves it as it stands at chosen moments:
// before a call, or in the middle of one. The kernel copies a write page by page in
// offset order and a fatal signal can stop it between pages, so a cut-off rewrite keeps
// a page-aligned prefix of its new bytes; an append keeps any prefix.
class SnapshotOutput final : public avi::AviOutput {
  public:
    SnapshotOutput(std::vector<Cut> cuts, fs::path dir, CutLog* log)
        : cuts_(std::move(cuts)), dir_(std::move(dir)), log_(log) {}

    std::error_code append(std::span<const Bytes> pieces) override {
        std::vector<std::uint8_t> data;
        for (const Bytes& p : pieces) {
            data.insert(data.end(), p.begin(), p.end());
        }
        if (const Cut* cut = cut_here()) {
            auto image = image_;
            const auto keep =
                static_cast<std::size_t>(static_cast<double>(data.size()) * cut->fraction);
            image.insert(image.end(), data.begin(), data.begin() + static_cast<long>(keep));
            save(image,
                 "append of " + std::to_string(data.size()) + " cut after " + std::to_string(keep));
        }
        image_.insert(image_.end(), data.begin(), data.end());
        return {};
    }

    std::error_code write_at(std::uint64_t offset, Bytes bytes) override {
        if (const Cut* cut = cut_here()) {
            auto image = image_;
            // Page boundaries inside the write: the new bytes can stop at any of them.
            std::vector<std::uint64_t> stops{offset};
            for (std::uint64_t b = (offset / page_bytes + 1) * page_bytes;
                 b < offset + bytes.size(); b += page_bytes) {
                stops.push_back(b);
            }
            const std::uint64_t stop =
                stops[static_cast<std::size_t>(cut->fraction * static_cast<double>(stops.size()))];
            std::copy(bytes.begin(), bytes.begin() + static_cast<long>(stop - offset),
                      image.begin() + static_cast<long>(offset));
            save(image, "rewrite at " + std::to_string(offset) + " cut after " +
                            std::to_string(stop - offset));
        }
        std::copy(bytes.begin(), bytes.end(), image_.begin() + static_cast<long>(offset));
        return {};
    }

    std::error_code truncate(std::uint64_t size) override {
        if (cut_here()) {
            save(image_, "before truncate");
        }
        image_.resize(size);
        return {};
    }
    std::error_code sync() override { return {}; }
    std::error_code close() override { return {}; }

  private:
    const Cut* cut_here() {
        const int op = log_->ops++;
        if (log_->first_frame_op < 0 && log_->frames_done > 0) {
            log_->first_frame_op = op;
        }
        for (const Cut& c : cuts_) {
            if (c.op == op) {
                return &c;
            }
        }
        return nullptr;
    }
    void save(const std::vector<std::uint8_t>& image, const std::string& what) {
        const int op = log_->ops - 1;
        const fs::path file = dir_ / ("cut-" + std::to_string(op) + ".avi");
        write_file(file, image);
        log_->snapshots.push_back({file, op, log_->frames_done, what});
    }

    std::vector<Cut> cuts_;
    fs::path dir_;
    CutLog* log_;
    std::vector<std::uint8_t> image_;
};

class AviCutOffTest : public ::testing::Test {
  protected:
    void SetUp() override {
        init_gstreamer();
        for (const char* element : {"avenc_dvvideo", "avmux_dv", "dvdemux", "multifilesrc"}) {
            if (!has_element(element)) {
                GTEST_SKIP() << element << " is missing";
            }
        }
        tape_ = dir_ / "tape.dv";
        ASSERT_TRUE(make_dv_tape(tape_, DvSystem::pal_625_50, tape_frames));
        const auto bytes = read_file(tape_);
        for (std::size_t at = 0; at < bytes.size(); at += avi::dv_pal_frame_bytes) {
            frames_.emplace_back(bytes.begin() + static_cast<long>(at),
                                 bytes.begin() + static_cast<long>(at + avi::dv_pal_frame_bytes));
        }
    }

    // Writes the tape three times over through `output`, noting progress in `log`.
    void write_capture(AviLayout layout, std::unique_ptr<avi::AviOutput> output, CutLog& log) {
        avi::AviWriterOptions o;
        o.layout = layout;
        o.max_riff_bytes = 3'000'000;  // about 20 frames a part: many AVIX parts
        avi::DvAviWriter writer(std::move(output), o);
        const std::vector<std::uint8_t> audio(1920 * 4, 0);
        for (int loop = 0; loop < 3; ++loop) {
            for (const auto& frame : frames_) {
                if (layout == AviLayout::type2_separate) {
                    ASSERT_FALSE(writer.write_audio(audio));
                }
                ASSERT_FALSE(writer.write_video(frame));
                ++log.frames_done;
                if (log.second_part_op < 0 && writer.riff_parts() > 1) {
                    log.second_part_op = log.ops;
                }
            }
        }
        ASSERT_FALSE(writer.close());
    }

    void expect_snapshots_read_to_last_whole_frame(AviLayout layout) {
        // A dry run counts the calls; then cuts land at random ones, fixed by the seed.
        CutLog dry;
        write_capture(layout,
                      std::make_unique<SnapshotOutput>(std::vector<Cut>{}, dir_.path(), &dry), dry);
        ASSERT_GT(dry.second_part_op, dry.first_frame_op + 20);
        ASSERT_GT(dry.ops, dry.second_part_op + 100);

        // Cuts at random calls, fixed by the seed: a third of them while the first RIFF is
        // still growing (its own size then bounds what readers look at), the rest later.
        std::mt19937 random(layout == AviLayout::type1_interleaved ? 20261123u : 20261124u);
        std::uniform_real_distribution<double> fraction(0.0, 1.0);
        std::vector<Cut> cuts;
        for (int i = 0; i < 21; ++i) {
            const int from = i < 7 ? dry.first_frame_op : dry.second_part_op;
            const int to = i < 7 ? dry.second_part_op : dry.ops;
            cuts.push_back(
                {std::uniform_int_distribution<int>(from, to - 1)(random), fraction(random)});
        }
        CutLog log;
        write_capture(layout, std::make_unique<SnapshotOutput>(cuts, dir_.path(), &log), log);
        ASSERT_GE(log.snapshots.size(), 15u);

        for (const Snapshot& s : log.snapshots) {
            SCOPED_TRACE("call " + std::to_string(s.op) + ": " + s.what);
            const long whole = count_whole_video_chunks(s.file);
            EXPECT_GE(whole, static_cast<long>(s.frames_done));
            EXPECT_LE(whole, static_cast<long>(s.frames_done) + 1);
            EXPECT_EQ(count_packets(s.file, "v:0"), whole);
            EXPECT_EQ(decode_video_frames(s.file), whole);
        }
    }

    TempDir dir_;
    fs::path tape_;
    std::vector<std::vector<std::uint8_t>> frames_;
};

TEST_F(AviCutOffTest, Type1CutInsideAnyCallReadsToTheLastWholeFrame) {
    expect_snapshots_read_to_last_whole_frame(AviLayout::type1_interleaved);
}

TEST_F(AviCutOffTest, Type2CutInsideAnyCallReadsToTheLastWholeFrame) {
    expect_snapshots_read_to_last_whole_frame(AviLayout::type2_separate);
}

// A finished file that loses its tail (an interrupted copy, a file system that did not get
// to write it) still reads up to its last whole frame. Its header now claims more than
// there is, so a reader may hand out the cut frame's remains (or, cut inside idx1, a few
// index entries taken for chunks) as packets, but they decode to at most one more frame.
TEST_F(AviCutOffTest, FinishedFileTruncatedAnywhereReadsToTheLastWholeFrame) {
    const fs::path full = dir_ / "full.avi";
    std::error_code e;
    CutLog log;
    auto output = avi::open_file_output(full, e);
    ASSERT_TRUE(output) << e.message();
    write_capture(AviLayout::type2_separate, std::move(output), log);
    const auto bytes = read_file(full);
    std::mt19937 random(77);
    for (int i = 0; i < 12; ++i) {
        const auto cut =
            std::uniform_int_distribution<std::size_t>(200'000, bytes.size() - 1)(random);
        SCOPED_TRACE("truncated at " + std::to_string(cut));
        const fs::path file = dir_ / ("truncated-" + std::to_string(i) + ".avi");
        write_file(
            file, std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + static_cast<long>(cut)));
        const long whole = count_whole_video_chunks(file);
        EXPECT_GT(whole, 0);
        EXPECT_GE(count_packets(file, "v:0"), whole);
        const long decoded = decode_video_frames(file);
        EXPECT_GE(decoded, whole);
        EXPECT_LE(decoded, whole + 1);
    }
}

pid_t spawn_helper(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

TEST_F(AviCutOffTest, CaptureProcessKilledMidStreamKeepsEveryWholeFrame) {
    for (const char* type : {"1", "2"}) {
        SCOPED_TRACE(std::string("type ") + type);
        const fs::path out = dir_ / (std::string("killed-type") + type + ".avi");
        const pid_t pid = spawn_helper({KC_CAPTURE_HELPER, tape_.string(), out.string(), type,
                                        "--loops", "0", "--max-part-bytes", "4000000"});
        ASSERT_GT(pid, 0);
        // Unpaced, the file grows fast; kill somewhere past a handful of AVIX parts.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        std::error_code e;
        while (std::chrono::steady_clock::now() < deadline &&
               (!fs::exists(out, e) || fs::file_size(out, e) < 30'000'000)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        ASSERT_EQ(::kill(pid, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            << "the capture was still running";

        const long whole = count_whole_video_chunks(out);
        EXPECT_GT(whole, 150);
        EXPECT_EQ(count_packets(out, "v:0"), whole);
        EXPECT_EQ(decode_video_frames(out), whole);
        if (std::string(type) == "2") {
            EXPECT_GT(count_packets(out, "a:0"), 0);
        }
    }
}

TEST_F(AviCutOffTest, DiskFullIsAnErrorAndLeavesEveryWholeFrame) {
    for (const char* type : {"1", "2"}) {
        SCOPED_TRACE(std::string("type ") + type);
        const fs::path out = dir_ / (std::string("full-type") + type + ".avi");
        constexpr std::uint64_t limit = 20'000'000;
        int status = 0;
        const std::string said =
            run_program({KC_CAPTURE_HELPER, tape_.string(), out.string(), type, "--loops", "0",
                         "--max-part-bytes", "4000000", "--fsize-limit", std::to_string(limit)},
                        &status);
        EXPECT_EQ(status, 3) << said;
        EXPECT_NE(said.find("error=No space left"), std::string::npos) << said;
        const auto at = said.find("frames=");
        ASSERT_NE(at, std::string::npos) << said;
        const long frames = std::strtol(said.c_str() + at + 7, nullptr, 10);
        EXPECT_GT(frames, 100);
        EXPECT_LE(fs::file_size(out), limit);
        EXPECT_EQ(count_whole_video_chunks(out), frames);
        EXPECT_EQ(count_packets(out, "v:0"), frames);
        EXPECT_EQ(decode_video_frames(out), frames);
    }
}

}  // namespace
}  // namespace kc::gst::test
