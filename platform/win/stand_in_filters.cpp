#include "platform/win/stand_in_filters.h"

#include <future>
#include <mutex>
#include <span>
#include <thread>

#include "platform/win/com_object.h"
#include "platform/win/dv_decoder_filter.h"
#include "platform/win/dv_splitter_filter.h"

namespace kc::win {
namespace {

// Ours, never the system's: a registry that has both keeps them apart.
constexpr CLSID splitter_clsid = {
    0xa35e4367, 0x503d, 0x480f, {0x91, 0x2e, 0xd5, 0x84, 0xb5, 0x28, 0xe6, 0xa8}};
constexpr CLSID decoder_clsid = {
    0x36a0d76f, 0xabd6, 0x4712, {0xb7, 0x96, 0x6c, 0xf5, 0xff, 0xef, 0xde, 0x94}};

class StandInFactory final : public ComObject<IClassFactory> {
  public:
    explicit StandInFactory(IBaseFilter* (*make)()) : make(make) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        *out = nullptr;
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        IBaseFilter* filter = make();
        if (filter == nullptr) {
            return E_OUTOFMEMORY;
        }
        const HRESULT hr = filter->QueryInterface(iid, out);
        filter->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

  private:
    IBaseFilter* (*const make)();
};

bool system_has(const CLSID& clsid) {
    IUnknown* object = nullptr;
    if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                reinterpret_cast<void**>(&object)))) {
        return false;
    }
    object->Release();
    return true;
}

// The class object for this process (COM keeps it while registered), and the filter's
// pins in the mapper, which intelligent connect reads.
void register_stand_in(const CLSID& clsid, const wchar_t* name, IBaseFilter* (*make)(),
                       const REGFILTER2& pins) {
    auto* factory = new StandInFactory(make);
    DWORD cookie = 0;
    const HRESULT hr =
        CoRegisterClassObject(clsid, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
    factory->Release();
    if (FAILED(hr)) {
        return;
    }
    IFilterMapper2* mapper = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IFilterMapper2, reinterpret_cast<void**>(&mapper)))) {
        mapper->RegisterFilter(clsid, name, nullptr, &CLSID_LegacyAmFilterCategory, nullptr, &pins);
        mapper->Release();
    }
}

void register_all() {
    static const REGPINTYPES interleaved_dv{&MEDIATYPE_Interleaved, &MEDIASUBTYPE_dvsd};
    static const REGPINTYPES video_dv{&MEDIATYPE_Video, &MEDIASUBTYPE_dvsd};
    static const REGPINTYPES pcm{&MEDIATYPE_Audio, &MEDIASUBTYPE_PCM};
    static const REGPINTYPES rgb32{&MEDIATYPE_Video, &MEDIASUBTYPE_RGB32};
    static const REGFILTERPINS2 splitter_pins[] = {
        {0, 1, 1, &interleaved_dv, 0, nullptr, nullptr},
        {REG_PINFLAG_B_OUTPUT, 1, 1, &video_dv, 0, nullptr, nullptr},
        {REG_PINFLAG_B_OUTPUT, 1, 1, &pcm, 0, nullptr, nullptr},
    };
    static const REGFILTERPINS2 decoder_pins[] = {
        {0, 1, 1, &video_dv, 0, nullptr, nullptr},
        {REG_PINFLAG_B_OUTPUT, 1, 1, &rgb32, 0, nullptr, nullptr},
    };
    struct StandIn {
        const CLSID& system;
        const CLSID& ours;
        const wchar_t* name;
        IBaseFilter* (*make)();
        std::span<const REGFILTERPINS2> pins;
    };
    const StandIn stand_ins[] = {
        {CLSID_DVSplitter, splitter_clsid, L"DV Splitter", &make_dv_splitter, splitter_pins},
        {CLSID_DVVideoCodec, decoder_clsid, L"DV Video Decoder", &make_dv_decoder, decoder_pins},
    };
    for (const StandIn& stand_in : stand_ins) {
        if (system_has(stand_in.system)) {
            continue;
        }
        REGFILTER2 data{};
        data.dwVersion = 2;
        data.dwMerit = MERIT_NORMAL;
        data.cPins2 = static_cast<ULONG>(stand_in.pins.size());
        data.rgPins2 = stand_in.pins.data();
        register_stand_in(stand_in.ours, stand_in.name, stand_in.make, data);
    }
}

}  // namespace

void register_stand_in_dv_filters() {
    static std::once_flag once;
    std::call_once(once, [] {
        // A class object is found only from the apartment that registered it, and the
        // filter graph makes the filters it connects on a thread of its own, in the
        // multithreaded apartment: they are registered from there, by a thread that stays
        // in it for the rest of the run so that the registrations last.
        std::promise<void> registered;
        std::future<void> done = registered.get_future();
        std::thread([&registered] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            register_all();
            registered.set_value();
            for (;;) {
                Sleep(INFINITE);
            }
        }).detach();
        done.wait();
    });
}

}  // namespace kc::win
