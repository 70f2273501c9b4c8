#include "platform/win/deck_device.h"

#include <filesystem>
#include <mutex>

#include "deck/deck_setup.h"
#include "platform/win/com_object.h"
#include "platform/win/deck_filter.h"

namespace kc::win {
namespace {

struct OpenedDeck {
    std::shared_ptr<deck::VirtualVcr> vcr;
    std::string label;
    std::string error;
};

const OpenedDeck& opened_deck() {
    static const OpenedDeck opened = [] {
        OpenedDeck deck;
        const auto request = deck::requested_deck();
        if (!request) {
            return deck;
        }
        if (deck::is_demo_tape(request->value)) {
            deck.error =
                "The virtual DV deck's demo tape cannot be made here: name a raw DV "
                "tape file in KESTREL_VIRTUAL_DECK.";
            return deck;
        }
        deck.vcr = deck::open_tape_deck(request->value, request->unpaced, deck.error);
        if (deck.vcr) {
            deck.vcr->set_faults(request->faults);
        }
        deck.label = deck::deck_label(request->value);
        return deck;
    }();
    return opened;
}

// The names in the property bag; the path is what the moniker's display name says too.
std::wstring friendly_name() {
    return std::filesystem::path(deck::deck_friendly_name(opened_deck().label)).wstring();
}
std::wstring device_path() {
    return std::filesystem::path("kestrel-virtual-deck:" + opened_deck().label).wstring();
}

class DeckProperties final : public ComObject<IPropertyBag> {
  public:
    HRESULT STDMETHODCALLTYPE Read(LPCOLESTR name, VARIANT* value, IErrorLog*) override {
        if (name == nullptr || value == nullptr) {
            return E_POINTER;
        }
        const std::wstring wanted = name;
        std::wstring text;
        if (wanted == L"FriendlyName") {
            text = friendly_name();
        } else if (wanted == L"DevicePath") {
            text = device_path();
        } else {
            return E_INVALIDARG;
        }
        VariantClear(value);
        value->vt = VT_BSTR;
        value->bstrVal = SysAllocString(text.c_str());
        return value->bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE Write(LPCOLESTR, VARIANT*) override { return E_ACCESSDENIED; }
};

class DeckMoniker final : public ComObject<IMoniker> {
  public:
    // ---- What the device enumeration's users ask
    HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx*, IMoniker*, REFIID iid, void** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        *out = nullptr;
        const auto vcr = virtual_deck();
        if (!vcr) {
            return E_FAIL;
        }
        DeckFilter* filter = DeckFilter::create(vcr);
        const HRESULT hr = filter->QueryInterface(iid, out);
        filter->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE BindToStorage(IBindCtx*, IMoniker*, REFIID iid, void** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!IsEqualIID(iid, IID_IPropertyBag)) {
            return E_NOINTERFACE;
        }
        *out = static_cast<IPropertyBag*>(new DeckProperties);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx*, IMoniker*, LPOLESTR* name) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        const std::wstring path = device_path();
        const std::size_t bytes = (path.size() + 1) * sizeof(wchar_t);
        *name = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
        if (*name == nullptr) {
            return E_OUTOFMEMORY;
        }
        std::copy(path.c_str(), path.c_str() + path.size() + 1, *name);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsEqual(IMoniker* other) override {
        return other == static_cast<IMoniker*>(this) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Hash(DWORD* hash) override {
        if (hash == nullptr) {
            return E_POINTER;
        }
        *hash = 0x4b444543;  // any fixed value: there is one deck
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsSystemMoniker(DWORD* kind) override {
        if (kind == nullptr) {
            return E_POINTER;
        }
        *kind = MKSYS_NONE;
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override {
        if (clsid == nullptr) {
            return E_POINTER;
        }
        *clsid = clsid_virtual_deck;
        return S_OK;
    }

    // ---- Naming and composing other monikers: nothing a device's moniker is asked for.
    HRESULT STDMETHODCALLTYPE IsDirty() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE Load(IStream*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Save(IStream*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reduce(IBindCtx*, DWORD, IMoniker**, IMoniker**) override {
        return MK_S_REDUCED_TO_SELF;
    }
    HRESULT STDMETHODCALLTYPE ComposeWith(IMoniker*, BOOL, IMoniker**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Enum(BOOL, IEnumMoniker** out) override {
        if (out != nullptr) {
            *out = nullptr;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsRunning(IBindCtx*, IMoniker*, IMoniker*) override {
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetTimeOfLastChange(IBindCtx*, IMoniker*, FILETIME*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Inverse(IMoniker**) override { return MK_E_NOINVERSE; }
    HRESULT STDMETHODCALLTYPE CommonPrefixWith(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RelativePathTo(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ParseDisplayName(IBindCtx*, IMoniker*, LPOLESTR, ULONG*,
                                               IMoniker**) override {
        return E_NOTIMPL;
    }
};

// The system's monikers, then the deck's.
class DeckMonikers final : public ComObject<IEnumMoniker> {
  public:
    // Takes over the reference to `system` (may be null: an empty category).
    explicit DeckMonikers(IEnumMoniker* system) : system_(system) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG count, IMoniker** monikers, ULONG* fetched) override {
        if (monikers == nullptr || (count > 1 && fetched == nullptr)) {
            return E_POINTER;
        }
        ULONG given = 0;
        while (given < count) {
            ULONG got = 0;
            if (system_ != nullptr && !system_done_ &&
                system_->Next(1, &monikers[given], &got) == S_OK && got == 1) {
                ++given;
                continue;
            }
            system_done_ = true;
            if (deck_given_) {
                break;
            }
            monikers[given++] = new DeckMoniker;
            deck_given_ = true;
        }
        if (fetched != nullptr) {
            *fetched = given;
        }
        return given == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        for (ULONG i = 0; i < count; ++i) {
            IMoniker* moniker = nullptr;
            if (Next(1, &moniker, nullptr) != S_OK) {
                return S_FALSE;
            }
            moniker->Release();
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        if (system_ != nullptr) {
            system_->Reset();
        }
        system_done_ = false;
        deck_given_ = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumMoniker**) override { return E_NOTIMPL; }

  private:
    ~DeckMonikers() override {
        if (system_ != nullptr) {
            system_->Release();
        }
    }
    IEnumMoniker* system_;
    bool system_done_ = false;
    bool deck_given_ = false;
};

}  // namespace

std::shared_ptr<deck::VirtualVcr> virtual_deck(std::string* error) {
    const OpenedDeck& deck = opened_deck();
    if (error != nullptr) {
        *error = deck.error;
    }
    return deck.vcr;
}

HRESULT list_virtual_deck(HRESULT system_result, IEnumMoniker** monikers) {
    if (FAILED(system_result) || !virtual_deck()) {
        return system_result;
    }
    *monikers = new DeckMonikers(*monikers);
    return S_OK;
}

}  // namespace kc::win
