// Device enumeration: walking a category, listing friendly names, binding by index,
// adding filters under generated names.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "graph/capgraph.h"
#include "tests/unit/graph/graph_rig.h"

using media::DeviceCategory;

namespace {
struct Enumeration : ::testing::Test {
    GraphPlatform fakes;
    FakeMediaFactory& media = fakes.media;
    CapGraph graph{media};
    WindowHandle combo = open_device_combo(fakes.host);

    std::vector<std::string> listed() { return FakeDialogHost::win(combo)->combo_items; }
};

// Device walk callbacks counting the devices in an int.
bool count_and_stop(media::Moniker*, void* count) {
    return !++*static_cast<int*>(count);
}

bool count_all(media::Moniker*, void* count) {
    return ++*static_cast<int*>(count);
}

bool throw_on_second(media::Moniker*, void* count) {
    return ++*static_cast<int*>(count) == 2 ? throw new ComError(E_TEST1, ERR_NONE) : true;
}
}  // namespace

TEST_F(Enumeration, ListsFriendlyNamesInEnumerationOrderAndReleasesEverything) {
    RefBaseline baseline(media.ledger);
    graph.enum_devices(DeviceCategory::video_input, add_device_name, combo);
    EXPECT_EQ(listed(), (Strings{"DV Camcorder", "USB Video Device"}));
    // Compressor lists already hold "No compression" and are appended to, unsorted.
    fakes.host.combo_add_string(combo, "No compression");
    media.catalogue[DeviceCategory::video_compressor][0].name = "Zeta Codec";
    graph.enum_devices(DeviceCategory::video_compressor, add_device_name, combo);
    EXPECT_EQ(listed(), (Strings{"DV Camcorder", "USB Video Device", "No compression", "Zeta Codec",
                                 "Cinepak Codec", "Indeo Video"}));
    EXPECT_TRUE(media.ledger.called("factory.create_instance(system_device_enum,create_dev_enum)"));
    EXPECT_TRUE(media.ledger.called("devenum.create_class_enumerator(video_compressor,0)"));
    EXPECT_TRUE(media.ledger.called("bag:Zeta Codec.read(FriendlyName)"));
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Enumeration, EmptyCategoryCallsNothingAndBindsNothing) {
    RefBaseline baseline(media.ledger);
    media.catalogue[DeviceCategory::audio_input].clear();
    int calls = 0;
    graph.enum_devices(DeviceCategory::audio_input, count_all, &calls);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(media.ledger.count("enum_moniker"), 0u);
    EXPECT_TRUE(raises([&] { graph.get_filter(DeviceCategory::audio_input, 0); },
                       ERR_INDEX_NOT_IN_ENUM, S_OK));
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Enumeration, WalkStopsWhenTheCallbackSaysSoThrowsOrTheEnumeratorFails) {
    int calls = 0;
    graph.enum_devices(DeviceCategory::video_compressor, count_and_stop, &calls);
    EXPECT_EQ(calls, 1);
    calls = 0;
    graph.enum_devices(DeviceCategory::video_compressor, count_all, &calls);
    EXPECT_EQ(calls, 3);
    // Any answer other than S_OK ends the walk quietly.
    media.catalogue.script.fail("next", E_TEST1, 7);
    calls = 0;
    graph.enum_devices(DeviceCategory::video_compressor, count_all, &calls);
    EXPECT_EQ(calls, 1);
    media.catalogue.script.fail("next", S_FALSE);
    calls = 0;
    graph.enum_devices(DeviceCategory::video_compressor, count_all, &calls);
    EXPECT_EQ(calls, 0);

    // A callback that throws still has the walk released.
    media.catalogue.script.clear();
    RefBaseline baseline(media.ledger);
    calls = 0;
    EXPECT_TRUE(raises(
        [&] { graph.enum_devices(DeviceCategory::video_compressor, throw_on_second, &calls); },
        ERR_NONE, E_TEST1));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Enumeration, EveryFailureOfTheWalkRaisesItsCodeAndLeaksNothing) {
    struct Row {
        const char* what;
        void (*script)(FakeMediaFactory&);
        int code;
        bool binding_too;  // get_filter meets the same failure
    };
    const Row rows[] = {
        {"device enumerator",
         [](FakeMediaFactory& m) { m.fail("create_instance.system_device_enum", E_TEST1); },
         ERR_CREATE_DEVICE_ENUM, true},
        {"class enumerator",
         [](FakeMediaFactory& m) { m.catalogue.script.fail("create_class_enumerator", E_TEST1); },
         ERR_CREATE_CLASS_ENUM, true},
        {"property bag",
         [](FakeMediaFactory& m) {
             m.catalogue[DeviceCategory::video_input][0].storage_result = E_TEST1;
         },
         ERR_BIND_PROPERTY_SET, false},
        {"friendly name", [](FakeMediaFactory& m) { m.catalogue.script.fail("read", E_TEST1); },
         ERR_MISSING_PROPERTY, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        GraphPlatform local;
        CapGraph g(local.media);
        WindowHandle list = open_device_combo(local.host);
        row.script(local.media);
        RefBaseline baseline(local.media.ledger);
        EXPECT_TRUE(
            raises([&] { g.enum_devices(DeviceCategory::video_input, add_device_name, list); },
                   row.code, E_TEST1));
        EXPECT_TRUE(FakeDialogHost::win(list)->combo_items.empty());
        if (row.binding_too) {
            EXPECT_TRUE(
                raises([&] { g.get_filter(DeviceCategory::video_input, 0); }, row.code, E_TEST1));
        }
        EXPECT_EQ(baseline.changes(), Strings{});
    }
}

TEST_F(Enumeration, MissingFriendlyNameStopsTheListingAtThatDevice) {
    media.catalogue[DeviceCategory::video_compressor][1].has_friendly_name = false;
    RefBaseline baseline(media.ledger);
    EXPECT_TRUE(raises(
        [&] { graph.enum_devices(DeviceCategory::video_compressor, add_device_name, combo); },
        ERR_MISSING_PROPERTY, E_INVALIDARG));
    EXPECT_EQ(listed(), Strings{"MJPEG Compressor"});
    EXPECT_EQ(media.ledger.count("moniker:Indeo Video"), 0u);
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Enumeration, GetFilterBindsTheDeviceAtTheIndexOnlyAndReportsABindFailure) {
    RefBaseline baseline(media.ledger);
    {
        ComPtr<media::BaseFilter> third = graph.get_filter(DeviceCategory::video_compressor, 2);
        EXPECT_TRUE(same_object(third.get(), media.video_compressors[2]->identity()));
        EXPECT_EQ(media.video_compressors[2]->refs(), 1);  // the returned holder's
        EXPECT_EQ(media.ledger.count("moniker:MJPEG Compressor.bind_to_object"), 0u);
        EXPECT_EQ(media.ledger.count("moniker:Indeo Video.bind_to_object(base_filter)"), 1u);
    }
    for (int index : {3, -1, 100}) {
        SCOPED_TRACE(index);
        EXPECT_TRUE(raises([&] { graph.get_filter(DeviceCategory::video_compressor, index); },
                           ERR_INDEX_NOT_IN_ENUM, S_OK));
    }
    // A bind failure is reported; the device before it is untouched.
    media.catalogue[DeviceCategory::audio_compressor][1].bind_result = E_TEST2;
    EXPECT_TRUE(raises([&] { graph.get_filter(DeviceCategory::audio_compressor, 1); },
                       ERR_NOT_A_FILTER, E_TEST2));
    EXPECT_EQ(baseline.changes(), Strings{});
    media.ledger.calls.clear();
    ComPtr<media::BaseFilter> first = graph.get_filter(DeviceCategory::audio_compressor, 0);
    EXPECT_TRUE(first.valid());
    EXPECT_EQ(media.ledger.count("moniker:MPEG Layer-3.bind_to_object"), 0u);
}

TEST_F(Enumeration, AddFilterNamesEachFilterObjectUniquelyAndReportsFailure) {
    ComPtr<media::BaseFilter> source = graph.get_filter(DeviceCategory::video_input, 0);
    ComPtr<media::BaseFilter> audio = graph.get_filter(DeviceCategory::audio_input, 1);
    graph.add_filter(source.get());
    graph.add_filter(audio.get());
    ASSERT_EQ(media.graph.filters.size(), 2u);
    const std::string first = media.graph.filters[0].name;
    const std::string second = media.graph.filters[1].name;
    const std::regex format("Filter [0-9a-f]{8}");
    EXPECT_TRUE(std::regex_match(first, format)) << first;
    EXPECT_TRUE(std::regex_match(second, format)) << second;
    EXPECT_NE(first, second);
    // The graph holds its own reference beside the caller's.
    EXPECT_EQ(media.dv_camera.refs(), 2);
    // The name belongs to the object: asking again gives the same one.
    EXPECT_EQ(filter_graph_name(source.get()), first);
    EXPECT_EQ(filter_graph_name(audio.get()), second);
    // A failing add is reported and the caller keeps its reference.
    ComPtr<media::BaseFilter> webcam = graph.get_filter(DeviceCategory::video_input, 1);
    media.graph.fail("add_filter", E_TEST1);
    EXPECT_TRUE(raises([&] { graph.add_filter(webcam.get()); }, ERR_ADD_FILTER, E_TEST1));
    EXPECT_EQ(media.graph.filters.size(), 2u);
    EXPECT_EQ(media.webcam.refs(), 1);
}

TEST(FilterNames, AreEightLowerCaseZeroFilledDigitsNeverSharedByLiveFilters) {
    EXPECT_EQ(filter_name_of(0x12AB40), "Filter 0012ab40");
    EXPECT_EQ(filter_name_of(0), "Filter 00000000");
    EXPECT_EQ(filter_name_of(0xDEADBEEF), "Filter deadbeef");
    // Many live filters never share a name.
    FakeLedger ledger;
    std::set<std::string> names;
    for (int i = 0; i < 2000; ++i) {
        FakeFilter& filter = ledger.make<FakeFilter>("f" + std::to_string(i));
        names.insert(filter_graph_name(&filter));
        // Naming asks the object its identity and gives the reference back.
        EXPECT_EQ(filter.refs(), 0);
    }
    EXPECT_EQ(names.size(), 2000u);
}
