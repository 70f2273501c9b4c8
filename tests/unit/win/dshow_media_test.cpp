// The DirectShow media platform under Wine: the file end of a capture graph as the core
// asks for it, the identity of objects reached by different ways, the device-lost event
// through the notify window, and the device categories.
#include <gtest/gtest.h>

#include <memory>

#include "graph/stdcap.h"
#include "tests/unit/workflow/temp_dir.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/dshow_media.h"

namespace {

class DshowMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        factory = kc::win::make_media_factory();
    }
    void TearDown() override {
        factory.reset();
        CoUninitialize();
    }
    template <class T>
    ComPtr<T> make(media::Clsid clsid) {
        ComPtr<T> object;
        EXPECT_EQ(factory->create_instance(clsid, T::iid, object.out_void()), S_OK);
        return object;
    }

    std::unique_ptr<media::MediaFactory> factory;
};

// The first output (or input) pin of a filter.
ComPtr<media::Pin> first_pin(media::BaseFilter* filter, media::PinDirection wanted) {
    ComPtr<media::EnumPins> pins;
    EXPECT_EQ(filter->enum_pins(pins.out()), S_OK);
    for (;;) {
        ComPtr<media::Pin> pin;
        if (pins->next(pin.out()) != S_OK) {
            return {};
        }
        media::PinDirection direction{};
        EXPECT_EQ(pin->query_direction(direction), S_OK);
        if (direction == wanted) {
            return pin;
        }
    }
}

}  // namespace

TEST_F(DshowMedia, TheCaptureFileEndIsOneGraphOfObjectsThatKeepTheirIdentity) {
    TempDir dir;
    const std::string path = dir.path() + "\\capture.avi";
    auto graph = make<media::GraphBuilder>(media::Clsid::filter_graph);
    auto builder = make<media::CaptureGraphBuilder>(media::Clsid::capture_graph_builder);
    ASSERT_TRUE(graph.valid() && builder.valid());
    ASSERT_EQ(builder->set_filtergraph(graph.get()), S_OK);

    ComPtr<media::BaseFilter> mux;
    ComPtr<media::FileSink> sink;
    ASSERT_EQ(builder->set_output_file_name(path, mux.out(), sink.out()), S_OK);
    // Wine's builder makes no file end: our writer stands in as multiplexer and file
    // writer in one. It tells its file, takes the interleaving the capture asks for, and
    // is the one object however it is reached: as the sink, as the multiplexer, by name.
    std::string file;
    ASSERT_EQ(sink->get_cur_file(file), S_OK);
    EXPECT_EQ(file, path);
    EXPECT_TRUE(same_object(mux.get(), sink.get()));
    ComPtr<media::ConfigInterleaving> interleaving;
    ASSERT_EQ(query_interface(mux.get(), interleaving), S_OK);
    EXPECT_EQ(interleaving->put_mode(media::INTERLEAVE_NONE), S_OK);
    ComPtr<media::BaseFilter> named;
    ASSERT_EQ(graph->find_filter_by_name("AVI Mux", named.out()), S_OK);
    EXPECT_EQ(named.get(), mux.get()) << "one wrapper per object";
    EXPECT_FALSE(first_pin(mux.get(), media::PinDirection::output).valid())
        << "it writes the file itself";

    // Taken out of the graph and put back, it is found again as the same object.
    ASSERT_EQ(graph->remove_filter(mux.get()), S_OK);
    ASSERT_EQ(graph->add_filter(mux.get(), "writer again"), S_OK);
    ComPtr<media::BaseFilter> found;
    ASSERT_EQ(graph->find_filter_by_name("writer again", found.out()), S_OK);
    EXPECT_EQ(found.get(), mux.get());
}

TEST_F(DshowMedia, ALostDeviceReachesTheNotifyWindowAsTheWrapperOfItsFilter) {
    auto graph = make<media::GraphBuilder>(media::Clsid::filter_graph);
    auto builder = make<media::CaptureGraphBuilder>(media::Clsid::capture_graph_builder);
    ASSERT_EQ(builder->set_filtergraph(graph.get()), S_OK);
    TempDir dir;
    ComPtr<media::BaseFilter> device;
    ComPtr<media::FileSink> sink;
    ASSERT_EQ(builder->set_output_file_name(dir.path() + "\\lost.avi", device.out(), sink.out()),
              S_OK);
    ComPtr<media::MediaEvent> events;
    ASSERT_EQ(query_interface(graph.get(), events), S_OK);

    HWND window =
        CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    ASSERT_NE(window, nullptr);
    constexpr unsigned graph_event = WM_APP + 7;
    ASSERT_EQ(events->set_notify_window(reinterpret_cast<WindowHandle>(window), graph_event, 77),
              S_OK);
    long code = 0;
    LParam param1 = 0, param2 = 0;
    EXPECT_TRUE(FAILED(events->get_event(&code, &param1, &param2, 0))) << "nothing queued yet";

    // A device's driver raises the event with its filter's own IUnknown.
    IMediaEventSink* sink_of_graph = nullptr;
    ASSERT_EQ(kc::win::windows_object(graph.get())
                  ->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink_of_graph)),
              S_OK);
    IUnknown* filter = kc::win::windows_object(device.get());
    ASSERT_NE(filter, nullptr);
    const std::uint32_t refs_before = device->add_ref();
    device->release();
    // Lost, and back (param2 1) before the events are taken.
    ASSERT_EQ(sink_of_graph->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(filter), 0), S_OK);
    ASSERT_EQ(sink_of_graph->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(filter), 1), S_OK);
    sink_of_graph->Release();

    MSG message{};
    ASSERT_TRUE(PeekMessageA(&message, window, graph_event, graph_event, PM_REMOVE));
    EXPECT_EQ(message.lParam, 77);
    for (LParam back : {0, 1}) {
        ASSERT_EQ(events->get_event(&code, &param1, &param2, 0), S_OK);
        EXPECT_EQ(code, EC_DEVICE_LOST);
        EXPECT_EQ(param2, back);
        auto* lost = reinterpret_cast<Unknown*>(param1);
        ASSERT_NE(lost, nullptr);
        EXPECT_TRUE(same_object(lost, device.get()));
    }
    // Both events' parameters go back, whichever order they are freed in.
    EXPECT_EQ(events->free_event_params(code, param1, 0), S_OK);
    EXPECT_EQ(events->free_event_params(code, param1, 1), S_OK);
    EXPECT_TRUE(FAILED(events->get_event(&code, &param1, &param2, 0)));
    EXPECT_EQ(device->add_ref(), refs_before) << "the wrapper holds no reference for an event";
    device->release();
    DestroyWindow(window);
}

TEST_F(DshowMedia, EveryListedDeviceHasANameAndBindsToAFilter) {
    auto devices = make<media::CreateDevEnum>(media::Clsid::system_device_enum);
    ASSERT_TRUE(devices.valid());
    int listed = 0;
    for (auto category :
         {media::DeviceCategory::video_input, media::DeviceCategory::audio_input,
          media::DeviceCategory::video_compressor, media::DeviceCategory::audio_compressor}) {
        ComPtr<media::EnumMoniker> monikers;
        const HRESULT hr = devices->create_class_enumerator(category, monikers.out(), 0);
        ASSERT_TRUE(hr == S_OK || hr == S_FALSE) << hr;
        EXPECT_EQ(hr == S_OK, monikers.valid()) << "an empty category has no enumerator";
        if (!monikers.valid()) {
            continue;
        }
        ComPtr<media::Moniker> moniker;
        while (monikers->next(moniker.out()) == S_OK) {
            ++listed;
            ComPtr<media::PropertyBag> bag;
            ASSERT_EQ(moniker->bind_to_storage(bag.out()), S_OK);
            std::string name;
            ASSERT_EQ(bag->read("FriendlyName", name), S_OK);
            EXPECT_FALSE(name.empty());
            EXPECT_TRUE(FAILED(bag->read("NoSuchProperty", name)));
            ComPtr<media::BaseFilter> filter;
            ASSERT_EQ(moniker->bind_to_object(Iid::base_filter, filter.out_void()), S_OK) << name;
            ComPtr<media::EnumPins> pins;
            EXPECT_EQ(filter->enum_pins(pins.out()), S_OK) << name;
            moniker.reset();
        }
    }
    // Wine lists its codecs, so the loop above has checked something.
    EXPECT_GT(listed, 0);
}
