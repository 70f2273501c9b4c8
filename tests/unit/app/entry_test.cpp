// The entry sequence and the exit handler: exit codes, and settings read before the
// device is connected and written only by the exit handler.
#include <gtest/gtest.h>

#include "app/entry.h"
#include "tests/unit/app/app_rig.h"

namespace {
struct ProcessEnded {
    int code;
};

// Records the exit handler instead of registering it, and ends "the process" by
// throwing, so that the test can look at what happened and then run the handler as
// the runtime would.
struct TestRuntime : CapRuntime {
    std::vector<void (*)()> handlers;
    void at_exit(void (*handler)()) override { handlers.push_back(handler); }
    [[noreturn]] void exit(int code) override { throw ProcessEnded{code}; }
    void run_handlers() {
        for (auto it = handlers.rbegin(); it != handlers.rend(); ++it) {
            (*it)();
        }
    }
};

struct EntryRig {
    FakeDialogHost host;
    FakeSystem system;
    FakeSettingsStore store;
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    TestRuntime runtime;

    EntryRig() {
        media.graph.host = &host;
        system.existing_paths.insert(system.videos);
    }
    ~EntryRig() {
        if (app != nullptr) {
            exit_handler();
        }
        main_window = nullptr;
        transport_timer = 0;
    }
    // cap_main's exit code, by return or by ending the process.
    int run() {
        try {
            return cap_main(platform, runtime);
        } catch (ProcessEnded& e) {
            return e.code;
        }
    }
    std::vector<std::string> messages() const { return shown_messages(host); }
};
}  // namespace

TEST(Entry, APlatformThatCannotStartEndsAtOnceWithoutHandlerOrSettings) {
    EntryRig rig;
    rig.system.initialize_result = E_FAIL;
    EXPECT_EQ(rig.run(), -1);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Unable to initialize COM (0)"});
    EXPECT_TRUE(rig.runtime.handlers.empty());
    EXPECT_EQ(app, nullptr);
    EXPECT_TRUE(rig.store.calls.empty());
}

TEST(Entry, NoCaptureDeviceShowsTheStartupFailureAndTheHandlerStillWritesSettings) {
    EntryRig rig;
    rig.media.catalogue[media::DeviceCategory::video_input].clear();
    EXPECT_EQ(rig.run(), -1);
    ASSERT_EQ(rig.messages().size(), 1u);
    EXPECT_EQ(rig.messages()[0].rfind(app_messages[MSG_CAMERA_NOT_DETECTED], 0), 0u);
    EXPECT_NE(rig.messages()[0].find("Filter index not in enum (25)"), std::string::npos);
    ASSERT_EQ(rig.runtime.handlers.size(), 1u);
    EXPECT_NE(app, nullptr);
    EXPECT_TRUE(rig.store.written_names().empty());

    rig.runtime.run_handlers();
    EXPECT_EQ(app, nullptr);
    EXPECT_EQ(rig.store.written_names().size(), 8u);
    EXPECT_EQ(rig.system.calls.back(), "uninitialize");
}

TEST(Entry, ASettingsStoreThatCannotBeOpenedIsAStartupFailureWithNoApplication) {
    EntryRig rig;
    rig.store.create_key_result = E_ACCESSDENIED;
    EXPECT_EQ(rig.run(), -1);
    EXPECT_EQ(app, nullptr);
    ASSERT_EQ(rig.messages().size(), 1u);
    EXPECT_NE(rig.messages()[0].find("Failed to read registry (41)"), std::string::npos);
    rig.runtime.run_handlers();
    EXPECT_TRUE(rig.store.written_names().empty());
}

TEST(Entry, TheMainWindowsResultIsTheExitCodeAndSettingsAreReadBeforeConnecting) {
    EntryRig rig;
    std::size_t store_calls_when_shown = 0;
    rig.host.script(IDD_MAIN, [&](FakeDialogHost& host, WindowHandle dialog) {
        store_calls_when_shown = rig.store.calls.size();
        EXPECT_TRUE(app->graph->source.valid()) << "connected before the window runs";
        host.end_dialog(dialog, 7);
    });
    EXPECT_EQ(rig.run(), 7);
    EXPECT_EQ(rig.store.count_calls("query_value"), 8u);
    EXPECT_TRUE(rig.store.written_names().empty()) << "nothing written before the exit";
    EXPECT_EQ(store_calls_when_shown, rig.store.calls.size());
    EXPECT_EQ(rig.host.dialogs_opened.front(), IDD_MAIN);

    rig.runtime.run_handlers();
    EXPECT_EQ(rig.store.written_names().size(), 8u);
    EXPECT_TRUE(rig.media.ledger.held().empty());
}
