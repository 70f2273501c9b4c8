// Scene-detection capture: where files break, short files, and how the capture ends.
#include <gtest/gtest.h>

#include "tests/unit/app/app_rig.h"

namespace {
Timecode tc(int h, int m, int s, int f, bool flag = false) {
    return Timecode{.hours = h, .minutes = m, .seconds = s, .frames = f, .user_flag = flag};
}

constexpr std::uint32_t bcd(int h, int m, int s, int f) {
    auto b = [](int v) { return static_cast<std::uint32_t>((v / 10) * 16 + v % 10); };
    return (b(h) << 24) | (b(m) << 16) | (b(s) << 8) | b(f);
}

struct SceneRig : AppRig {
    CapApp& a;
    std::string first;
    SceneRig() : a(start()) {
        deck.timecode_bcd = bcd(0, 10, 0, 0);
        media.builder.dropped.not_dropped = 100;
        system.folders[system.videos] = {"kestrel 011.avi"};
    }
    // Tests may leave a capture running; the application goes with the rig.
    ~SceneRig() { a.inbatch = false; }
    void begin() { a.start_scene_capture(&callback, first); }
    // The file started by this step, empty when none.
    std::string step(const Timecode& t) {
        std::string new_file;
        EXPECT_TRUE(a.scene_step(t, new_file));
        return new_file;
    }
    std::string path(const std::string& name) const { return system.videos + "/" + name; }
    std::vector<std::string> deletions() const {
        std::vector<std::string> out;
        for (const std::string& c : system.calls) {
            if (c.rfind("delete_file(", 0) == 0) {
                out.push_back(c.substr(12, c.size() - 13));
            }
        }
        return out;
    }
};
}  // namespace

TEST(SceneDetect, ForwardStepsKeepTheSceneABackwardJumpStartsTheNextFile) {
    SceneRig rig;
    rig.begin();
    EXPECT_TRUE(rig.a.inbatch);
    EXPECT_EQ(rig.first, rig.path("kestrel 012 1.avi"));
    EXPECT_EQ(rig.a.scene_base, rig.path("kestrel 012"));
    EXPECT_EQ(rig.media.builder.output_paths.back(), rig.first);
    EXPECT_EQ(rig.media.graph.owner, rig.callback.preview_window);
    EXPECT_EQ(rig.deck.modes.back(), media::ED_MODE_PLAY);

    EXPECT_EQ(rig.step(tc(0, 10, 0, 7)), "");
    EXPECT_EQ(rig.step(tc(0, 10, 0, 15)), "");
    EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);
    const std::size_t mark = rig.deck.modes.size();
    EXPECT_FALSE(rig.media.ledger.called("dropped.split_at_break()"));
    EXPECT_EQ(rig.step(tc(0, 0, 0, 2)), rig.path("kestrel 012 2.avi"));
    EXPECT_EQ(rig.modes_since(mark), (std::vector<long>{media::ED_MODE_STOP, media::ED_MODE_PLAY}));
    EXPECT_EQ(rig.a.current_file, rig.path("kestrel 012 2.avi"));
    EXPECT_TRUE(rig.callback.fractions.empty()) << "scene detection reports no progress";
    // The capture path is told of the break before the tape stops, so that the frames
    // still on their way go into the right file.
    const auto& ledger = rig.media.ledger;
    EXPECT_EQ(ledger.count("dropped.split_at_break"), 1u);
    EXPECT_LT(
        ledger.position("dropped.split_at_break()"),
        ledger.position("DV Camcorder.put_mode(" + std::to_string(media::ED_MODE_STOP) + ")"));
    // A capture path that cannot split is simply not asked.
    rig.media.builder.dropped.splits = false;
    EXPECT_EQ(rig.step(tc(0, 20, 0, 0)), rig.path("kestrel 012 3.avi"));
    EXPECT_EQ(ledger.count("dropped.split_at_break"), 1u);
}

TEST(SceneDetect, SixtyFramesAheadIsTheSameSceneSixtyOneIsABreak) {
    SceneRig rig;
    rig.begin();
    // PAL: 60 frames are 2 s 10 f.
    EXPECT_EQ(rig.step(tc(0, 10, 2, 10)), "");
    EXPECT_EQ(rig.step(tc(0, 10, 4, 21)), rig.path("kestrel 012 2.avi"));
    // Zero frames (a paused picture) is the same scene.
    EXPECT_EQ(rig.step(tc(0, 10, 4, 21)), "");
}

// A flag raised between two looks at the tape is a break too, when the capture path saw
// it in the stream.
TEST(SceneDetect, TheUserFlagBreaksWhateverTheStepSeenHereOrInTheStream) {
    SceneRig rig;
    rig.begin();
    EXPECT_EQ(rig.step(tc(0, 10, 0, 5, true)), rig.path("kestrel 012 2.avi"));
    EXPECT_EQ(rig.step(tc(0, 10, 0, 6)), "");
    rig.media.builder.dropped.break_held = media::OATRUE;
    EXPECT_EQ(rig.step(tc(0, 10, 0, 12)), rig.path("kestrel 012 3.avi"));
    EXPECT_EQ(rig.media.ledger.count("dropped.split_at_break"), 2u);
}

TEST(SceneDetect, AShortFileIsDeletedOnceClosedAndItsNameIsUsedAgain) {
    SceneRig rig;
    rig.begin();
    bool source_in_graph_at_delete = true;
    rig.system.on_delete = [&](const std::string&) {
        source_in_graph_at_delete = rig.media.graph.contains(rig.deck);
    };
    rig.media.builder.dropped.not_dropped = 1;
    EXPECT_EQ(rig.step(tc(0, 20, 0, 0)), rig.path("kestrel 012 1.avi"));
    EXPECT_EQ(rig.deletions(), (std::vector<std::string>{rig.path("kestrel 012 1.avi"),
                                                         rig.path("kestrel 012 1.log")}))
        << "the file goes with its capture log";
    EXPECT_FALSE(source_in_graph_at_delete) << "deleted after the graph let go of it";
    EXPECT_EQ(rig.a.scene_count, 1);

    // Two frames are kept.
    rig.media.builder.dropped.not_dropped = 2;
    EXPECT_EQ(rig.step(tc(0, 30, 0, 0)), rig.path("kestrel 012 2.avi"));
    EXPECT_EQ(rig.deletions().size(), 2u);
}

TEST(SceneDetect, AFailingFrameCountCountsAsNoFrames) {
    SceneRig rig;
    rig.begin();
    rig.media.builder.dropped.fail("get_num_not_dropped", E_FAIL);
    rig.step(tc(0, 20, 0, 0));
    EXPECT_EQ(rig.deletions().size(), 2u);
}

TEST(SceneDetect, TheTapeStoppingEndsTheCaptureAndDeletesAShortLastFileAfterDisconnecting) {
    SceneRig rig;
    rig.begin();
    ASSERT_EQ(rig.step(tc(0, 0, 0, 0)), rig.path("kestrel 012 2.avi"));
    rig.deck.playing = media::OAFALSE;
    rig.media.builder.dropped.not_dropped = 0;
    bool disconnected_at_delete = false;
    rig.system.on_delete = [&](const std::string&) {
        disconnected_at_delete = !rig.a.graph->source.valid() && !rig.a.win->attached();
    };
    std::string new_file;
    EXPECT_FALSE(rig.a.scene_step(tc(0, 0, 0, 5), new_file));
    EXPECT_TRUE(new_file.empty());
    EXPECT_FALSE(rig.a.inbatch);
    EXPECT_EQ(rig.deletions(), (std::vector<std::string>{rig.path("kestrel 012 2.avi"),
                                                         rig.path("kestrel 012 2.log")}));
    EXPECT_TRUE(disconnected_at_delete);
    EXPECT_FALSE(rig.a.graph->source.valid());
}

TEST(SceneDetect, AnAbortEndsTheCaptureAndKeepsALongLastFile) {
    SceneRig rig;
    rig.begin();
    rig.callback.aborted = true;
    const std::size_t mark = rig.deck.modes.size();
    std::string new_file;
    EXPECT_FALSE(rig.a.scene_step(tc(0, 10, 0, 5), new_file));
    EXPECT_EQ(rig.modes_since(mark), std::vector<long>{media::ED_MODE_STOP});
    EXPECT_TRUE(rig.deletions().empty());
    EXPECT_FALSE(rig.a.inbatch);
}

TEST(SceneDetect, EveryCaptureStartsAgainAtOneWithANewBase) {
    SceneRig rig;
    rig.begin();
    rig.step(tc(0, 0, 0, 0));
    rig.callback.aborted = true;
    std::string ignored;
    rig.a.scene_step(tc(0, 0, 0, 1), ignored);
    rig.callback.aborted = false;
    // The dialog brings the preview back when a capture has ended.
    rig.a.connect();
    rig.a.build_preview();
    // The files of the first capture now exist in the folder.
    rig.system.folders[rig.system.videos] = {"kestrel 012 1.avi", "kestrel 012 2.avi"};
    rig.begin();
    EXPECT_EQ(rig.first, rig.path("kestrel 013 1.avi"));
}

TEST(SceneDetectDeathTest, StartingTwiceOrSteppingOutsideACaptureIsAProgrammingError) {
    SceneRig rig;
    std::string out;
    EXPECT_DEATH(rig.a.scene_step(tc(0, 0, 0, 0), out), "inbatch");
    rig.begin();
    EXPECT_DEATH(rig.begin(), "!inbatch");
}

TEST(SceneDetect, AStepAfterTheDeckWasLetGoOfEndsTheCaptureQuietly) {
    SceneRig rig;
    rig.begin();
    rig.a.disconnect();  // as a reconnect that failed half-way leaves it
    std::string new_file;
    EXPECT_FALSE(rig.a.scene_step(tc(0, 10, 0, 5), new_file));
    EXPECT_FALSE(rig.a.inbatch);
}
