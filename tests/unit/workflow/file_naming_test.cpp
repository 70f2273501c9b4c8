// Numbered capture file names, worked out from the files really present in a folder.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/unit/app/app_rig.h"
#include "tests/unit/workflow/platform_system.h"
#include "tests/unit/workflow/temp_dir.h"

namespace {
// A CapApp over the real file system services, writing into a temporary folder.
struct NamingRig {
    FakeDialogHost host;
    std::unique_ptr<SystemServices> system = make_platform_system();
    FakeSettingsStore store;
    FakeMediaFactory media;
    CapPlatform platform{host, *system, store, media};
    ScopedInstance scoped{platform};
    TempDir dir;
    CapApp capapp{platform};

    NamingRig() { capapp.output_directory = dir.path(); }
    // `folder` joined with `name` by the platform's separator.
    std::string joined(const std::string& folder, const std::string& name) {
        return folder + system->folder_separator() + name;
    }
    std::string next() {
        std::string out;
        capapp.next_file_name(out);
        return out;
    }
    // The file name part of the next name.
    std::string next_name() { return std::filesystem::path(next()).filename().string(); }
};
}  // namespace

TEST(FileNaming, TheNumberFollowsTheHighestNumberOfAnyAviFile) {
    struct Case {
        std::vector<std::string> files;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {{}, "kestrel 000.avi"},
        {{"kestrel 000.avi", "kestrel 007.avi"}, "kestrel 008.avi"},
        {{"a 5.avi", "b 12.avi"}, "kestrel 013.avi"},
        {{"kestrel 999.avi"}, "kestrel 1000.avi"},
        {{"x -3.avi"}, "kestrel 000.avi"},
        {{"kestrel.avi"}, "kestrel 000.avi"},
        {{"holiday 041.avi"}, "kestrel 042.avi"},
        // Only the text right after the first blank counts.
        {{"my scene 004.avi"}, "kestrel 001.avi"},
        // A scene-detection file counts by its base number.
        {{"kestrel 005 3.avi"}, "kestrel 006.avi"},
        // Other files do not count, whatever their numbers.
        {{"kestrel 050.txt", "kestrel 060.avi.part", "kestrel 002.avi"}, "kestrel 003.avi"},
        // The ending matches without regard to case.
        {{"clip 010.AVI", "clip 011.Avi", "clip 020.avI.bak"}, "kestrel 012.avi"},
    };
    for (const Case& c : cases) {
        NamingRig rig;
        for (const std::string& f : c.files) {
            rig.dir.touch(f);
        }
        EXPECT_EQ(rig.next_name(), c.expected) << testing::PrintToString(c.files);
    }
}

TEST(FileNaming, FolderAndNameAreJoinedWithThePlatformSeparator) {
    NamingRig rig;
    rig.capapp.scene_name = "wedding";
    EXPECT_EQ(rig.next(), rig.joined(rig.dir.path(), "wedding 000.avi"));
    // A folder already ending in the separator gives a doubled one, which is accepted.
    rig.capapp.output_directory = rig.joined(rig.dir.path(), "");
    EXPECT_EQ(rig.next(), rig.joined(rig.joined(rig.dir.path(), ""), "wedding 000.avi"));
}

TEST(FileNaming, AMissingFolderCountsAsEmptyAndNothingIsCreated) {
    NamingRig rig;
    rig.capapp.output_directory = rig.dir.file("gone");
    EXPECT_EQ(rig.next(), rig.joined(rig.dir.file("gone"), "kestrel 000.avi"));
    EXPECT_FALSE(std::filesystem::exists(rig.dir.file("gone")));
}

TEST(FileNaming, TwoCapturesInARowGetConsecutiveNumbers) {
    NamingRig rig;
    rig.dir.touch("kestrel 003.avi");
    const std::string first = rig.next();
    EXPECT_EQ(first, rig.joined(rig.dir.path(), "kestrel 004.avi"));
    std::ofstream(first) << "RIFF";  // the first file exists once its capture started
    EXPECT_EQ(rig.next_name(), "kestrel 005.avi");
}

TEST(FileNaming, ARecordingWritesToTheNumberedFileAndFindsItsCounters) {
    AppRig rig;
    CapApp& a = rig.start();
    rig.system.folders[a.output_directory] = {"kestrel 004.avi"};
    a.disconnect();
    a.connect();
    a.start_recording();
    EXPECT_EQ(rig.media.builder.output_paths.back(), rig.system.videos + "/kestrel 005.avi");
    ASSERT_FALSE(rig.media.builder.finds.empty());
    EXPECT_EQ(rig.media.builder.finds.back().type, media::MajorType::interleaved);
    EXPECT_EQ(rig.media.builder.finds.back().category, media::PinCategory::capture);
    EXPECT_TRUE(a.dropped->valid());
}
