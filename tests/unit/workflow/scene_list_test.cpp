// The scene list: default names, in and out points, deletion and preroll.
#include <gtest/gtest.h>

#include "tests/unit/app/app_rig.h"

namespace {
Timecode at_track(std::int32_t track) {
    return Timecode{.minutes = 3, .frames = 7, .track = track};
}

std::vector<std::string> names(CapApp& a) {
    std::vector<std::string> out;
    for (const CapJob* job : *a.jobs) {
        out.push_back(job->name);
    }
    return out;
}

// The default name after scenes of these names.
std::string next_after(const std::vector<std::string>& existing,
                       const std::string& scene_name = "kestrel") {
    AppRig rig;
    CapApp& a = rig.make();
    a.scene_name = scene_name;
    for (const std::string& name : existing) {
        a.add_job(at_track(0))->name = name;
    }
    return a.next_job_name();
}
}  // namespace

TEST(SceneNames, OneMoreThanTheHighestNumberOfAnyWordAndNumberName) {
    EXPECT_EQ(next_after({}), "kestrel 001");
    EXPECT_EQ(next_after({"kestrel 004", "other 009", "kestrel"}), "kestrel 010");
    EXPECT_EQ(next_after({"kestrel 007", "kestrel 008"}), "kestrel 009");
    EXPECT_EQ(next_after({"kestrel 999"}), "kestrel 1000");
    // Leading zeros do not make a number octal; text after the number is ignored.
    EXPECT_EQ(next_after({"take 010"}), "kestrel 011");
    EXPECT_EQ(next_after({"take 012 second try"}), "kestrel 013");
    // Negative numbers never raise the count; a sign is accepted.
    EXPECT_EQ(next_after({"take -5", "take +3"}), "kestrel 004");
}

TEST(SceneNames, NamesThatDoNotScanAsWordAndNumberDoNotCount) {
    // The setting itself has a blank: "my clip 001" scans as "my" and no number.
    EXPECT_EQ(next_after({"my clip 001", "my clip 002"}, "my clip"), "my clip 001");
    EXPECT_EQ(next_after({"kestrel", "kestrel x5", ""}), "kestrel 001");
    EXPECT_EQ(next_after({std::string(256, 'w') + " 50"}), "kestrel 001");
    EXPECT_EQ(next_after({std::string(255, 'w') + " 50"}), "kestrel 051");
    // A number beyond the int range saturates instead of wrapping.
    EXPECT_EQ(next_after({"huge 99999999999"}), "kestrel 2147483648");
}

TEST(SceneList, SetInPointAppendsANamedSceneStartingAtThePosition) {
    AppRig rig;
    CapApp& a = rig.make();
    a.preroll = 25;
    CapJob* first = a.add_job(at_track(100));
    EXPECT_EQ(first->name, "kestrel 001");
    EXPECT_EQ(first->in_point.track, 100);
    EXPECT_EQ(first->in_point.minutes, 3);
    // The preroll is only taken off by apply_preroll or the task dialog.
    EXPECT_EQ(first->capture_start.track, 100);
    EXPECT_EQ(first->capture_start.to_string(), first->in_point.to_string());
    EXPECT_EQ(first->out_point.track, 0);
    CapJob* second = a.add_job(at_track(300));
    EXPECT_EQ(second->name, "kestrel 002");
    EXPECT_EQ(a.job_at(0), first);
    EXPECT_EQ(a.job_at(1), second);
}

TEST(SceneList, SetOutPointAlwaysTargetsTheLastScene) {
    AppRig rig;
    CapApp& a = rig.make();
    EXPECT_FALSE(a.set_out_point(at_track(50)));
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Specify a start point first (2)"});
    EXPECT_TRUE(a.jobs->empty());

    CapJob* first = a.add_job(at_track(100));
    CapJob* second = a.add_job(at_track(200));
    EXPECT_TRUE(a.set_out_point(at_track(250)));
    EXPECT_TRUE(a.set_out_point(at_track(260)));  // overwrites
    EXPECT_EQ(second->out_point.track, 260);
    EXPECT_EQ(first->out_point.track, 0);
}

TEST(SceneList, RemovingTheMiddleSceneKeepsTheOthersInOrder) {
    AppRig rig;
    CapApp& a = rig.make();
    a.add_job(at_track(1))->name = "a 1";
    CapJob* middle = a.add_job(at_track(2));
    middle->name = "b 2";
    a.add_job(at_track(3))->name = "c 3";
    a.remove_job(a.job_at(1));
    EXPECT_EQ(names(a), (std::vector<std::string>{"a 1", "c 3"}));
    EXPECT_EQ(a.next_job_name(), "kestrel 004");
}

TEST(SceneList, ApplyPrerollRederivesEveryCaptureStartInTwosComplement) {
    AppRig rig;
    CapApp& a = rig.make();
    CapJob* one = a.add_job(at_track(100));
    CapJob* two = a.add_job(at_track(400));
    two->out_point = at_track(900);
    a.preroll = 25;
    a.apply_preroll();
    EXPECT_EQ(one->capture_start.track, 75);
    EXPECT_EQ(two->capture_start.track, 375);
    EXPECT_EQ(two->out_point.track, 900);
    // Display fields stay as read from the device.
    EXPECT_EQ(one->capture_start.minutes, 3);
    a.preroll = 150;
    a.apply_preroll();
    EXPECT_EQ(one->capture_start.track, -50);
    a.preroll = -2147483647 - 1;
    a.apply_preroll();
    EXPECT_EQ(one->capture_start.track, static_cast<std::int32_t>(100u + 2147483648u));
}

TEST(SceneListDeathTest, AnIndexPastTheEndIsAProgrammingError) {
    AppRig rig;
    CapApp& a = rig.make();
    a.add_job(at_track(1));
    EXPECT_DEATH(a.job_at(1), "i != jobs.end\\(\\)");
    EXPECT_DEATH(a.job_at(-1), "i != jobs.end\\(\\)");
}
