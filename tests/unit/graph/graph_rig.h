// What the capture graph tests share: the fake platform installed as `instance`, and a
// check that an operation raised the right ComError.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/errors.h"
#include "graph/capgraph.h"
#include "platform/settings_store.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_system.h"

// The graph layer never reads settings.
struct NoSettings : SettingsStore {
    HRESULT create_key(const std::string&, StoreKey*) override { return E_FAIL; }
    HRESULT query_value(StoreKey, const std::string&, void*, std::uint32_t*) override {
        return E_FAIL;
    }
    HRESULT set_value(StoreKey, const std::string&, RegType, const void*, std::uint32_t) override {
        return E_FAIL;
    }
    void close_key(StoreKey) override {}
};

struct GraphPlatform {
    FakeDialogHost host;
    FakeSystem system;
    NoSettings settings;
    FakeMediaFactory media;
    CapPlatform platform{host, system, settings, media};
    ScopedInstance scoped{platform};
};

// Runs `operation`, which must raise a ComError with `code` and `hr`; deletes it.
template <class F>
::testing::AssertionResult raises(F&& operation, int code, HRESULT hr) {
    try {
        operation();
    } catch (ComError* e) {
        const std::unique_ptr<ComError> owned(e);
        if (e->code == code && e->hr == hr) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure()
               << "raised code " << e->code << " (" << e->text << ") with hr " << e->hr
               << ", expected code " << code << " (" << error_texts[code] << ") with hr " << hr;
    }
    return ::testing::AssertionFailure() << "nothing raised, expected code " << code;
}

using Strings = std::vector<std::string>;

// The application's connect step: the video input at `video` and, when `audio` is not
// negative, the audio input at that index, each added to the graph.
inline void connect_sources(CapGraph& graph, int video, int audio = -1) {
    graph.source = graph.get_filter(media::DeviceCategory::video_input, video);
    graph.add_filter(graph.source.get());
    if (audio >= 0) {
        graph.audio_source = graph.get_filter(media::DeviceCategory::audio_input, audio);
        graph.add_filter(graph.audio_source.get());
    }
}

// A dialog with an empty combo box (id 1002) to list devices into.
inline WindowHandle open_device_combo(FakeDialogHost& host) {
    const WindowHandle dialog =
        host.open([](WindowHandle, unsigned, WParam, LParam) -> LResult { return 0; }, 0, 200);
    return host.get_dlg_item(dialog, 1002);
}

// Distinct failure results, so that a test sees which call's result was reported.
inline constexpr HRESULT E_TEST1 = static_cast<HRESULT>(0x80041001u);
inline constexpr HRESULT E_TEST2 = static_cast<HRESULT>(0x80041002u);
