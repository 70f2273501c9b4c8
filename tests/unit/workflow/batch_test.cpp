// Batch capture: scene boundaries, progress arithmetic, abort and the odd inputs.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/unit/app/app_rig.h"

namespace {
struct BatchRig : AppRig {
    CapApp& a;
    BatchRig() : a(start()) {}

    CapJob* scene(const std::string& name, std::int32_t start_track, std::int32_t out_track) {
        CapJob* job = a.add_job(Timecode{.track = start_track});
        job->name = name;
        job->out_point.track = out_track;
        return job;
    }
    // Tracks the deck was sent to, in order.
    std::vector<long> seeks() const {
        std::vector<long> out;
        for (const auto& c : deck.raw_commands) {
            for (long track = 0; track < 100000; track += 1) {
                const auto frame = seek_frame(track);
                if (std::vector<std::uint8_t>(frame.begin(), frame.end()) == c.bytes) {
                    out.push_back(track);
                    break;
                }
            }
        }
        return out;
    }
    std::vector<std::string> files() const { return media.builder.output_paths; }
    std::string path(const std::string& name) const { return system.videos + "/" + name; }
};
}  // namespace

TEST(Batch, ScenesFollowEachOtherAndProgressCountsTracksOfTheWholeBatch) {
    BatchRig rig;
    rig.scene("first", 100, 200);
    rig.scene("second", 500, 650);
    rig.a.start_batch(&rig.callback);
    EXPECT_TRUE(rig.a.inbatch);
    EXPECT_EQ(rig.a.batch_total, 250.0f);
    EXPECT_EQ(rig.seeks(), std::vector<long>{100});
    EXPECT_EQ(rig.files(), std::vector<std::string>{rig.path("first.avi")});
    EXPECT_EQ(rig.media.graph.owner, rig.callback.preview_window);
    EXPECT_TRUE(rig.a.win->running());
    EXPECT_EQ(rig.deck.modes.back(), media::ED_MODE_PLAY);

    EXPECT_TRUE(rig.a.batch_step(150));
    EXPECT_FLOAT_EQ(rig.callback.fractions.back(), 0.2f);
    // Equal to the out point keeps capturing; one more track ends the scene.
    EXPECT_TRUE(rig.a.batch_step(200));
    EXPECT_EQ(rig.files().size(), 1u);
    EXPECT_FLOAT_EQ(rig.callback.fractions.back(), 0.4f);

    const std::size_t mark = rig.deck.modes.size();
    EXPECT_TRUE(rig.a.batch_step(201));
    EXPECT_EQ(rig.a.batch_done, 100.0f);
    EXPECT_EQ(rig.seeks(), (std::vector<long>{100, 500}));
    EXPECT_EQ(rig.files().back(), rig.path("second.avi"));
    EXPECT_EQ(rig.modes_since(mark), (std::vector<long>{media::ED_MODE_STOP, media::ED_MODE_PLAY}));
    // Still winding to the new capture start: the bar does not leap past the end.
    EXPECT_LT(rig.callback.fractions.back(), 0.48f);

    EXPECT_TRUE(rig.a.batch_step(520));
    EXPECT_FLOAT_EQ(rig.callback.fractions.back(), 0.48f);

    EXPECT_FALSE(rig.a.batch_step(651));
    EXPECT_FALSE(rig.a.inbatch);
    EXPECT_EQ(rig.a.batch_done, 250.0f);
    EXPECT_FALSE(rig.a.graph->source.valid()) << "disconnected at the end";
    EXPECT_EQ(rig.deck.modes.back(), media::ED_MODE_STOP);
    EXPECT_EQ(rig.files().size(), 2u);
}

TEST(Batch, AnAbortMidBatchStopsAtTheNextStepAndSkipsTheRest) {
    BatchRig rig;
    rig.scene("one", 100, 200);
    rig.scene("two", 300, 400);
    rig.scene("three", 500, 600);
    rig.a.start_batch(&rig.callback);
    ASSERT_TRUE(rig.a.batch_step(201));
    ASSERT_EQ(rig.files().back(), rig.path("two.avi"));
    rig.callback.aborted = true;
    const std::size_t mark = rig.deck.modes.size();
    EXPECT_FALSE(rig.a.batch_step(350));
    EXPECT_FALSE(rig.a.inbatch);
    EXPECT_EQ(rig.modes_since(mark), std::vector<long>{media::ED_MODE_STOP});
    EXPECT_FALSE(rig.a.graph->source.valid());
    EXPECT_EQ(rig.files().size(), 2u) << "scene three is never captured";
    EXPECT_FALSE(rig.a.win->running());
}

TEST(Batch, AnEmptySceneListStartsNoCapture) {
    BatchRig rig;
    const std::size_t calls = rig.media.ledger.calls.size();
    rig.a.start_batch(&rig.callback);
    EXPECT_FALSE(rig.a.inbatch);
    EXPECT_EQ(rig.media.ledger.calls.size(), calls);
}

// Both kinds of automatic capture need a DV deck.
TEST(Batch, ANonDvSourceIsRefusedBeforeAnythingChangesAsIsSceneDetection) {
    for (bool scenes : {false, true}) {
        SCOPED_TRACE(scenes ? "scene detection" : "batch");
        AppRig rig;
        CapApp& a = rig.start(1);
        a.add_job(Timecode{})->out_point.track = 10;
        std::string first;
        const auto [code, hr] = com_error_of([&] {
            scenes ? a.start_scene_capture(&rig.callback, first) : a.start_batch(&rig.callback);
        });
        EXPECT_EQ(code, ERR_DEVICE_IF);
        EXPECT_EQ(hr, S_OK);
        EXPECT_FALSE(a.inbatch);
        EXPECT_TRUE(rig.media.builder.output_paths.empty());
    }
}

TEST(Batch, AnUnreadableTrackNeitherEndsASceneNorMovesTheBar) {
    BatchRig rig;
    rig.scene("only", 100, 200);
    rig.a.start_batch(&rig.callback);
    EXPECT_TRUE(rig.a.batch_step(0xFFFFFFFFu));
    EXPECT_TRUE(rig.a.inbatch);
    EXPECT_EQ(rig.a.batch_done, 0.0f);
    EXPECT_TRUE(rig.callback.fractions.empty());
    // An abort still ends the batch on such a tick.
    rig.callback.aborted = true;
    EXPECT_FALSE(rig.a.batch_step(0xFFFFFFFFu));
}

TEST(Batch, ScenesOfZeroLengthGiveAFiniteProgress) {
    BatchRig rig;
    rig.scene("still", 300, 300);
    rig.a.start_batch(&rig.callback);
    EXPECT_EQ(rig.a.batch_total, 0.0f);
    EXPECT_TRUE(rig.a.batch_step(300));
    ASSERT_EQ(rig.callback.fractions.size(), 1u);
    EXPECT_TRUE(std::isfinite(rig.callback.fractions[0]));
    EXPECT_FALSE(rig.a.batch_step(301));
}

TEST(Batch, AFailingSeekIsRaisedWithTheBatchStillMarkedRunning) {
    BatchRig rig;
    rig.scene("one", 100, 200);
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);
    EXPECT_EQ(com_error_of([&] { rig.a.start_batch(&rig.callback); }).first, ERR_DV_SEEK);
    EXPECT_TRUE(rig.a.inbatch);
    rig.a.stop_batch();
    EXPECT_FALSE(rig.a.inbatch);
}

TEST(BatchDeathTest, StartingTwiceOrSteppingOutsideABatchIsAProgrammingError) {
    BatchRig rig;
    EXPECT_DEATH(rig.a.batch_step(1), "inbatch");
    rig.scene("one", 100, 200);
    rig.a.start_batch(&rig.callback);
    EXPECT_DEATH(rig.a.start_batch(&rig.callback), "!inbatch");
    rig.a.stop_batch();
}
