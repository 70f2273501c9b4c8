// The fakes the foundation tests need: a dialog host and system services, installed as
// `instance`. These tests never reach the settings store or the media layer, so those
// two refuse every call.
#pragma once

#include "platform/media.h"
#include "platform/settings_store.h"
#include "tests/fakes/fake_platform.h"

struct RefusingStore : SettingsStore {
    HRESULT create_key(const std::string&, StoreKey*) override { return E_FAIL; }
    HRESULT query_value(StoreKey, const std::string&, void*, std::uint32_t*) override {
        return E_FAIL;
    }
    HRESULT set_value(StoreKey, const std::string&, RegType, const void*, std::uint32_t) override {
        return E_FAIL;
    }
    void close_key(StoreKey) override {}
};

struct RefusingMedia : media::MediaFactory {
    HRESULT create_instance(media::Clsid, Iid, void**) override { return E_NOTIMPL; }
    HRESULT create_property_frame(WindowHandle, const std::string&, Unknown*,
                                  const std::vector<media::Guid>&) override {
        return E_NOTIMPL;
    }
};

struct FoundationPlatform {
    FakeDialogHost host;
    FakeSystem system;
    RefusingStore store;
    RefusingMedia media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
};
