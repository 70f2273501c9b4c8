// The capture station's own dialogs on the Win32 host under Wine, clicked through as a
// person would: the application object runs over the media fakes (a DV deck), every
// window is the one the program shows. With KC_SCREENSHOT_DIR set, each window is also
// saved there as a picture (name.bmp), which is how the Windows pictures are taken.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/capapp.h"
#include "app/globals.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_settings_store.h"
#include "ui/capmain.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_dialog_host.h"
#include "platform/win/win_picture.h"

namespace {

// One window of the tour: the control that tells it is up, what to call its picture,
// and what a person then does in it.
struct Step {
    int marker;
    std::string picture;
    std::function<void(HWND)> act;
};

// The tour runs from a thread timer, which every modal loop of this thread dispatches.
// The window a step waits for is the enabled one: a modal dialog disables its owner.
struct Tour {
    std::vector<Step> steps;
    std::size_t next = 0;
    HWND seen = nullptr;
    std::string picture_dir;
};
Tour* tour = nullptr;

struct Found {
    int marker;
    HWND window = nullptr;
};
BOOL CALLBACK find_window(HWND window, LPARAM param) {
    auto* found = reinterpret_cast<Found*>(param);
    if (IsWindowVisible(window) && IsWindowEnabled(window) &&
        GetDlgItem(window, found->marker) != nullptr) {
        found->window = window;
        return FALSE;
    }
    return TRUE;
}

void CALLBACK tour_tick(HWND, UINT, UINT_PTR, DWORD) {
    if (tour == nullptr || tour->next >= tour->steps.size()) {
        return;
    }
    Step& step = tour->steps[tour->next];
    Found found{step.marker};
    EnumThreadWindows(GetCurrentThreadId(), find_window, reinterpret_cast<LPARAM>(&found));
    // A window is taken on the tick after the one that found it, when it and what was
    // under it have painted.
    if (found.window == nullptr || found.window != tour->seen) {
        tour->seen = found.window;
        return;
    }
    ++tour->next;
    tour->seen = nullptr;
    if (!tour->picture_dir.empty()) {
        kc::win::save_window_picture(found.window,
                                     tour->picture_dir + "\\" + step.picture + ".bmp");
    }
    step.act(found.window);
}

// A button press as the button reports it to its dialog; posted, so that what it opens
// runs from the dialog's own loop rather than from inside the tour.
void press(HWND dialog, int id) {
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
}

std::string text_of(HWND dialog, int id) {
    char text[256] = {};
    GetDlgItemTextA(dialog, id, text, sizeof text);
    return text;
}

}  // namespace

TEST(WinAppWindows, MainWindowOnItsSkinOpensTheSceneListAndThePropertiesAndQuits) {
    WinDialogHost host;
    FakeSystem system;
    FakeSettingsStore store;
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    media.graph.host = &host;
    media.dv_camera.device_type = ED_DEVTYPE_VCR;
    system.existing_paths.insert(system.videos);
    auto owned = std::make_unique<CapApp>(platform);
    app = owned.get();
    app->output_directory = system.videos;
    app->video_device = 0;
    app->connect();
    app->build_preview();
    for (const char* name : {"Beach", "Harbour"}) {
        Timecode in;
        in.clear();
        in.track = 1000;
        app->add_job(in)->name = name;
    }

    int skin_width = 0, skin_height = 0;
    BitmapHandle skin = host.load_bitmap(IDB_SKIN, false);
    ASSERT_TRUE(host.bitmap_size(skin, skin_width, skin_height));
    host.delete_bitmap(skin);

    Tour steps;
    const char* dir = std::getenv("KC_SCREENSHOT_DIR");
    steps.picture_dir = dir != nullptr ? dir : "";
    std::vector<std::string> scenes;
    steps.steps = {
        {IDC_QUIT, "main-window",
         [&](HWND main) {
             RECT client{};
             GetClientRect(main, &client);
             EXPECT_EQ(client.right, skin_width);
             EXPECT_EQ(client.bottom, skin_height);
             EXPECT_EQ(text_of(main, IDC_DEVICE_TYPE), "VCR");
             EXPECT_TRUE(IsWindowEnabled(GetDlgItem(main, IDC_FAST_FORWARD)));
             press(main, IDC_EDIT_SCENES);
         }},
        {IDC_LIST_VIEW, "dialog-400",
         [&](HWND editor) {
             HWND list = GetDlgItem(editor, IDC_LIST_VIEW);
             const int rows = static_cast<int>(SendMessageA(list, LVM_GETITEMCOUNT, 0, 0));
             for (int row = 0; row < rows; ++row) {
                 char text[64] = {};
                 LVITEMA item{};
                 item.iSubItem = 0;
                 item.pszText = text;
                 item.cchTextMax = sizeof text;
                 SendMessageA(list, LVM_GETITEMTEXTA, static_cast<WPARAM>(row),
                              reinterpret_cast<LPARAM>(&item));
                 scenes.emplace_back(text);
             }
             press(editor, IDOK);
         }},
        {IDC_QUIT, "main-window-again", [&](HWND main) { press(main, IDC_OPTIONS); }},
        {IDC_PROP_SCENE_NAME, "dialog-200",
         [&](HWND props) {
             EXPECT_EQ(text_of(props, IDC_PROP_SCENE_NAME), app->scene_name);
             SetDlgItemTextA(props, IDC_PROP_SCENE_NAME, "Holiday");
             press(props, IDOK);
         }},
        {IDC_QUIT, "main-window-last", [&](HWND main) { press(main, IDC_QUIT); }},
    };
    tour = &steps;
    const UINT_PTR timer = SetTimer(nullptr, 0, 100, tour_tick);

    CapMainDialog main;
    EXPECT_EQ(main.do_modal(nullptr, IDD_MAIN), 0);
    KillTimer(nullptr, timer);
    tour = nullptr;

    EXPECT_EQ(steps.next, steps.steps.size()) << "the tour ended early";
    EXPECT_EQ(scenes, (std::vector<std::string>{"Beach", "Harbour"}));
    EXPECT_EQ(app->scene_name, "Holiday");
    EXPECT_FALSE(app->win->running());
    owned.reset();
    app = nullptr;
    main_window = nullptr;
    transport_timer = 0;
}
