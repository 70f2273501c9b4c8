#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/gst/media/gst_media.h"
#include "platform/gst/source_provider.h"
#include "platform/window.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/integration/gst/gst_test_support.h"

namespace {

using namespace kc::gst;
using media::MajorType;
using media::PinCategory;

// Events come from streaming threads; the fake host's own queue is for the UI thread.
class Host : public FakeDialogHost {
  public:
    bool post_message(WindowHandle window, unsigned message, WParam, LParam lparam) override {
        std::lock_guard guard(lock);
        posts.push_back({window, message, lparam});
        return true;
    }
    struct Post {
        WindowHandle window;
        unsigned message;
        LParam lparam;
    };
    std::mutex lock;
    std::vector<Post> posts;
};

class Surface : public VideoSurface, public VideoSurfaces {
  public:
    void present(const std::uint8_t*, int w, int h, int stride) override {
        std::lock_guard guard(lock);
        ++frames;
        width = w;
        height = h;
        last_stride = stride;
    }
    void clear() override { ++clears; }
    VideoSurface* surface_for(WindowHandle pane) override { return pane == known ? this : nullptr; }
    WindowHandle known = reinterpret_cast<WindowHandle>(0x100);
    std::mutex lock;
    int frames = 0, width = 0, height = 0, last_stride = 0, clears = 0;
};

// Answers the tape-control interfaces as a deck's control object does.
class Control : public media::ExtDevice {
  public:
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::ext_device) {
            add_ref();
            *out = this;
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    std::uint32_t add_ref() override { return ++refs; }
    std::uint32_t release() override { return --refs; }
    HRESULT get_capability(long, long* value, double*) override {
        *value = media::ED_DEVTYPE_VCR;
        return S_OK;
    }
    std::uint32_t refs = 1;
};

// A device whose source is a gst-launch description: a DV "deck" with tape control, or a
// webcam without.
class TestDevice : public SourceDevice {
  public:
    TestDevice(std::string name_, std::string description_, bool deck_)
        : name(std::move(name_)), description(std::move(description_)), deck(deck_) {}
    std::string friendly_name() const override { return name; }
    std::string device_path() const override { return "test:" + name; }
    GstElement* create_source() override {
        GError* error = nullptr;
        GstElement* bin = gst_parse_bin_from_description(description.c_str(), TRUE, &error);
        g_clear_error(&error);
        return bin;
    }
    Unknown* control() override {
        if (!deck)
            return nullptr;
        control_object.add_ref();
        return &control_object;
    }
    std::string name, description;
    bool deck;
    Control control_object;
};

// A deck playing a tape file, or failing when the file is missing.
std::shared_ptr<TestDevice> deck_playing(const std::string& name,
                                         const std::filesystem::path& file) {
    return std::make_shared<TestDevice>(
        name,
        "filesrc blocksize=144000 location=\"" + file.string() +
            "\" ! capsfilter caps=\"video/x-dv,systemstream=(boolean)true\"",
        true);
}

class Provider : public SourceProvider {
  public:
    std::vector<std::shared_ptr<SourceDevice>> devices() override { return list; }
    std::vector<std::shared_ptr<SourceDevice>> list;
};

std::shared_ptr<Provider>& provider() {
    static std::shared_ptr<Provider> p = [] {
        auto made = std::make_shared<Provider>();
        add_source_provider(made);
        return made;
    }();
    return p;
}

template <class T>
struct Ref {
    T* p = nullptr;
    Ref() = default;
    Ref(Ref&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        std::swap(p, other.p);
        return *this;
    }
    ~Ref() {
        if (p)
            p->release();
    }
    T* operator->() const { return p; }
    T** out() { return &p; }
    void** out_void() { return reinterpret_cast<void**>(&p); }
};

// Visits the monikers of `category` in list order until `visit` returns true.
template <class Visit>
void each_moniker(media::MediaFactory& factory, media::DeviceCategory category, Visit visit) {
    Ref<media::CreateDevEnum> devices;
    EXPECT_EQ(factory.create_instance(media::Clsid::system_device_enum, Iid::create_dev_enum,
                                      devices.out_void()),
              S_OK);
    Ref<media::EnumMoniker> monikers;
    if (devices->create_class_enumerator(category, monikers.out(), 0) != S_OK) {
        return;
    }
    for (;;) {
        Ref<media::Moniker> moniker;
        if (monikers->next(moniker.out()) != S_OK || visit(*moniker.p))
            return;
    }
}

// A webcam the device monitor finds: a device provider of the test's own, whose one
// device is a test pattern.
struct KcTestWebcam {
    GstDevice parent;
};
struct KcTestWebcamClass {
    GstDeviceClass parent_class;
};
G_DEFINE_TYPE(KcTestWebcam, kc_test_webcam, GST_TYPE_DEVICE)
void kc_test_webcam_class_init(KcTestWebcamClass* klass) {
    GST_DEVICE_CLASS(klass)->create_element = [](GstDevice*, const gchar* name) {
        return gst_element_factory_make("videotestsrc", name);
    };
}
void kc_test_webcam_init(KcTestWebcam*) {}

struct KcTestWebcams {
    GstDeviceProvider parent;
};
struct KcTestWebcamsClass {
    GstDeviceProviderClass parent_class;
};
G_DEFINE_TYPE(KcTestWebcams, kc_test_webcams, GST_TYPE_DEVICE_PROVIDER)
void kc_test_webcams_class_init(KcTestWebcamsClass* klass) {
    GstDeviceProviderClass* provider = GST_DEVICE_PROVIDER_CLASS(klass);
    provider->probe = [](GstDeviceProvider*) {
        GstCaps* caps = gst_caps_new_empty_simple("video/x-raw");
        GObject* webcam = static_cast<GObject*>(
            g_object_new(kc_test_webcam_get_type(), "display-name", "Test webcam", "device-class",
                         "Video/Source", "caps", caps, nullptr));
        gst_caps_unref(caps);
        return g_list_append(nullptr, webcam);
    };
    gst_device_provider_class_set_static_metadata(provider, "Test webcams", "Video/Source",
                                                  "A webcam for tests", "Kestrel Capture");
}
void kc_test_webcams_init(KcTestWebcams*) {}

std::vector<std::pair<std::string, std::string>> names(media::MediaFactory& factory,
                                                       media::DeviceCategory category) {
    std::vector<std::pair<std::string, std::string>> list;
    each_moniker(factory, category, [&](media::Moniker& moniker) {
        Ref<media::PropertyBag> bag;
        EXPECT_EQ(moniker.bind_to_storage(bag.out()), S_OK);
        std::string name, path;
        EXPECT_EQ(bag->read("FriendlyName", name), S_OK);
        EXPECT_EQ(bag->read("DevicePath", path), S_OK);
        EXPECT_NE(bag->read("NoSuchProperty", path), S_OK);
        list.emplace_back(name, path);
        return false;
    });
    return list;
}

// The filter of the device listed with `path` (a compressor's GStreamer element), or of the
// first one listed (for video inputs, our test provider's device, which heads the list).
Ref<media::BaseFilter> listed_filter(media::MediaFactory& factory, media::DeviceCategory category,
                                     const std::string& path = {}) {
    Ref<media::BaseFilter> filter;
    each_moniker(factory, category, [&](media::Moniker& moniker) {
        Ref<media::PropertyBag> bag;
        std::string listed;
        moniker.bind_to_storage(bag.out());
        if (!path.empty() && (bag->read("DevicePath", listed) != S_OK || listed != path))
            return false;
        moniker.bind_to_object(Iid::base_filter, filter.out_void());
        return true;
    });
    return filter;
}

class GstMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        test::init_gstreamer();
        factory = make_media_factory(host, surfaces);
        if (!test::has_element("avenc_dvvideo") || !test::has_element("dvdemux")) {
            GTEST_SKIP() << "GStreamer DV elements are missing";
        }
        tape = dir / "tape.dv";
        ASSERT_TRUE(test::make_dv_tape(tape, kc::avi::DvSystem::pal_625_50, frames));
        provider()->list = {deck_playing("Test deck", tape)};
    }
    void TearDown() override { provider()->list.clear(); }

    struct Graph {
        Ref<media::GraphBuilder> graph;
        Ref<media::CaptureGraphBuilder> builder;
        Ref<media::BaseFilter> source, mux;
        Ref<media::FileSink> sink;
    };
    // A capture graph holding the provider's device, with the file writer when `file` is set.
    Graph make_graph(const std::filesystem::path& file = {}) {
        Graph g;
        EXPECT_EQ(factory->create_instance(media::Clsid::filter_graph, Iid::graph_builder,
                                           g.graph.out_void()),
                  S_OK);
        EXPECT_EQ(factory->create_instance(media::Clsid::capture_graph_builder,
                                           Iid::capture_graph_builder, g.builder.out_void()),
                  S_OK);
        EXPECT_EQ(g.builder->set_filtergraph(g.graph.p), S_OK);
        g.source = listed_filter(*factory, media::DeviceCategory::video_input);
        EXPECT_NE(g.source.p, nullptr);
        EXPECT_EQ(g.graph->add_filter(g.source.p, "source"), S_OK);
        if (!file.empty()) {
            EXPECT_EQ(g.builder->set_output_file_name(file.string(), g.mux.out(), g.sink.out()),
                      S_OK);
        }
        return g;
    }
    // Runs until the graph reports an event; returns its code.
    long run_to_event(media::GraphBuilder* graph) {
        Ref<media::MediaControl> control;
        Ref<media::MediaEvent> events;
        graph->query_interface(Iid::media_control, control.out_void());
        graph->query_interface(Iid::media_event, events.out_void());
        events->set_notify_window(pane, wm::graph_event, 42);
        EXPECT_TRUE(succeeded(control->run()));
        long code = 0;
        LParam p1 = 0, p2 = 0;
        EXPECT_EQ(events->get_event(&code, &p1, &p2, 60000), S_OK);
        control->stop();
        events->free_event_params(code, p1, p2);
        return code;
    }
    // Visits the connected pins of `filter` with their peers.
    template <class Visit>
    static void each_connection(media::BaseFilter* filter, Visit visit) {
        Ref<media::EnumPins> pins;
        ASSERT_EQ(filter->enum_pins(pins.out()), S_OK);
        for (;;) {
            Ref<media::Pin> pin, peer;
            if (pins->next(pin.out()) != S_OK)
                break;
            if (succeeded(pin->connected_to(peer.out())))
                visit(pin, peer);
        }
    }
    // Tears the graph down as the capture graph layer does, depth first from `filter`.
    void remove_downstream(media::GraphBuilder* graph, media::BaseFilter* filter) {
        each_connection(filter, [&](Ref<media::Pin>& pin, Ref<media::Pin>& peer) {
            media::PinInfo info;
            ASSERT_EQ(peer->query_pin_info(info), S_OK);
            Ref<media::BaseFilter> peer_filter;
            peer_filter.p = info.filter;
            if (info.direction != media::PinDirection::input)
                return;
            remove_downstream(graph, peer_filter.p);
            graph->disconnect(peer.p);
            graph->disconnect(pin.p);
            graph->remove_filter(peer_filter.p);
        });
    }
    int connected_pins(media::BaseFilter* filter) {
        int n = 0;
        each_connection(filter, [&](auto&, auto&) { ++n; });
        return n;
    }

    static constexpr int frames = 40;
    Host host;
    Surface surfaces;
    WindowHandle pane = reinterpret_cast<WindowHandle>(0x100);
    std::unique_ptr<media::MediaFactory> factory;
    test::TempDir dir;
    std::filesystem::path tape;
};

TEST_F(GstMedia, DeviceListsAreStableAndNamedWithTapeUnitsFirst) {
    // The program opens the first device at start: the tape units must come before a
    // webcam, whatever the device monitor finds.
    ASSERT_TRUE(gst_device_provider_register(nullptr, "kctestwebcams", GST_RANK_PRIMARY,
                                             kc_test_webcams_get_type()));
    const auto video = names(*factory, media::DeviceCategory::video_input);
    ASSERT_GE(video.size(), 2u);
    EXPECT_EQ(video.front().first, "Test deck");
    EXPECT_EQ(video.front().second, "test:Test deck");
    EXPECT_EQ(video.back().first, "Test webcam");

    const auto codecs = names(*factory, media::DeviceCategory::video_compressor);
    ASSERT_FALSE(codecs.empty());
    EXPECT_EQ(codecs, names(*factory, media::DeviceCategory::video_compressor));
    EXPECT_TRUE(std::is_sorted(codecs.begin(), codecs.end()));
    for (const auto& [name, path] : codecs) {
        EXPECT_FALSE(name.empty());
        EXPECT_FALSE(path.empty());
    }
    EXPECT_FALSE(names(*factory, media::DeviceCategory::audio_compressor).empty());

    // The provider device's filter hands out its control object's interfaces.
    auto source = listed_filter(*factory, media::DeviceCategory::video_input);
    ASSERT_NE(source.p, nullptr);
    Ref<media::ExtDevice> device;
    ASSERT_EQ(source->query_interface(Iid::ext_device, device.out_void()), S_OK);
    long type = 0;
    device->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &type, nullptr);
    EXPECT_EQ(type, media::ED_DEVTYPE_VCR);
    Ref<media::ExtTransport> transport;
    EXPECT_EQ(source->query_interface(Iid::ext_transport, transport.out_void()), E_NOINTERFACE);
}

TEST_F(GstMedia, DvType1CaptureWithPreviewWritesTheFileAndTearsDownClean) {
    const auto file = dir / "type1.avi";
    auto g = make_graph(file);
    auto &source = g.source, &mux = g.mux;
    std::string cur;
    EXPECT_EQ(g.sink->get_cur_file(cur), S_OK);
    EXPECT_EQ(cur, file.string());
    ASSERT_EQ(g.builder->render_stream(PinCategory::capture, MajorType::interleaved, source.p,
                                       nullptr, mux.p),
              S_OK);
    ASSERT_EQ(g.builder->render_stream(PinCategory::preview, MajorType::interleaved, source.p,
                                       nullptr, nullptr),
              S_OK);
    Ref<media::VideoWindow> window;
    ASSERT_EQ(g.graph->query_interface(Iid::video_window, window.out_void()), S_OK);
    window->put_owner(pane);
    window->set_window_position(0, 0, 320, 240);

    EXPECT_EQ(run_to_event(g.graph.p), media::EC_COMPLETE);
    {
        std::lock_guard guard(host.lock);
        ASSERT_FALSE(host.posts.empty());
        EXPECT_EQ(host.posts[0].window, pane);
        EXPECT_EQ(host.posts[0].message, wm::graph_event);
        EXPECT_EQ(host.posts[0].lparam, 42);
    }
    {
        std::lock_guard guard(surfaces.lock);
        EXPECT_GT(surfaces.frames, 0);
        EXPECT_EQ(surfaces.width, 320);
        EXPECT_EQ(surfaces.height, 240);
        EXPECT_GE(surfaces.last_stride, 320 * 4);
    }
    Ref<media::DroppedFrames> dropped;
    ASSERT_EQ(g.builder->find_interface(PinCategory::capture, MajorType::interleaved, source.p,
                                        Iid::dropped_frames, dropped.out_void()),
              S_OK);
    long delivered = 0, lost = -1;
    dropped->get_num_not_dropped(&delivered);
    dropped->get_num_dropped(&lost);
    EXPECT_GT(delivered, 0);
    EXPECT_EQ(lost, 0);

    auto probe = test::ffprobe(file);
    EXPECT_EQ(probe["streams.stream.0.codec_name"], "dvvideo");
    // One interleaved stream, which readers show as DV video with its audio.
    EXPECT_EQ(probe["streams.stream.1.codec_name"], "pcm_s16le");
    EXPECT_EQ(test::count_packets(file, "v:0"), frames);

    remove_downstream(g.graph.p, source.p);
    EXPECT_EQ(connected_pins(source.p), 0);
    EXPECT_EQ(connected_pins(mux.p), 0);
    Ref<media::BaseFilter> found;
    EXPECT_NE(g.graph->find_filter_by_name("AVI Mux", found.out()), S_OK);
    EXPECT_EQ(g.graph->remove_filter(source.p), S_OK);
}

TEST_F(GstMedia, DvType2CaptureSplitsVideoAndAudio) {
    const auto file = dir / "type2.avi";
    auto g = make_graph(file);
    auto &source = g.source, &mux = g.mux;
    Ref<media::BaseFilter> splitter;
    ASSERT_EQ(
        factory->create_instance(media::Clsid::dv_splitter, Iid::base_filter, splitter.out_void()),
        S_OK);
    ASSERT_EQ(g.graph->add_filter(splitter.p, "DV Splitter"), S_OK);
    Ref<media::ConfigInterleaving> interleaving;
    ASSERT_EQ(mux->query_interface(Iid::config_interleaving, interleaving.out_void()), S_OK);
    EXPECT_EQ(interleaving->put_mode(media::INTERLEAVE_NONE), S_OK);
    ASSERT_EQ(g.builder->render_stream(PinCategory::capture, MajorType::interleaved, source.p,
                                       splitter.p, mux.p),
              S_OK);
    ASSERT_EQ(
        g.builder->render_stream(PinCategory::none, MajorType::none, splitter.p, nullptr, mux.p),
        S_OK);
    EXPECT_EQ(run_to_event(g.graph.p), media::EC_COMPLETE);

    auto probe = test::ffprobe(file);
    EXPECT_EQ(probe["streams.stream.0.codec_name"], "dvvideo");
    EXPECT_EQ(probe["streams.stream.1.codec_name"], "pcm_s16le");
    EXPECT_EQ(probe["streams.stream.1.sample_rate"], "48000");
    EXPECT_EQ(test::count_packets(file, "v:0"), frames);

    remove_downstream(g.graph.p, source.p);
    EXPECT_EQ(connected_pins(splitter.p), 0);
    EXPECT_EQ(connected_pins(mux.p), 0);
}

TEST_F(GstMedia, ASourceThatFailsIsReportedLostWithItsIdentity) {
    provider()->list = {deck_playing("Gone", dir / "missing.dv")};
    auto g = make_graph();
    auto& source = g.source;
    ASSERT_EQ(g.builder->render_stream(PinCategory::preview, MajorType::interleaved, source.p,
                                       nullptr, nullptr),
              S_OK);
    Ref<media::MediaControl> control;
    Ref<media::MediaEvent> events;
    g.graph->query_interface(Iid::media_control, control.out_void());
    g.graph->query_interface(Iid::media_event, events.out_void());
    control->run();
    long code = 0;
    LParam p1 = 0, p2 = 0;
    ASSERT_EQ(events->get_event(&code, &p1, &p2, 60000), S_OK);
    EXPECT_EQ(code, media::EC_DEVICE_LOST);
    void* identity = nullptr;
    source->query_interface(Iid::unknown, &identity);
    EXPECT_EQ(reinterpret_cast<void*>(p1), identity);
    static_cast<Unknown*>(identity)->release();
    events->free_event_params(code, p1, p2);
    control->stop();
    LParam none = 0;
    EXPECT_NE(events->get_event(&code, &none, &p2, 0), S_OK);
}

TEST_F(GstMedia, RawVideoIsCompressedIntoTheFileAndPreviewed) {
    provider()->list = {
        std::make_shared<TestDevice>("Test camera",
                                     "videotestsrc num-buffers=30 ! capsfilter "
                                     "caps=\"video/x-raw,width=320,height=240,framerate=25/1\"",
                                     false)};
    auto encoder = listed_filter(*factory, media::DeviceCategory::video_compressor, "avenc_mpeg4");
    if (encoder.p == nullptr) {
        GTEST_SKIP() << "avenc_mpeg4 is missing";
    }
    const auto file = dir / "raw.avi";
    auto g = make_graph(file);
    auto &source = g.source, &mux = g.mux;
    ASSERT_EQ(g.graph->add_filter(encoder.p, "encoder"), S_OK);
    ASSERT_EQ(g.builder->render_stream(PinCategory::capture, MajorType::video, source.p, encoder.p,
                                       mux.p),
              S_OK);
    ASSERT_EQ(g.builder->render_stream(PinCategory::preview, MajorType::video, source.p, nullptr,
                                       nullptr),
              S_OK);
    // A second preview request has no free pin left.
    EXPECT_FALSE(succeeded(g.builder->render_stream(PinCategory::preview, MajorType::video,
                                                    source.p, nullptr, nullptr)));
    Ref<media::VideoWindow> window;
    g.graph->query_interface(Iid::video_window, window.out_void());
    window->put_owner(pane);
    EXPECT_EQ(run_to_event(g.graph.p), media::EC_COMPLETE);
    {
        std::lock_guard guard(surfaces.lock);
        EXPECT_GT(surfaces.frames, 0);
        // Without a pane size the picture keeps the source's size.
        EXPECT_EQ(surfaces.width, 320);
        EXPECT_EQ(surfaces.height, 240);
    }
    auto probe = test::ffprobe(file);
    EXPECT_EQ(probe["streams.stream.0.codec_name"], "mpeg4");
    EXPECT_EQ(probe["streams.stream.0.width"], "320");
    EXPECT_EQ(test::count_packets(file, "v:0"), 30);

    remove_downstream(g.graph.p, source.p);
    EXPECT_EQ(connected_pins(source.p), 0);
    EXPECT_EQ(connected_pins(encoder.p), 0);
    window->put_owner(nullptr);
    EXPECT_GE(surfaces.clears, 1);
}

TEST(GstMediaProperties, ListsAnElementsSettingsAndAppliesAChange) {
    test::init_gstreamer();
    GstElement* sink = gst_element_factory_make("kestrelavisink", nullptr);
    ASSERT_NE(sink, nullptr);
    gst_object_ref_sink(sink);
    auto find = [&](const std::string& name) {
        for (const auto& p : element_settings(sink)) {
            if (p.name == name)
                return p;
        }
        return PropertyItem{};
    };
    EXPECT_EQ(find("interleave").value, "capture");
    EXPECT_EQ(find("interleave").kind, PropertyItem::Kind::choice);
    const auto choices = find("interleave").choices;
    EXPECT_NE(std::find(choices.begin(), choices.end(), "none-buffered"), choices.end());
    EXPECT_TRUE(find("interleave").writable);
    EXPECT_FALSE(find("frames").writable);
    EXPECT_EQ(find("frames").kind, PropertyItem::Kind::integer);
    EXPECT_TRUE(find("name").name.empty());
    EXPECT_TRUE(apply_element_setting(sink, "interleave", "none-buffered"));
    EXPECT_EQ(find("interleave").value, "none-buffered");
    EXPECT_FALSE(apply_element_setting(sink, "frames", "3"));
    gst_object_unref(sink);
}

}  // namespace
