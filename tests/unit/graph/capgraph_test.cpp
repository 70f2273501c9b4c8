// Capture graph construction: the builder requests of each shape, their failures, and
// the depth-first teardown.
#include <gtest/gtest.h>

#include "graph/capgraph.h"
#include "tests/unit/graph/graph_rig.h"

using media::DeviceCategory;

namespace {
// A connected graph as the application's connect step leaves it.
struct Graphs : ::testing::Test {
    GraphPlatform fakes;
    FakeMediaFactory& media = fakes.media;
    FakeGraph& fake_graph = media.graph;
    std::unique_ptr<CapGraph> graph = std::make_unique<CapGraph>(media);

    void connect_dv() { connect_sources(*graph, 0); }
    void connect_wdm() { connect_sources(*graph, 1, 0); }
    Strings requests() const { return media.builder.described_requests(); }
    // Every pin of every filter the graph holds or held, still connected.
    Strings connected_pins(const std::vector<FakeFilter*>& filters) const {
        Strings found;
        for (FakeFilter* f : filters) {
            for (FakePin* p : f->pins) {
                if (p->connected()) {
                    found.push_back(p->label());
                }
            }
        }
        return found;
    }
};
}  // namespace

TEST(GraphConstruction, CreatesGraphThenBuilderThenAttachesThem) {
    GraphPlatform fakes;
    {
        CapGraph graph(fakes.media);
        EXPECT_EQ(fakes.media.ledger.calls,
                  (Strings{"factory.create_instance(filter_graph,graph_builder)",
                           "factory.create_instance(capture_graph_builder,capture_graph_builder)",
                           "builder.set_filtergraph(graph)"}));
        EXPECT_TRUE(graph.graph.valid());
        EXPECT_TRUE(graph.builder.valid());
        EXPECT_FALSE(graph.source.valid());
        EXPECT_FALSE(graph.avimux.valid());
        EXPECT_EQ(fakes.media.graph.refs(), 2);  // ours and the builder's
    }
    EXPECT_EQ(fakes.media.ledger.held(), Strings{});
}

TEST(GraphConstruction, EachFailureRaisesItsCodeAndReleasesWhatWasMade) {
    struct Row {
        const char* op;
        bool on_builder;
        int code;
    };
    for (const Row& row :
         {Row{"create_instance.filter_graph", false, ERR_CREATE_GRAPH},
          Row{"create_instance.capture_graph_builder", false, ERR_CREATE_CAPTURE_BUILDER},
          Row{"set_filtergraph", true, ERR_ATTACH_GRAPH}}) {
        SCOPED_TRACE(row.op);
        GraphPlatform fakes;
        if (row.on_builder) {
            fakes.media.builder.fail(row.op, E_TEST2);
        } else {
            fakes.media.fail(row.op, E_TEST2);
        }
        EXPECT_TRUE(raises([&] { CapGraph graph(fakes.media); }, row.code, E_TEST2));
        EXPECT_EQ(fakes.media.ledger.held(), Strings{});
    }
}

TEST_F(Graphs, SetOutputFileMakesAConnectedMultiplexerAndWriter) {
    connect_dv();
    graph->set_output_file("/home/user/Videos/scene 001.avi");
    ASSERT_TRUE(graph->avimux.valid());
    ASSERT_TRUE(graph->avisink.valid());
    EXPECT_EQ(media.builder.output_paths, Strings{"/home/user/Videos/scene 001.avi"});
    EXPECT_TRUE(same_object(graph->avimux.get(), media.builder.mux->identity()));
    std::string path;
    EXPECT_EQ(graph->avisink->get_cur_file(path), S_OK);
    EXPECT_EQ(path, "/home/user/Videos/scene 001.avi");
    EXPECT_TRUE(fake_graph.contains(*media.builder.mux));
    EXPECT_TRUE(fake_graph.contains(*media.builder.writer));
    EXPECT_EQ(media.builder.mux->pin("AVI Out")->peer, media.builder.writer->pin("in"));
}

TEST_F(Graphs, SetOutputFileFailureLeavesBothHoldersEmpty) {
    connect_dv();
    media.builder.fail("set_output_file_name", E_TEST1);
    RefBaseline baseline(media.ledger);
    EXPECT_TRUE(
        raises([&] { graph->set_output_file("/tmp/x.avi"); }, ERR_SET_OUTPUT_FILE, E_TEST1));
    EXPECT_FALSE(graph->avimux.valid());
    EXPECT_FALSE(graph->avisink.valid());
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Graphs, DvType1CaptureIsTwoRequestsCaptureFirstAndTakesALaterInterleavingMode) {
    connect_dv();
    graph->set_output_file("/tmp/a.avi");
    graph->build_dv_type1_capture();
    EXPECT_EQ(requests(), (Strings{"capture interleaved DV Camcorder -> - -> AVI Mux",
                                   "preview interleaved DV Camcorder -> - -> -"}));
    EXPECT_TRUE(media.builder.mux->modes.empty());  // interleaving left at its default
    EXPECT_EQ(media.splitters.size(), 0u);
    // The interleaved stream reaches the multiplexer; the preview ends in renderers
    // through the platform's DV decoder.
    EXPECT_TRUE(media.builder.mux->pin("Input 01")->connected());
    EXPECT_NE(fake_graph.filter_named("DV Video Decoder"), nullptr);
    EXPECT_NE(fake_graph.filter_named("Video Renderer"), nullptr);
    // A later interleaving mode is set, and its result ignored.
    media.builder.mux->fail("put_mode", E_TEST1);
    graph->set_interleaving(3);
    EXPECT_EQ(media.builder.mux->modes, std::vector<int>{3});
    EXPECT_EQ(media.builder.mux->refs(), 2);
}

TEST_F(Graphs, DvType2CaptureAddsTheSplitterSetsNoInterleavingThenThreeRequests) {
    connect_dv();
    graph->set_output_file("/tmp/b.avi");
    media.ledger.calls.clear();
    graph->build_dv_type2_capture();
    ASSERT_EQ(media.splitters.size(), 1u);
    FakeFilter& splitter = *media.splitters[0];
    const Strings expected_calls{
        "factory.create_instance(dv_splitter,base_filter)",
        "graph.add_filter(DV Splitter,DV Splitter)",
        "AVI Mux.query_interface(config_interleaving)",
        "AVI Mux.put_mode(0)",
        "builder.render_stream(capture interleaved DV Camcorder -> DV Splitter -> AVI Mux)",
        "builder.render_stream(none none DV Splitter -> - -> AVI Mux)",
        "builder.render_stream(preview interleaved DV Camcorder -> - -> -)"};
    Strings made = media.ledger.calls;
    std::erase_if(made, [](const std::string& call) {
        return call.rfind("factory.", 0) && call.rfind("graph.add_filter", 0) &&
               call.rfind("AVI Mux.", 0) && call.rfind("builder.", 0);
    });
    EXPECT_EQ(made, expected_calls);
    // Video and audio each reach the multiplexer through the splitter.
    EXPECT_EQ(splitter.pin("DVVidOut0")->peer, media.builder.mux->pin("Input 01"));
    EXPECT_EQ(splitter.pin("AudOut00")->peer, media.builder.mux->pin("Input 02"));
    // Our own reference to the splitter is gone; the graph keeps the filter.
    EXPECT_EQ(splitter.refs(), 1);
    EXPECT_TRUE(fake_graph.contains(splitter));
}

TEST_F(Graphs, DvType2FailuresRaiseTheirCodesAndDropOurSplitterReference) {
    struct Row {
        const char* what;
        void (*script)(FakeMediaFactory&);
        int code;
        int splitter_refs;  // what the graph keeps, -1: no splitter made
    };
    const Row rows[] = {
        {"splitter", [](FakeMediaFactory& m) { m.fail("create_instance.dv_splitter", E_TEST1); },
         ERR_CREATE_DV_SPLITTER, -1},
        {"add", [](FakeMediaFactory& m) { m.graph.fail("add_filter", E_TEST1); }, ERR_ADD_FILTER,
         0},
        {"interleaving",
         [](FakeMediaFactory& m) {
             m.builder.mux->fail("query_interface.config_interleaving", E_TEST1);
         },
         ERR_INTERLEAVING_IF, 1},
        {"capture request",
         [](FakeMediaFactory& m) { m.builder.fail("render_stream", E_TEST1, 1); },
         ERR_CONNECT_GRAPH, 1},
        {"audio request", [](FakeMediaFactory& m) { m.builder.fail("render_stream", E_TEST1, 2); },
         ERR_CONNECT_GRAPH, 1},
        {"preview request",
         [](FakeMediaFactory& m) { m.builder.fail("render_stream", E_TEST1, 3); },
         ERR_CONNECT_GRAPH, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        GraphPlatform local;
        CapGraph g(local.media);
        connect_sources(g, 0);
        g.set_output_file("/tmp/c.avi");
        row.script(local.media);
        EXPECT_TRUE(raises([&] { g.build_dv_type2_capture(); }, row.code, E_TEST1));
        if (row.splitter_refs < 0) {
            EXPECT_TRUE(local.media.splitters.empty());
        } else {
            ASSERT_EQ(local.media.splitters.size(), 1u);
            EXPECT_EQ(local.media.splitters[0]->refs(), row.splitter_refs);
        }
        // No pin, enumerator or interface of the multiplexer is left with us.
        FakeMux& mux = *local.media.builder.mux;
        EXPECT_EQ(mux.refs(), 2);  // avimux and the graph
        g.teardown();
        EXPECT_EQ(mux.refs(), local.media.graph.contains(mux) ? 1 : 0);
    }
}

TEST_F(Graphs, WdmCaptureIsFourRequestsCaptureFirstVideoBeforeAudio) {
    connect_wdm();
    graph->set_output_file("/tmp/e.avi");
    media.ledger.calls.clear();
    graph->build_wdm_capture(0, 0);
    EXPECT_EQ(media.ledger.count("devenum"), 0u);  // no compressor fetched
    EXPECT_EQ(requests(), (Strings{"capture video USB Video Device -> - -> AVI Mux",
                                   "capture audio Microphone -> - -> AVI Mux",
                                   "preview video USB Video Device -> - -> -",
                                   "preview audio Microphone -> - -> -"}));
    EXPECT_NE(fake_graph.filter_named("Video Renderer"), nullptr);
    EXPECT_NE(fake_graph.filter_named("Audio Renderer"), nullptr);
}

TEST_F(Graphs, WdmCaptureFetchesCompressorsAudioFirstWithTheOffsetRemoved) {
    connect_wdm();
    graph->set_output_file("/tmp/f.avi");
    media.ledger.calls.clear();
    graph->build_wdm_capture(2, 1);
    EXPECT_EQ(media.ledger.matching("devenum.create_class_enumerator"),
              (Strings{"devenum.create_class_enumerator(audio_compressor,0)",
                       "devenum.create_class_enumerator(video_compressor,0)"}));
    EXPECT_EQ(requests(), (Strings{"capture video USB Video Device -> Cinepak Codec -> AVI Mux",
                                   "capture audio Microphone -> IMA ADPCM -> AVI Mux",
                                   "preview video USB Video Device -> - -> -",
                                   "preview audio Microphone -> - -> -"}));
    // Both compressors were added under generated names, before any request.
    EXPECT_LT(media.ledger.position("graph.add_filter(IMA ADPCM," +
                                    filter_graph_name(media.audio_compressors[0]) + ")"),
              media.ledger.position("graph.add_filter(Cinepak Codec," +
                                    filter_graph_name(media.video_compressors[1]) + ")"));
    EXPECT_LT(media.ledger.position("graph.add_filter(Cinepak Codec," +
                                    filter_graph_name(media.video_compressors[1]) + ")"),
              media.ledger.position(
                  "builder.render_stream(capture video USB Video Device -> Cinepak Codec -> AVI "
                  "Mux)"));
    // CapGraph keeps no reference to them; the graph does.
    EXPECT_EQ(media.video_compressors[1]->refs(), 1);
    EXPECT_EQ(media.audio_compressors[0]->refs(), 1);
}

TEST_F(Graphs, WdmCompressorBeyondItsCategoryFailsBeforeAnyRequest) {
    connect_wdm();
    graph->set_output_file("/tmp/g.avi");
    RefBaseline baseline(media.ledger);
    EXPECT_TRUE(raises([&] { graph->build_wdm_capture(4, 0); }, ERR_INDEX_NOT_IN_ENUM, S_OK));
    EXPECT_TRUE(raises([&] { graph->build_wdm_capture(0, 3); }, ERR_INDEX_NOT_IN_ENUM, S_OK));
    EXPECT_TRUE(media.builder.requests.empty());
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Graphs, WdmCaptureRequestFailuresRaiseTheBuildersResult) {
    for (int failing = 1; failing <= 4; ++failing) {
        SCOPED_TRACE(failing);
        GraphPlatform local;
        CapGraph g(local.media);
        g.source = g.get_filter(DeviceCategory::video_input, 1);
        g.audio_source = g.get_filter(DeviceCategory::audio_input, 0);
        g.set_output_file("/tmp/h.avi");
        local.media.builder.fail("render_stream", E_TEST2, failing);
        EXPECT_TRUE(raises([&] { g.build_wdm_capture(1, 1); }, ERR_CONNECT_GRAPH, E_TEST2));
        EXPECT_EQ(local.media.builder.requests.size(), static_cast<std::size_t>(failing));
        EXPECT_EQ(local.media.video_compressors[0]->refs(), 1);  // the graph's only
    }
}

TEST_F(Graphs, PreviewsAreOneRequestForDvAndTwoForWdm) {
    connect_dv();
    graph->build_dv_preview();
    EXPECT_EQ(requests(), Strings{"preview interleaved DV Camcorder -> - -> -"});
    // The DV preview goes through the platform's decoder, whose pages the properties
    // dialog opens by name.
    ComPtr<media::BaseFilter> decoder;
    EXPECT_EQ(graph->graph->find_filter_by_name("DV Video Decoder", decoder.out()), S_OK);

    GraphPlatform local;
    CapGraph wdm(local.media);
    connect_sources(wdm, 1, 1);
    wdm.build_wdm_preview();
    EXPECT_EQ(
        local.media.builder.described_requests(),
        (Strings{"preview video USB Video Device -> - -> -", "preview audio Line In -> - -> -"}));
    // After a teardown the preview can be built again; a refused request is reported.
    wdm.teardown();
    EXPECT_FALSE(wdm.audio_source.valid());  // teardown forgets it; connect binds it again
    wdm.audio_source = wdm.get_filter(DeviceCategory::audio_input, 1);
    wdm.add_filter(wdm.audio_source.get());
    local.media.builder.fail("render_stream", E_TEST1, 3);
    EXPECT_TRUE(raises([&] { wdm.build_wdm_preview(); }, ERR_CONNECT_GRAPH, E_TEST1));
    EXPECT_EQ(local.media.builder.requests.size(), 3u);
}

TEST_F(Graphs, TeardownOfADvCaptureIsDepthFirstDisconnectsBothEndsAndKeepsTheSource) {
    connect_dv();
    graph->set_output_file("/tmp/i.avi");
    graph->build_dv_type1_capture();
    FakeFilter* mux = media.builder.mux;
    FakeFilter* writer = media.builder.writer;
    FakeFilter* tee = fake_graph.filter_named("Smart Tee");
    FakeFilter* splitter = fake_graph.filter_named("DV Splitter");
    FakeFilter* decoder = fake_graph.filter_named("DV Video Decoder");
    FakeFilter* video = fake_graph.filter_named("Video Renderer");
    FakeFilter* audio = fake_graph.filter_named("Audio Renderer");
    ASSERT_TRUE(tee && splitter && decoder && video && audio);
    media.ledger.calls.clear();
    graph->teardown();
    EXPECT_EQ(
        media.ledger.matching("graph.remove_filter"),
        (Strings{"graph.remove_filter(File Writer)", "graph.remove_filter(AVI Mux)",
                 "graph.remove_filter(Video Renderer)", "graph.remove_filter(DV Video Decoder)",
                 "graph.remove_filter(Audio Renderer)", "graph.remove_filter(DV Splitter)",
                 "graph.remove_filter(Smart Tee)"}));
    EXPECT_EQ(fake_graph.filter_names().size(), 1u);
    EXPECT_TRUE(fake_graph.contains(media.dv_camera));
    EXPECT_TRUE(graph->source.valid());
    EXPECT_FALSE(graph->avimux.valid());
    EXPECT_FALSE(graph->avisink.valid());
    EXPECT_EQ(connected_pins({&media.dv_camera, tee, mux, writer, splitter, decoder, video, audio}),
              Strings{});
    EXPECT_EQ(fake_graph.removed_while_connected, Strings{});
    // Every removed filter is free again; the source has the graph and our holder.
    for (FakeFilter* f : {tee, mux, writer, splitter, decoder, video, audio}) {
        EXPECT_EQ(f->refs(), 0) << f->label();
    }
    EXPECT_EQ(media.dv_camera.refs(), 2);
    EXPECT_EQ(media.ledger.matching("graph.disconnect").size(), 14u);  // 7 links, 2 ends each

    media.ledger.calls.clear();
    graph->teardown();
    EXPECT_EQ(media.ledger.count("graph.disconnect"), 0u);
    EXPECT_EQ(media.ledger.count("graph.remove_filter"), 0u);
    EXPECT_EQ(fake_graph.filter_names().size(), 1u);
}

TEST_F(Graphs, TeardownOfAChainRemovesTheFarEndFirstAndDisconnectsEachLinkPeerFirst) {
    connect_dv();
    FakeFilter& splitter = make_dv_splitter(media.ledger);
    FakeFilter& decoder = make_compressor(media.ledger, "Decoder", media::MajorType::video);
    FakeFilter& renderer = media.ledger.make<FakeFilter>("Renderer");
    renderer.add_pin("In", media::PinDirection::input);
    for (FakeFilter* f : {&splitter, &decoder, &renderer}) {
        fake_graph.insert(*f, f->label());
    }
    fake_graph.connect(*media.dv_camera.pin("DV A/V Out"), *splitter.pin("Input"));
    fake_graph.connect(*splitter.pin("DVVidOut0"), *decoder.pin("Input"));
    fake_graph.connect(*decoder.pin("Output"), *renderer.pin("In"));
    media.ledger.calls.clear();
    graph->teardown();
    EXPECT_EQ(
        media.ledger.matching("graph."),
        (Strings{"graph.disconnect(Renderer:In)", "graph.disconnect(Decoder:Output)",
                 "graph.remove_filter(Renderer)", "graph.disconnect(Decoder:Input)",
                 "graph.disconnect(DV Splitter:DVVidOut0)", "graph.remove_filter(Decoder)",
                 "graph.disconnect(DV Splitter:Input)", "graph.disconnect(DV Camcorder:DV A/V Out)",
                 "graph.remove_filter(DV Splitter)"}));
    EXPECT_EQ(fake_graph.removed_while_connected, Strings{});
}

TEST_F(Graphs, TeardownOfAWdmCaptureRemovesTheAudioSourceAndCompressors) {
    connect_wdm();
    graph->set_output_file("/tmp/j.avi");
    graph->build_wdm_capture(1, 2);
    std::vector<FakeFilter*> built;
    for (const auto& member : fake_graph.filters) {
        built.push_back(member.filter);
    }
    EXPECT_EQ(built.size(), 9u);  // sources, tee, compressors, mux, writer, renderers
    graph->teardown();
    EXPECT_EQ(connected_pins(built), Strings{});
    EXPECT_EQ(fake_graph.filter_names().size(), 1u);
    EXPECT_TRUE(fake_graph.contains(media.webcam));
    EXPECT_FALSE(graph->audio_source.valid());
    EXPECT_EQ(media.microphone.refs(), 0);
    EXPECT_EQ(media.video_compressors[0]->refs(), 0);
    EXPECT_EQ(media.audio_compressors[1]->refs(), 0);
    // The disconnect step of the application finishes the job.
    fake_graph.remove_filter(graph->source.get());
    graph->source.release();
    graph.reset();
    EXPECT_EQ(media.ledger.held(), Strings{});
}

TEST_F(Graphs, TeardownLeavesFiltersThatWereNeverConnected) {
    connect_dv();
    graph->set_output_file("/tmp/k.avi");
    media.builder.fail("render_stream", E_TEST1, 1);
    EXPECT_TRUE(raises([&] { graph->build_dv_type2_capture(); }, ERR_CONNECT_GRAPH, E_TEST1));
    graph->teardown();
    // The splitter was never connected; the multiplexer and writer only to each other.
    EXPECT_TRUE(fake_graph.contains(*media.splitters[0]));
    EXPECT_TRUE(fake_graph.contains(*media.builder.mux));
    EXPECT_TRUE(fake_graph.contains(*media.builder.writer));
    EXPECT_FALSE(graph->avimux.valid());
    EXPECT_EQ(media.builder.mux->refs(), 1);
    EXPECT_EQ(media.builder.writer->refs(), 1);
}

TEST_F(Graphs, TeardownFailuresRaiseAndReleaseThePinsTheyHeld) {
    connect_dv();
    graph->build_dv_preview();
    RefBaseline baseline(media.ledger);
    media.dv_camera.fail("enum_pins", E_TEST1, 1);
    EXPECT_TRUE(raises([&] { graph->teardown(); }, ERR_ENUM_PINS, E_TEST1));
    EXPECT_EQ(baseline.changes(), Strings{});

    FakeFilter* tee = fake_graph.filter_named("Smart Tee");
    ASSERT_NE(tee, nullptr);
    tee->pin("Input")->fail("query_pin_info", E_TEST2);
    EXPECT_TRUE(raises([&] { graph->teardown(); }, ERR_QUERY_PIN, E_TEST2));
    EXPECT_EQ(baseline.changes(), Strings{});
    EXPECT_EQ(media.ledger.count("graph.remove_filter"), 0u);

    // A connected_to failure means "not connected": that pin is skipped.
    tee->pin("Input")->script.clear();
    media.dv_camera.pin("DV A/V Out")->fail("connected_to", E_TEST1);
    graph->teardown();
    EXPECT_EQ(media.ledger.count("graph.remove_filter"), 0u);
    // Upstream links (peers that are output pins) are never followed.
    media.dv_camera.pin("DV A/V Out")->script.clear();
    media.ledger.calls.clear();
    graph->remove_downstream(tee);
    EXPECT_EQ(media.ledger.count("graph.remove_filter(DV Camcorder)"), 0u);
    EXPECT_TRUE(media.dv_camera.pin("DV A/V Out")->connected());
}

using GraphsDeathTest = Graphs;

TEST_F(GraphsDeathTest, BuildsAssertTheirFilters) {
    EXPECT_DEATH(graph->build_dv_type1_capture(),
                 "Assertion failed: source\\.valid\\(\\), file capgraph\\.cpp");
    EXPECT_DEATH(graph->build_dv_preview(), "source\\.valid\\(\\)");
    EXPECT_DEATH(graph->build_wdm_preview(), "source\\.valid\\(\\)");
    EXPECT_DEATH(graph->build_wdm_capture(0, 0), "source\\.valid\\(\\)");
    EXPECT_DEATH(graph->teardown(), "t != NULL");
    connect_dv();
    EXPECT_DEATH(graph->build_dv_type1_capture(), "avimux\\.valid\\(\\), file capgraph\\.cpp");
    EXPECT_DEATH(graph->build_wdm_preview(), "audio_source\\.valid\\(\\)");
    EXPECT_DEATH(graph->build_wdm_capture(0, 0), "audio_source\\.valid\\(\\)");
    graph->audio_source = graph->get_filter(DeviceCategory::audio_input, 0);
    EXPECT_DEATH(graph->build_wdm_capture(0, 0), "Assertion failed: avimux\\.valid\\(\\)");
    graph->set_output_file("/tmp/l.avi");
    EXPECT_DEATH(graph->set_output_file("/tmp/m.avi"), "!avimux\\.valid\\(\\), file capgraph");
    graph->avimux.reset();
    EXPECT_DEATH(graph->set_output_file("/tmp/m.avi"), "!avisink\\.valid\\(\\), file capgraph");
}
