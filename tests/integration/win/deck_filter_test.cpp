// The virtual deck filter in Wine's DirectShow: a capture through the program's own graph
// code (deck listed as a video input, capture graph builder, AVI Mux, File Writer) whose
// file is checked frame by frame against the tape; and the device control, the media
// type and the device-lost event through the filter's COM interfaces.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <vector>

#include "deck/deck_setup.h"
#include "deck/vcr_control.h"
#include "graph/capgraph.h"
#include "tests/unit/avi/riff_reader.h"
#include "tests/unit/deck/deck_test_tapes.h"
#include "tests/unit/deck/tape_frames_check.h"
#include "tests/unit/workflow/temp_dir.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/deck_device.h"
#include "platform/win/deck_filter.h"
#include "platform/win/dshow_media.h"

namespace {

using namespace kc::deck;
namespace tapes = kc::deck::testing;

class DeckFilterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }
};

template <class T>
T* query(IUnknown* object, const IID& iid) {
    T* out = nullptr;
    EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(&out)), S_OK);
    return out;
}

struct DeckSearch {
    std::string name;
    int position = 0;
    int found = -1;
};

bool find_deck(media::Moniker* moniker, void* context) {
    auto* search = static_cast<DeckSearch*>(context);
    ComPtr<media::PropertyBag> bag;
    std::string name;
    if (succeeded(moniker->bind_to_storage(bag.out())) &&
        succeeded(bag->read("FriendlyName", name)) && name == search->name) {
        search->found = search->position;
        return false;
    }
    ++search->position;
    return true;
}

}  // namespace

TEST_F(DeckFilterTest, ACaptureFromTheListedDeckHoldsTheTapeFramesInOrder) {
    TempDir dir;
    const TapePlan plan = tapes::small_plan(DvSystem::pal_625_50, 12);
    const std::vector<std::uint8_t> tape = tapes::make_tape_bytes(plan);
    const std::string tape_path = dir.path() + "\\deck tape.dv";
    tapes::write_file_bytes(tape_path, tape);
    ASSERT_EQ(_putenv_s("KESTREL_VIRTUAL_DECK", tape_path.c_str()), 0);
    ASSERT_EQ(_putenv_s("KESTREL_VIRTUAL_DECK_UNPACED", "1"), 0);
    const auto vcr = kc::win::virtual_deck();
    ASSERT_TRUE(vcr);
    // Some of the frames are lost on the way, as on a busy bus: they must be missing from
    // the file and counted, and the rest must be there in order.
    vcr->set_faults(VcrFaults{false, false, false, 9});

    auto factory = kc::win::make_media_factory();
    const std::string avi = dir.path() + "\\capture.avi";
    {
        CapGraph graph(*factory);
        // Listed after the system's own devices, under the name the other platforms use.
        DeckSearch search{deck_friendly_name(deck_label(tape_path))};
        graph.enum_devices(media::DeviceCategory::video_input, find_deck, &search);
        ASSERT_GE(search.found, 0) << "the deck is not listed";
        graph.source = graph.get_filter(media::DeviceCategory::video_input, search.found);
        graph.add_filter(graph.source.get());
        graph.set_output_file(avi);
        // Only the capture stream is rendered: the builder finds the source's pin by its
        // category.
        ASSERT_EQ(
            graph.builder->render_stream(media::PinCategory::capture, media::MajorType::interleaved,
                                         graph.source.get(), nullptr, graph.avimux.get()),
            S_OK);
        ComPtr<media::ExtTransport> transport;
        ASSERT_EQ(query_interface(graph.source.get(), transport), S_OK);
        ASSERT_EQ(transport->put_mode(ED_MODE_PLAY), S_OK);

        ComPtr<media::MediaControl> control;
        ComPtr<media::MediaEvent> events;
        ASSERT_EQ(query_interface(graph.graph.get(), control), S_OK);
        ASSERT_EQ(query_interface(graph.graph.get(), events), S_OK);
        ASSERT_TRUE(succeeded(control->run()));
        // The tape's end ends the stream, and the file writer then completes the graph.
        bool complete = false;
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!complete && std::chrono::steady_clock::now() < give_up) {
            long code = 0;
            LParam p1 = 0, p2 = 0;
            if (succeeded(events->get_event(&code, &p1, &p2, 200))) {
                complete = code == EC_COMPLETE;
                EXPECT_NE(code, EC_ERRORABORT);
                events->free_event_params(code, p1, p2);
            }
        }
        EXPECT_TRUE(complete);

        // The counters as the program finds them: through the builder, by the pin's category.
        ComPtr<media::DroppedFrames> dropped;
        ASSERT_EQ(graph.builder->find_interface(media::PinCategory::capture,
                                                media::MajorType::interleaved, graph.source.get(),
                                                Iid::dropped_frames, dropped.out_void()),
                  S_OK);
        ASSERT_TRUE(succeeded(control->stop()));
        long lost = 0, kept = 0;
        ASSERT_EQ(dropped->get_num_dropped(&lost), S_OK);
        ASSERT_EQ(dropped->get_num_not_dropped(&kept), S_OK);
        EXPECT_GT(lost, 0);

        const std::vector<std::uint8_t> bytes = tapes::read_file_bytes(avi);
        const auto header = kc::avi::test::read_avi(bytes);
        // One DV stream, as the camera gives it.
        ASSERT_EQ(header.streams.size(), 1u);
        EXPECT_EQ(header.streams[0].handler, "dvsd");
        std::vector<const kc::avi::test::Chunk*> frames;
        for (const char* id : {"00db", "00dc", "00iv", "00__"}) {
            if (frames.empty()) {
                frames = kc::avi::test::movi_chunks(header.top, id);
            }
        }
        ASSERT_EQ(static_cast<long>(frames.size()), kept);
        EXPECT_EQ(frames.size() + static_cast<std::size_t>(lost),
                  static_cast<std::size_t>(plan.total_frames()))
            << "every tape frame is in the file or counted lost";
        tapes::expect_tape_frames(bytes, frames, tape, plan);
        graph.teardown();
    }
}

TEST_F(DeckFilterTest, TheFilterAnswersTheDeviceControlAndReportsTheLostDevice) {
    const TapePlan plan = tapes::small_plan(DvSystem::ntsc_525_60, 10);
    auto clock = std::make_shared<ManualClock>();
    clock->set_auto_advance(true);
    VcrOptions options;
    options.pacing = Pacing::unpaced;
    auto vcr = make_vcr(tapes::make_tape(plan), clock, options);
    auto* deck_filter = kc::win::DeckFilter::create(vcr);
    IBaseFilter* filter = deck_filter;

    // Device and transport, as the DV device control asks them.
    auto* device = query<IAMExtDevice>(filter, IID_IAMExtDevice);
    auto* transport = query<IAMExtTransport>(filter, IID_IAMExtTransport);
    auto* reader = query<IAMTimecodeReader>(filter, IID_IAMTimecodeReader);
    LONG value = 0;
    double unused = 0;
    ASSERT_EQ(device->GetCapability(ED_DEVCAP_NORMAL_RATE, &value, &unused), S_OK);
    EXPECT_EQ(value, ED_RATE_2997);
    ASSERT_EQ(device->GetCapability(ED_DEVCAP_DEVICE_TYPE, &value, &unused), S_OK);
    EXPECT_EQ(value, ED_DEVTYPE_VCR);
    ASSERT_EQ(transport->put_Mode(ED_MODE_PLAY), S_OK);
    ASSERT_EQ(transport->GetStatus(ED_MODE_PLAY, &value), S_OK);
    EXPECT_EQ(value, OATRUE);

    // The raw seek returns when the tape is there, paused on the sought frame.
    const std::int64_t target = 17;
    auto command = tapes::atn_seek_command(target * tracks_per_frame(plan.system));
    LONG length = static_cast<LONG>(command.size());
    ASSERT_EQ(transport->GetTransportBasicParameters(media::ED_RAW_EXT_DEV_CMD, &length,
                                                     reinterpret_cast<LPOLESTR*>(command.data())),
              S_OK);
    EXPECT_EQ(command[0], avc_accepted);
    ASSERT_EQ(transport->GetStatus(ED_MODE, &value), S_OK);
    EXPECT_EQ(value, ED_MODE_FREEZE);
    TIMECODE_SAMPLE sample{};
    sample.dwFlags = ED_DEVCAP_TIMECODE_READ;
    ASSERT_EQ(reader->GetTimecode(&sample), S_OK);
    EXPECT_EQ(sample.timecode.dwFrames, to_bcd_word(plan_frame(plan, target).timecode));
    sample.dwFlags = media::ED_DEVCAP_ATN_READ;
    ASSERT_EQ(reader->GetTimecode(&sample), S_OK);
    EXPECT_EQ(static_cast<std::int64_t>(sample.timecode.dwFrames),
              target * tracks_per_frame(plan.system));

    // One output pin of the capture category, offering the tape's DV type.
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    IPin* pin = nullptr;
    ASSERT_EQ(pins->Next(1, &pin, nullptr), S_OK);
    IPin* more = nullptr;
    EXPECT_EQ(pins->Next(1, &more, nullptr), S_FALSE);
    pins->Release();
    auto* properties = query<IKsPropertySet>(pin, IID_IKsPropertySet);
    GUID category{};
    DWORD returned = 0;
    ASSERT_EQ(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0, &category,
                              sizeof(category), &returned),
              S_OK);
    EXPECT_TRUE(IsEqualGUID(category, PIN_CATEGORY_CAPTURE));
    properties->Release();
    // Interleaved DV among its types: the one a DV device gives.
    IEnumMediaTypes* types = nullptr;
    ASSERT_EQ(pin->EnumMediaTypes(&types), S_OK);
    AM_MEDIA_TYPE* type = nullptr;
    bool interleaved = false;
    while (types->Next(1, &type, nullptr) == S_OK) {
        EXPECT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_dvsd));
        EXPECT_EQ(type->lSampleSize, frame_bytes(plan.system));
        if (IsEqualGUID(type->majortype, MEDIATYPE_Interleaved)) {
            interleaved = true;
            EXPECT_TRUE(IsEqualGUID(type->formattype, FORMAT_DvInfo));
            EXPECT_EQ(type->cbFormat, sizeof(DVINFO));
            const auto* info = reinterpret_cast<const DVINFO*>(type->pbFormat);
            EXPECT_EQ(info->dwDVVAuxSrc & (1u << 21), 0u) << "the 50/60 flag says 525-60";
        }
        CoTaskMemFree(type->pbFormat);
        CoTaskMemFree(type);
    }
    types->Release();
    EXPECT_TRUE(interleaved);

    // Streaming into a graph, the deck goes away: the graph hears it from the filter,
    // named by its own identity.
    IGraphBuilder* graph = nullptr;
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                               reinterpret_cast<void**>(&graph)),
              S_OK);
    // Wine's null renderer, which takes any type.
    constexpr CLSID null_renderer = {
        0xc1f400a4, 0x3f08, 0x11d3, {0x9f, 0x0b, 0x00, 0x60, 0x08, 0x03, 0x9e, 0x37}};
    IBaseFilter* sink = nullptr;
    ASSERT_EQ(CoCreateInstance(null_renderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                               reinterpret_cast<void**>(&sink)),
              S_OK);
    ASSERT_EQ(graph->AddFilter(filter, L"deck"), S_OK);
    ASSERT_EQ(graph->AddFilter(sink, L"sink"), S_OK);
    IEnumPins* sink_pins = nullptr;
    IPin* input = nullptr;
    ASSERT_EQ(sink->EnumPins(&sink_pins), S_OK);
    ASSERT_EQ(sink_pins->Next(1, &input, nullptr), S_OK);
    sink_pins->Release();
    ASSERT_EQ(graph->ConnectDirect(pin, input, nullptr), S_OK);
    vcr->set_faults(VcrFaults{true, false, false, 0});
    auto* control = query<IMediaControl>(graph, IID_IMediaControl);
    auto* events = query<IMediaEvent>(graph, IID_IMediaEvent);
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    // The graph has its own news first (the clock it chose); Wine's queue may also answer
    // "nothing" before the time is out.
    long code = 0;
    LONG_PTR p1 = 0, p2 = 0;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (code != EC_DEVICE_LOST && std::chrono::steady_clock::now() < give_up) {
        events->FreeEventParams(code, p1, p2);
        code = 0;
        p1 = p2 = 0;
        (void)events->GetEvent(&code, &p1, &p2, 200);
    }
    ASSERT_EQ(code, EC_DEVICE_LOST);
    IUnknown* identity = nullptr;
    ASSERT_EQ(filter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)), S_OK);
    EXPECT_EQ(reinterpret_cast<IUnknown*>(p1), identity);
    EXPECT_EQ(p2, 0);
    identity->Release();
    events->FreeEventParams(code, p1, p2);
    EXPECT_EQ(control->Stop(), S_OK);

    events->Release();
    control->Release();
    input->Release();
    sink->Release();
    graph->Release();
    pin->Release();
    reader->Release();
    transport->Release();
    device->Release();
    filter->Release();
}
