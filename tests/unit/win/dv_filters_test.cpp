// Our DV Splitter and DV decoder under Wine, which has neither: a frame pushed into the
// input pin comes out of the splitter unchanged as video and as the portable reader's
// sound, and out of the decoder as the DC picture, bottom row first.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dv/dv_audio.h"
#include "dv/dv_small_image.h"
#include "tests/unit/deck/deck_test_tapes.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/dshow_media.h"
#include "platform/win/dv_decoder_filter.h"
#include "platform/win/dv_splitter_filter.h"
#include "platform/win/push_filter.h"

namespace {

using kc::win::ComObject;

// Both ends of the filter under test: as upstream it is only a connector; as downstream
// it takes what it is offered and keeps every sample.
class TestPin : public ComObject<IPin, IMemInputPin> {
  public:
    explicit TestPin(PIN_DIRECTION direction) : direction_(direction) {}

    std::vector<std::vector<BYTE>> samples;
    std::vector<REFERENCE_TIME> starts;
    int ends = 0;
    AM_MEDIA_TYPE type{};

    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* mt) override {
        peer_ = connector;
        kc::win::copy_media_type(*mt, type);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        peer_ = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override {
        *pin = peer_;
        return peer_ != nullptr ? (peer_->AddRef(), S_OK) : VFW_E_NOT_CONNECTED;
    }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* mt) override {
        kc::win::copy_media_type(type, *mt);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override {
        *info = PIN_INFO{};
        info->dir = direction_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override {
        *direction = direction_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        ++ends;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator**) override { return VFW_E_NO_ALLOCATOR; }
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator*, BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* sample) override {
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        samples.emplace_back(data, data + sample->GetActualDataLength());
        REFERENCE_TIME start = -1;
        REFERENCE_TIME stop = -1;
        sample->GetTime(&start, &stop);
        starts.push_back(start);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample**, long, long*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_FALSE; }

  private:
    ~TestPin() override { kc::win::free_media_type(type); }
    PIN_DIRECTION direction_;
    IPin* peer_ = nullptr;  // not counted: the test holds both ends
};

IPin* find_pin(IBaseFilter* filter, const wchar_t* id) {
    IPin* pin = nullptr;
    EXPECT_EQ(filter->FindPin(id, &pin), S_OK) << id;
    return pin;
}

// A dvsd type as the upstream end offers it, over a format block the caller keeps.
AM_MEDIA_TYPE dvsd_type(const GUID& major, const GUID& format_type, void* format, ULONG size) {
    AM_MEDIA_TYPE type{};
    type.majortype = major;
    type.subtype = MEDIASUBTYPE_dvsd;
    type.formattype = format_type;
    type.cbFormat = size;
    type.pbFormat = static_cast<BYTE*>(format);
    return type;
}

// Pushes `frame` into `input` as one sample starting at `start`.
HRESULT push(IPin* input, const std::vector<std::uint8_t>& frame, REFERENCE_TIME start) {
    IMemAllocator* allocator = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IMemAllocator, reinterpret_cast<void**>(&allocator)),
              S_OK);
    ALLOCATOR_PROPERTIES want{1, static_cast<long>(frame.size()), 1, 0};
    ALLOCATOR_PROPERTIES got{};
    allocator->SetProperties(&want, &got);
    allocator->Commit();
    IMediaSample* sample = nullptr;
    allocator->GetBuffer(&sample, nullptr, nullptr, 0);
    BYTE* data = nullptr;
    sample->GetPointer(&data);
    std::memcpy(data, frame.data(), frame.size());
    sample->SetActualDataLength(static_cast<long>(frame.size()));
    REFERENCE_TIME stop = start + 400'000;
    sample->SetTime(&start, &stop);
    IMemInputPin* mem = nullptr;
    input->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&mem));
    const HRESULT hr = mem->Receive(sample);
    mem->Release();
    sample->Release();
    allocator->Decommit();
    allocator->Release();
    return hr;
}

class DvFilters : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }
};

TEST_F(DvFilters, SplitterSendsTheFrameOnAndItsSound) {
    using namespace kc::dv;
    auto frame = kc::deck::testing::make_frame(DvSystem::pal_625_50);
    const AudioFormat format{32000, AudioQuantization::nonlinear_12, 1280, 2, true};
    std::vector<std::int16_t> sound(2 * 1280);
    for (std::size_t i = 0; i < sound.size(); ++i) {
        sound[i] = static_cast<std::int16_t>(i % 2 == 0 ? 40 * i : -20 * i);
    }
    write_audio(frame, DvSystem::pal_625_50, format, sound);
    std::vector<std::int16_t> expected;
    ASSERT_TRUE(read_audio(frame, DvSystem::pal_625_50, expected));

    IBaseFilter* splitter = kc::win::make_dv_splitter();
    IPin* input = find_pin(splitter, L"Input");
    IPin* video = find_pin(splitter, L"DVVidOut0");
    IPin* audio = find_pin(splitter, L"AudOut00");
    auto* source = new TestPin(PINDIR_OUTPUT);
    auto* video_sink = new TestPin(PINDIR_INPUT);
    auto* audio_sink = new TestPin(PINDIR_INPUT);

    // The DVINFO of a 625-50 tape with 32 kHz 12-bit sound, 1280 samples a frame: the
    // AAUX source pack's PC1..PC4 (AF_SIZE 16; two channels per block; 625-50; 32 kHz,
    // 12-bit), the VAUX source pack's 50/60 flag.
    DVINFO info{};
    info.dwDVAAuxSrc = 0x91A0B010;
    info.dwDVVAuxSrc = 0x00200000;
    AM_MEDIA_TYPE interleaved = dvsd_type(MEDIATYPE_Interleaved, FORMAT_DvInfo, &info, sizeof info);
    ASSERT_EQ(input->ReceiveConnection(source, &interleaved), S_OK);
    ASSERT_EQ(video->Connect(video_sink, nullptr), S_OK);
    ASSERT_EQ(audio->Connect(audio_sink, nullptr), S_OK);

    ASSERT_TRUE(IsEqualGUID(video_sink->type.subtype, MEDIASUBTYPE_dvsd));
    const auto* vih = reinterpret_cast<const VIDEOINFOHEADER*>(video_sink->type.pbFormat);
    EXPECT_EQ(vih->bmiHeader.biHeight, 576);
    EXPECT_EQ(vih->AvgTimePerFrame, 400'000);
    ASSERT_TRUE(IsEqualGUID(audio_sink->type.formattype, FORMAT_WaveFormatEx));
    const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(audio_sink->type.pbFormat);
    EXPECT_EQ(wave->nSamplesPerSec, 32000u);
    EXPECT_EQ(wave->nChannels, 2);
    EXPECT_EQ(wave->wBitsPerSample, 16);

    EXPECT_EQ(push(input, frame, 0), VFW_E_WRONG_STATE);  // stopped
    ASSERT_EQ(splitter->Pause(), S_OK);
    ASSERT_EQ(push(input, frame, 800'000), S_OK);
    EXPECT_EQ(input->EndOfStream(), S_OK);
    ASSERT_EQ(video_sink->samples.size(), 1u);
    EXPECT_EQ(video_sink->samples[0], std::vector<BYTE>(frame.begin(), frame.end()));
    ASSERT_EQ(audio_sink->samples.size(), 1u);
    ASSERT_EQ(audio_sink->samples[0].size(), expected.size() * 2);
    EXPECT_EQ(std::memcmp(audio_sink->samples[0].data(), expected.data(), expected.size() * 2), 0);
    EXPECT_EQ(video_sink->starts[0], 800'000);
    EXPECT_EQ(audio_sink->starts[0], 800'000);
    EXPECT_EQ(video_sink->ends + audio_sink->ends, 2);

    EXPECT_EQ(splitter->Stop(), S_OK);
    EXPECT_EQ(video->Disconnect(), S_OK);
    for (IUnknown* p : {static_cast<IUnknown*>(input), static_cast<IUnknown*>(video),
                        static_cast<IUnknown*>(audio), static_cast<IUnknown*>(splitter)}) {
        p->Release();
    }
    for (TestPin* pin : {source, video_sink, audio_sink}) {
        pin->Release();
    }
}

TEST_F(DvFilters, DecoderGivesTheDcPictureBottomUp) {
    using namespace kc::dv;
    auto frame = kc::deck::testing::make_frame(DvSystem::ntsc_525_60);
    // Some DC coefficients off grey, so that rows and colours can be told apart.
    for (std::size_t at = 6 * dif_block_bytes; at < frame.size(); at += 7 * dif_block_bytes + 3) {
        if ((frame[at - at % dif_block_bytes] >> 5) == 4) {
            frame[at] = static_cast<std::uint8_t>(at);
        }
    }
    const auto image = decode_small_image(frame, DvSystem::ntsc_525_60);
    const auto rgb = to_rgb24(*image);

    IBaseFilter* decoder = kc::win::make_dv_decoder();
    IPin* input = find_pin(decoder, L"XForm In");
    IPin* output = find_pin(decoder, L"XForm Out");
    auto* source = new TestPin(PINDIR_OUTPUT);
    auto* sink = new TestPin(PINDIR_INPUT);
    VIDEOINFOHEADER in_format{};
    in_format.AvgTimePerFrame = 333'667;
    in_format.bmiHeader.biWidth = 720;
    in_format.bmiHeader.biHeight = 480;
    AM_MEDIA_TYPE dvsd = dvsd_type(MEDIATYPE_Video, FORMAT_VideoInfo, &in_format, sizeof in_format);
    ASSERT_EQ(input->ReceiveConnection(source, &dvsd), S_OK);
    ASSERT_EQ(output->Connect(sink, nullptr), S_OK);
    ASSERT_TRUE(IsEqualGUID(sink->type.subtype, MEDIASUBTYPE_RGB32));
    const auto* vih = reinterpret_cast<const VIDEOINFOHEADER*>(sink->type.pbFormat);
    ASSERT_EQ(vih->bmiHeader.biWidth, 90);
    ASSERT_EQ(vih->bmiHeader.biHeight, 60);

    ASSERT_EQ(decoder->Run(0), S_OK);
    ASSERT_EQ(push(input, frame, 0), S_OK);
    ASSERT_EQ(sink->samples.size(), 1u);
    ASSERT_EQ(sink->samples[0].size(), 90u * 60 * 4);
    for (std::size_t y = 0; y < 60; ++y) {
        for (std::size_t x = 0; x < 90; ++x) {
            const BYTE* bgrx = sink->samples[0].data() + ((59 - y) * 90 + x) * 4;
            const std::uint8_t* want = rgb.data() + (y * 90 + x) * 3;
            ASSERT_EQ(bgrx[0], want[2]) << x << "," << y;
            ASSERT_EQ(bgrx[1], want[1]) << x << "," << y;
            ASSERT_EQ(bgrx[2], want[0]) << x << "," << y;
        }
    }
    EXPECT_EQ(decoder->Stop(), S_OK);
    input->Release();
    output->Release();
    decoder->Release();
    source->Release();
    sink->Release();
}

// The media factory gives ours where the system has no DV Splitter.
TEST_F(DvFilters, FactoryFallsBackToOurSplitter) {
    auto factory = kc::win::make_media_factory();
    void* splitter = nullptr;
    ASSERT_EQ(factory->create_instance(media::Clsid::dv_splitter, Iid::base_filter, &splitter),
              S_OK);
    ASSERT_NE(splitter, nullptr);
    static_cast<Unknown*>(splitter)->release();
}

}  // namespace
