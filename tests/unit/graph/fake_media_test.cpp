// The media fakes other tests rely on: scripts, reference bookkeeping, and a builder
// and graph that behave like the platform's.
#include <gtest/gtest.h>

#include "graph/stdcap.h"
#include "tests/unit/graph/graph_rig.h"

using media::MajorType;
using media::PinCategory;

TEST(FakeScript, AnswersAlwaysOrOnTheNthCallOnly) {
    FakeScript script;
    script.fail("run", E_TEST1, 2);
    EXPECT_EQ(script.result("run"), S_OK);
    EXPECT_EQ(script.result("run"), E_TEST1);
    EXPECT_EQ(script.result("run"), S_OK);
    script.fail("run", S_FALSE);
    EXPECT_EQ(script.result("run"), S_FALSE);
    EXPECT_EQ(script.calls("run"), 4);
    EXPECT_EQ(script.result("stop", E_TEST2), E_TEST2);  // the normal answer
    script.clear();
    EXPECT_EQ(script.result("run"), S_OK);
}

TEST(FakeLedger, CountsReferencesAndReportsEveryChange) {
    FakeLedger ledger;
    FakeFilter& filter = ledger.make<FakeFilter>("f");
    RefBaseline baseline(ledger);
    ComPtr<media::BaseFilter> held;
    ASSERT_EQ(query_interface(static_cast<media::BaseFilter*>(&filter), held), S_OK);
    EXPECT_EQ(baseline.changes(), Strings{"f: 0 -> 1"});
    EXPECT_EQ(ledger.held(), Strings{"f: 1"});
    EXPECT_TRUE(ledger.called("f.query_interface(base_filter)"));
    held.reset();
    EXPECT_EQ(baseline.changes(), Strings{});
    filter.release();  // one too many
    EXPECT_EQ(baseline.changes(), Strings{"f: released too often"});
    filter.fail("query_interface.specify_property_pages", E_TEST1);
    ComPtr<media::SpecifyPropertyPages> pages;
    EXPECT_EQ(query_interface(static_cast<media::BaseFilter*>(&filter), pages), E_TEST1);
    EXPECT_FALSE(pages.valid());
}

TEST(FakeGraphAndBuilder, ConnectLikeThePlatformAndLetGoOnTheLastRelease) {
    GraphPlatform fakes;
    FakeMediaFactory& m = fakes.media;
    FakeGraph& graph = m.graph;
    FakeCaptureBuilder& builder = m.builder;
    graph.add_ref();
    builder.add_ref();
    ASSERT_EQ(builder.set_filtergraph(&graph), S_OK);
    EXPECT_EQ(graph.add_filter(&m.webcam, "cam"), S_OK);
    EXPECT_EQ(graph.add_filter(&m.microphone, "cam"), VFW_S_DUPLICATE_NAME);
    EXPECT_EQ(graph.filter_names(), (Strings{"cam", "cam 0001"}));

    ASSERT_EQ(builder.render_stream(PinCategory::preview, MajorType::video, m.webcam.identity(),
                                    nullptr, nullptr),
              S_OK);
    ASSERT_EQ(builder.render_stream(PinCategory::preview, MajorType::audio, m.microphone.identity(),
                                    nullptr, nullptr),
              S_OK);
    // A source with a preview pin renders it straight; one without gets a tee.
    EXPECT_EQ(m.webcam.pin("Preview")->peer->owner.label(), "Video Renderer");
    EXPECT_EQ(m.microphone.pin("Capture")->peer->owner.label(), "Smart Tee");
    EXPECT_EQ(m.microphone.pin("Capture")->peer->owner.pin("Preview")->peer->owner.label(),
              "Audio Renderer");
    // A second preview of the same pin cannot be connected.
    EXPECT_EQ(builder.render_stream(PinCategory::preview, MajorType::video, m.webcam.identity(),
                                    nullptr, nullptr),
              VFW_E_CANNOT_CONNECT);
    EXPECT_EQ(builder.requests.back().result, VFW_E_CANNOT_CONNECT);

    builder.dropped.dropped = 3;
    builder.dropped.not_dropped = 250;
    ComPtr<media::DroppedFrames> dropped;
    ASSERT_EQ(builder.find_interface(PinCategory::capture, MajorType::video, &m.webcam,
                                     Iid::dropped_frames, dropped.out_void()),
              S_OK);
    long count = 0;
    EXPECT_EQ(dropped->get_num_dropped(&count), S_OK);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(dropped->get_num_not_dropped(&count), S_OK);
    EXPECT_EQ(count, 250);
    dropped.reset();
    builder.fail("find_interface", E_NOINTERFACE);
    EXPECT_EQ(builder.find_interface(PinCategory::capture, MajorType::video, &m.webcam,
                                     Iid::dropped_frames, dropped.out_void()),
              E_NOINTERFACE);
    EXPECT_FALSE(dropped.valid());
    ASSERT_EQ(builder.finds.size(), 2u);
    EXPECT_EQ(builder.finds[0].filter, &m.webcam);

    // The builder holds the graph; the graph holds its filters until its last release.
    EXPECT_EQ(graph.refs(), 2);
    graph.release();
    EXPECT_GT(m.webcam.refs(), 0);
    builder.release();
    EXPECT_EQ(m.ledger.held(), Strings{});
}
