// The COM base: one identity, each listed interface and its bases through the right
// table, nothing else, and the object gone with its last reference.
#include <gtest/gtest.h>

// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/com_object.h"

namespace kc::win {
template <>
struct com_bases<IPersistStream> {
    using type = com_base_list<IPersist>;
};
}  // namespace kc::win

namespace {

// Two unrelated interfaces, one with a base of its own.
class Probe : public kc::win::ComObject<IPersistStream, IAMTimecodeReader> {
  public:
    explicit Probe(bool& gone_) : gone(gone_) {}

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* id) override {
        *id = IID_IPersist;  // any identity the test can tell from the others
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsDirty() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE Load(IStream*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Save(IStream*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetTCRMode(LONG, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetTCRMode(LONG, LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_VITCLine(LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_VITCLine(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTimecode(PTIMECODE_SAMPLE sample) override {
        sample->timecode.dwFrames = 0x00102520;
        return S_OK;
    }

  private:
    ~Probe() override { gone = true; }
    bool& gone;
};

template <class I>
I* ask(IUnknown* object, const IID& iid) {
    void* out = reinterpret_cast<void*>(1);
    const HRESULT hr = object->QueryInterface(iid, &out);
    EXPECT_EQ(hr == S_OK, out != nullptr);
    return static_cast<I*>(out);
}

}  // namespace

TEST(ComObject, AnswersItsInterfacesWithOneIdentityAndGoesWithItsLastReference) {
    bool gone = false;
    auto* probe = new Probe(gone);
    IPersistStream* stream = probe;
    IAMTimecodeReader* reader = probe;

    IUnknown* identity = ask<IUnknown>(reader, IID_IUnknown);
    IUnknown* identity_again = ask<IUnknown>(stream, IID_IUnknown);
    EXPECT_EQ(identity, identity_again);
    EXPECT_EQ(identity, static_cast<IUnknown*>(stream));

    // Each interface through its own table: the call lands in the method it names.
    auto* asked_reader = ask<IAMTimecodeReader>(identity, IID_IAMTimecodeReader);
    ASSERT_NE(asked_reader, nullptr);
    TIMECODE_SAMPLE sample{};
    EXPECT_EQ(asked_reader->GetTimecode(&sample), S_OK);
    EXPECT_EQ(sample.timecode.dwFrames, 0x00102520u);
    auto* persist = ask<IPersist>(reader, IID_IPersist);
    ASSERT_NE(persist, nullptr);
    CLSID id{};
    EXPECT_EQ(persist->GetClassID(&id), S_OK);
    EXPECT_TRUE(IsEqualIID(id, IID_IPersist));
    EXPECT_EQ(ask<IAMExtTransport>(stream, IID_IAMExtTransport), nullptr);
    EXPECT_EQ(ask<IBaseFilter>(reader, IID_IBaseFilter), nullptr);
    EXPECT_EQ(probe->QueryInterface(IID_IUnknown, nullptr), E_POINTER);

    // The creator's reference and the four the questions gave.
    for (IUnknown* held : {static_cast<IUnknown*>(asked_reader), static_cast<IUnknown*>(persist),
                           identity_again, identity}) {
        held->Release();
        EXPECT_FALSE(gone);
    }
    EXPECT_EQ(probe->AddRef(), 2u);
    EXPECT_EQ(probe->Release(), 1u);
    EXPECT_FALSE(gone);
    EXPECT_EQ(reader->Release(), 0u);
    EXPECT_TRUE(gone);
}
