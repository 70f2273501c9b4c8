// The eight settings: defaults on a first run, read once at construction, written once
// at exit in the reverse order with their types, and tolerance of odd stored values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "app/settings.h"
#include "tests/unit/app/app_rig.h"

namespace {
template <class T>
std::vector<std::uint8_t> bytes_of(T v) {
    std::vector<std::uint8_t> out(sizeof v);
    std::memcpy(out.data(), &v, sizeof v);
    return out;
}
}  // namespace

TEST(Settings, FirstRunKeepsTheDefaultsAndTheExitWritesAllEightWithTheirTypes) {
    AppRig rig;
    CapApp& a = rig.make();
    EXPECT_EQ(a.dv_type2, 0);
    EXPECT_EQ(a.video_codec, 0);
    EXPECT_EQ(a.audio_codec, 0);
    // Captures go to the platform's videos folder until the user picks another.
    EXPECT_EQ(a.output_directory, rig.system.videos);
    EXPECT_EQ(a.scene_name, "kestrel");
    EXPECT_EQ(a.preroll, 0);
    EXPECT_EQ(a.disk_warning, 0.1);
    EXPECT_FALSE(a.scene_detection);
    // Read in binding order, each binding with its own key.
    EXPECT_EQ(rig.store.count_calls("create_key"), 8u);
    EXPECT_EQ(rig.store.open_keys(), 8);
    EXPECT_TRUE(rig.store.written_names().empty()) << "nothing is saved before the exit";

    a.scene_name = "holiday";
    a.preroll = 25;
    rig.end();

    EXPECT_EQ(
        rig.store.written_names(),
        (std::vector<std::string>{"SceneDetection", "DiskspaceWarning", "Preroll", "DefaultScene",
                                  "OutputDirectory", "AudioCodec", "VideoCodec", "DV2"}));
    EXPECT_EQ(rig.store.open_keys(), 0);
    const auto* dv2 = rig.store.find("DV2");
    ASSERT_NE(dv2, nullptr);
    EXPECT_EQ(dv2->type, RegType::dword);
    EXPECT_EQ(dv2->bytes, bytes_of(0u));
    EXPECT_EQ(rig.store.find("Preroll")->bytes, bytes_of(25u));
    // Text without its terminating zero.
    EXPECT_EQ(rig.store.find("DefaultScene")->type, RegType::sz);
    EXPECT_EQ(rig.store.find("DefaultScene")->bytes,
              (std::vector<std::uint8_t>{'h', 'o', 'l', 'i', 'd', 'a', 'y'}));
    EXPECT_EQ(rig.store.find("DiskspaceWarning")->type, RegType::binary);
    EXPECT_EQ(rig.store.find("DiskspaceWarning")->bytes, bytes_of(0.1));
    EXPECT_EQ(rig.store.find("SceneDetection")->type, RegType::binary);
    EXPECT_EQ(rig.store.find("SceneDetection")->bytes, std::vector<std::uint8_t>{0});
}

TEST(Settings, StoredValuesAreReadAndADoubleComesBackBitForBit) {
    AppRig rig;
    const double odd = std::nextafter(0.05, 1.0);
    {
        CapApp& a = rig.make();
        a.dv_type2 = 1;
        a.video_codec = 2;
        a.audio_codec = -1;
        a.output_directory = "/srv/capture";
        a.disk_warning = odd;
        a.scene_detection = true;
        rig.end();
    }
    CapApp& again = rig.make();
    EXPECT_EQ(again.dv_type2, 1);
    EXPECT_EQ(again.video_codec, 2);
    EXPECT_EQ(again.audio_codec, -1);
    EXPECT_EQ(again.output_directory, "/srv/capture");
    EXPECT_EQ(std::memcmp(&again.disk_warning, &odd, sizeof odd), 0);
    EXPECT_TRUE(again.scene_detection);
}

TEST(Settings, TextsUpTo511BytesAreReadLongerOnesKeepTheDefault) {
    AppRig rig;
    rig.store.put_text("OutputDirectory", std::string(600, 'x'));
    rig.store.put_text("DefaultScene", std::string(511, 's'));
    CapApp& a = rig.make();
    EXPECT_EQ(a.output_directory, rig.system.videos);
    EXPECT_EQ(a.scene_name, std::string(511, 's'));

    AppRig exact;
    exact.store.put_text("DefaultScene", std::string(512, 's'));
    EXPECT_EQ(exact.make().scene_name, "kestrel");
}

TEST(Settings, TextEndsAtItsFirstZeroOrAtTheEndOfTheData) {
    AppRig rig;
    rig.store.put_text("DefaultScene", "clip");  // no terminating zero
    rig.store.put_binary("OutputDirectory", {'/', 'v', 0, 'x', 'y'});
    CapApp& a = rig.make();
    EXPECT_EQ(a.scene_name, "clip");
    EXPECT_EQ(a.output_directory, "/v");
}

TEST(Settings, SceneDetectionIsOneByteAndOnlyZeroMeansOff) {
    for (auto [byte, expected] : {std::pair{0, false}, {1, true}, {2, true}}) {
        AppRig rig;
        rig.store.put_binary("SceneDetection", {static_cast<std::uint8_t>(byte)});
        EXPECT_EQ(rig.make().scene_detection, expected) << byte;
    }
    // Stored larger than the field: not read, the default stays.
    AppRig wide;
    wide.store.put_dword("SceneDetection", 1);
    EXPECT_FALSE(wide.make().scene_detection);
}

TEST(Settings, AValueOfTheWrongSizeKeepsItsDefaultOrTakesTheBytesThatFit) {
    AppRig rig;
    rig.store.put_binary("DiskspaceWarning", std::vector<std::uint8_t>(9, 0x11));
    rig.store.put_binary("Preroll", {0x19});  // one byte of a 4-byte field
    rig.store.put_dword("DV2", 7);
    CapApp& a = rig.make();
    EXPECT_EQ(a.disk_warning, 0.1);
    EXPECT_EQ(a.preroll, 25);
    // The stored type is not compared with the expected one.
    EXPECT_EQ(a.dv_type2, 7);
}

TEST(Settings, AKeyThatCannotBeOpenedFailsConstructionWithTheRegistryError) {
    AppRig rig;
    rig.store.create_key_result = E_ACCESSDENIED;
    rig.store.create_key_successes = 3;
    const auto [code, hr] = com_error_of([&] { rig.make(); });
    EXPECT_EQ(code, ERR_READ_REGISTRY);
    EXPECT_EQ(hr, E_ACCESSDENIED);
    EXPECT_EQ(app, nullptr);
    // The bindings already made are undone: their keys are closed again.
    EXPECT_EQ(rig.store.open_keys(), 0);
}

TEST(Settings, AFailingWriteAtExitIsIgnoredAndTheOthersAreStillWritten) {
    AppRig rig;
    rig.store.failing_writes = {"DefaultScene"};
    CapApp& a = rig.make();
    a.preroll = 3;
    rig.end();
    EXPECT_EQ(rig.store.written_names().size(), 8u);
    EXPECT_EQ(rig.store.find("DefaultScene"), nullptr);
    EXPECT_EQ(rig.store.find("Preroll")->bytes, bytes_of(3u));
    EXPECT_EQ(rig.store.open_keys(), 0);
}
