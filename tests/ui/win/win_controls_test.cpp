// The Win32 host's controls, skin, tooltips, cursor and the system's own modal boxes,
// under Wine and a virtual X server, read back through the controls themselves.
#include <vector>

#include "resources/skin_tables.h"
#include "tests/ui/win/win_host_rig.h"

namespace {
std::string list_text(HWND list, int row, int column) {
    char text[128] = {};
    LVITEMA item{};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    SendMessageA(list, LVM_GETITEMTEXTA, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    return text;
}

// The dialog-class window of this thread that a system modal box opened: the one with
// that caption, or any when the caption is null (the folder browser's depends on the
// language).
HWND find_box(const char* caption) {
    struct Search {
        const char* caption;
        HWND found;
    } search{caption, nullptr};
    EnumThreadWindows(
        GetCurrentThreadId(),
        [](HWND window, LPARAM data) -> BOOL {
            auto* s = reinterpret_cast<Search*>(data);
            if (IsWindowVisible(window) && class_name(window) == "#32770" &&
                (s->caption == nullptr || window_text(window) == s->caption)) {
                s->found = window;
                return FALSE;
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&search));
    return search.found;
}

// Presses `button` of the box titled `caption` as soon as it shows, from a timer of the
// thread, which the box's own modal loop runs; records what the box said.
struct BoxAnswer {
    const char* caption;
    int button;
    std::string seen_text;
    bool answered = false;
};
BoxAnswer* pending = nullptr;

void CALLBACK answer_box(HWND, UINT, UINT_PTR timer, DWORD) {
    HWND box = pending != nullptr ? find_box(pending->caption) : nullptr;
    if (box == nullptr) {
        return;
    }
    // The message box's text is its static with id 0xFFFF.
    char text[256] = {};
    GetDlgItemTextA(box, 0xFFFF, text, sizeof text);
    pending->seen_text = text;
    pending->answered = true;
    PostMessageA(box, WM_COMMAND, MAKEWPARAM(pending->button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(box, pending->button)));
    KillTimer(nullptr, timer);
}
}  // namespace

TEST(WinControls, TextsNumbersChecksAndChoicesKeepWhatTheyAreGiven) {
    WinDialogHost host;
    run_and_end(host, IDD_PROPERTIES, [&](WindowHandle d) {
        host.set_dlg_item_text(d, IDC_PROP_OUTPUT_DIR, "D:\\Video");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_OUTPUT_DIR, 260), "D:\\Video");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_OUTPUT_DIR, 4), "D:\\") << "3 and the end";

        host.set_dlg_item_int(d, IDC_PROP_PREROLL, static_cast<std::uint32_t>(-5), true);
        EXPECT_EQ(window_text(GetDlgItem(hwnd(d), IDC_PROP_PREROLL)), "-5");
        EXPECT_EQ(static_cast<std::int32_t>(host.get_dlg_item_int(d, IDC_PROP_PREROLL, true)), -5);
        host.set_dlg_item_int(d, IDC_PROP_PREROLL, 4000000000u, false);
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_PREROLL, false), 4000000000u);
        host.set_dlg_item_text(d, IDC_PROP_PREROLL, "ten");
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_PREROLL, true), 0u);

        host.check_dlg_button(d, IDC_PROP_SCENE_DETECTION, true);
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_SCENE_DETECTION));
        host.check_dlg_button(d, IDC_PROP_SCENE_DETECTION, false);
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_SCENE_DETECTION));
        host.check_radio_button(d, IDC_PROP_DV_TYPE1, IDC_PROP_DV_TYPE2, IDC_PROP_DV_TYPE2);
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE2));
        host.check_radio_button(d, IDC_PROP_DV_TYPE1, IDC_PROP_DV_TYPE2, IDC_PROP_DV_TYPE1);
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE1));
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE2));

        const WindowHandle combo = host.get_dlg_item(d, IDC_PROP_DEVICE);
        EXPECT_EQ(host.combo_get_cur_sel(combo), -1) << "nothing chosen yet";
        EXPECT_EQ(host.combo_add_string(combo, "Camera"), 0);
        EXPECT_EQ(host.combo_add_string(combo, "Deck"), 1);
        host.combo_set_cur_sel(combo, 1);
        EXPECT_EQ(host.combo_get_cur_sel(combo), 1);
        EXPECT_EQ(window_text(hwnd(combo)), "Deck");
        host.combo_set_cur_sel(combo, 5);
        EXPECT_EQ(host.combo_get_cur_sel(combo), -1) << "an index with no entry clears";

        const WindowHandle browse = host.get_dlg_item(d, IDC_PROP_BROWSE);
        host.enable_window(browse, false);
        EXPECT_FALSE(IsWindowEnabled(hwnd(browse)));
        host.enable_window(browse, true);
        EXPECT_TRUE(IsWindowEnabled(hwnd(browse)));
    });
}

TEST(WinControls, TheProgressBarAndTheSceneListShowWhatTheyAreGiven) {
    WinDialogHost host;
    run_and_end(host, IDD_BATCH, [&](WindowHandle d) {
        const HWND bar = GetDlgItem(hwnd(d), IDC_BATCH_PROGRESS);
        host.progress_set_range(reinterpret_cast<WindowHandle>(bar), 0, 100);
        host.progress_set_pos(reinterpret_cast<WindowHandle>(bar), 42);
        EXPECT_EQ(SendMessageA(bar, PBM_GETPOS, 0, 0), 42);
        EXPECT_EQ(SendMessageA(bar, PBM_GETRANGE, FALSE, 0), 100);
        EXPECT_EQ(SendMessageA(bar, PBM_GETRANGE, TRUE, 0), 0);
    });

    run_and_end(host, IDD_SCENE_LIST, [&](WindowHandle d) {
        const WindowHandle list = host.get_dlg_item(d, IDC_LIST_VIEW);
        host.list_insert_column(list, 0, "Name", 120);
        host.list_insert_column(list, 1, "Start", 80);
        host.list_insert_column(list, 2, "End", 80);
        const HWND header = reinterpret_cast<HWND>(SendMessageA(hwnd(list), LVM_GETHEADER, 0, 0));
        EXPECT_EQ(SendMessageA(header, HDM_GETITEMCOUNT, 0, 0), 3);
        EXPECT_EQ(SendMessageA(hwnd(list), LVM_GETCOLUMNWIDTH, 1, 0), 80);

        // Rows go in at the top, as the editor fills the list from its last scene.
        for (const char* name : {"third", "second", "first"}) {
            host.list_insert_item(list, 0, name);
            host.list_set_item_text(list, 0, 1, std::string(name) + " in");
            host.list_set_item_text(list, 0, 2, std::string(name) + " out");
        }
        EXPECT_EQ(host.list_get_item_count(list), 3);
        EXPECT_EQ(list_text(hwnd(list), 0, 0), "first");
        EXPECT_EQ(list_text(hwnd(list), 2, 0), "third");
        EXPECT_EQ(list_text(hwnd(list), 1, 2), "second out");

        EXPECT_FALSE(host.list_is_item_selected(list, 1));
        LVITEMA select{};
        select.stateMask = LVIS_SELECTED;
        select.state = LVIS_SELECTED;
        SendMessageA(hwnd(list), LVM_SETITEMSTATE, 1, reinterpret_cast<LPARAM>(&select));
        EXPECT_TRUE(host.list_is_item_selected(list, 1));
        EXPECT_FALSE(host.list_is_item_selected(list, 0));
        EXPECT_FALSE(host.list_is_item_selected(list, 7)) << "no such row";

        host.list_delete_all_items(list);
        EXPECT_EQ(host.list_get_item_count(list), 0);
    });
}

TEST(WinControls, SkinBitmapsLoadAtTheirTableSizesAndDrawOntoTheWindow) {
    WinDialogHost host;
    for (const skin::Bitmap& b : skin::bitmaps()) {
        SCOPED_TRACE(b.id);
        const bool dib = b.id == IDB_INDICATOR;
        const BitmapHandle bitmap = host.load_bitmap(b.id, dib);
        ASSERT_NE(bitmap, nullptr);
        int width = 0, height = 0;
        ASSERT_TRUE(host.bitmap_size(bitmap, width, height));
        EXPECT_EQ(width, b.width_px);
        EXPECT_EQ(height, b.height_px);
        DIBSECTION section{};
        const int bytes = GetObjectA(reinterpret_cast<HBITMAP>(bitmap), sizeof section, &section);
        EXPECT_EQ(bytes == sizeof section, dib) << "a DIB section only when asked";
        host.delete_bitmap(bitmap);
    }
    EXPECT_EQ(host.load_bitmap(9999, false), nullptr);
    int width = 0, height = 0;
    EXPECT_FALSE(host.bitmap_size(nullptr, width, height));

    // The indicator drawn onto the shown main window reads back pixel for pixel.
    int differing = -1;
    run_dialog(host, IDD_MAIN, [&](WindowHandle d, unsigned message, WParam wparam, LParam) {
        if (message == wm::init_dialog) {
            host.set_timer(d, 1, 100);
        } else if (message == wm::timer && wparam == 1) {
            host.kill_timer(d, 1);
            const BitmapHandle indicator = host.load_bitmap(IDB_INDICATOR, true);
            host.draw_bitmap_on_window(d, skin::indicator_x, skin::indicator_y, indicator);
            const HDC window = GetDC(hwnd(d));
            const HDC memory = CreateCompatibleDC(window);
            const HGDIOBJ old = SelectObject(memory, reinterpret_cast<HBITMAP>(indicator));
            differing = 0;
            for (int y = 0; y < skin::indicator_height; ++y) {
                for (int x = 0; x < skin::indicator_width; ++x) {
                    differing += GetPixel(memory, x, y) !=
                                 GetPixel(window, skin::indicator_x + x, skin::indicator_y + y);
                }
            }
            SelectObject(memory, old);
            DeleteDC(memory);
            ReleaseDC(hwnd(d), window);
            host.delete_bitmap(indicator);
            host.end_dialog(d, 1);
        }
        return LResult{0};
    });
    EXPECT_EQ(differing, 0);
}

TEST(WinControls, SizeIconTooltipsAndCursor) {
    WinDialogHost host;
    run_and_end(host, IDD_SEEK, [&](WindowHandle d) {
        host.set_client_size(d, 300, 200);
        EXPECT_EQ(host.get_client_rect(d), (Rect{0, 0, 300, 200}));

        const IconHandle icon = host.load_icon(IDI_MAIN);
        ASSERT_NE(icon, nullptr);
        host.set_big_icon(d, icon);
        EXPECT_EQ(SendMessageA(hwnd(d), WM_GETICON, ICON_BIG, 0), reinterpret_cast<LRESULT>(icon));
        EXPECT_EQ(host.load_icon(9999), nullptr);

        const WindowHandle tooltip = host.create_tooltip(d);
        ASSERT_NE(tooltip, nullptr);
        EXPECT_EQ(class_name(hwnd(tooltip)), "tooltips_class32");
        EXPECT_EQ(GetWindow(hwnd(tooltip), GW_OWNER), hwnd(d));
        EXPECT_NE(GetWindowLongA(hwnd(tooltip), GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
        const WindowHandle ok = host.get_dlg_item(d, IDOK);
        host.add_tool(tooltip, ok, IDOK, host.get_client_rect(ok), "Seek now");
        host.add_tool(tooltip, host.get_dlg_item(d, IDCANCEL), IDCANCEL,
                      host.get_client_rect(host.get_dlg_item(d, IDCANCEL)), "Never mind");
        EXPECT_EQ(SendMessageA(hwnd(tooltip), TTM_GETTOOLCOUNT, 0, 0), 2);
        char text[64] = {};
        TTTOOLINFOA tool{};
        tool.cbSize = TTTOOLINFOA_V1_SIZE;
        tool.lpszText = text;
        ASSERT_TRUE(
            SendMessageA(hwnd(tooltip), TTM_ENUMTOOLSA, 0, reinterpret_cast<LPARAM>(&tool)));
        EXPECT_EQ(std::string(text), "Seek now");
        EXPECT_EQ(tool.hwnd, hwnd(ok));
        EXPECT_EQ(tool.uId, static_cast<UINT_PTR>(IDOK));
        EXPECT_NE(tool.uFlags & TTF_SUBCLASS, 0u);

        const CursorHandle before = host.set_wait_cursor();
        EXPECT_EQ(GetCursor(), LoadCursorA(nullptr, IDC_WAIT));
        host.set_cursor(before);
        EXPECT_EQ(reinterpret_cast<CursorHandle>(GetCursor()), before);
        EXPECT_EQ(host.stock_brush(StockBrush::black),
                  reinterpret_cast<BrushHandle>(GetStockObject(BLACK_BRUSH)));
        EXPECT_EQ(host.stock_brush(StockBrush::null),
                  reinterpret_cast<BrushHandle>(GetStockObject(NULL_BRUSH)));
    });
}

TEST(WinControls, TheMessageBoxAndTheFolderBrowserAnswerForTheUser) {
    WinDialogHost host;
    BoxAnswer box{"Kestrel test", IDOK, {}, false};
    pending = &box;
    SetTimer(nullptr, 0, 50, answer_box);
    EXPECT_EQ(host.message_box(nullptr, "Assertion failed", "Kestrel test", MB_ICONHAND), IDOK);
    EXPECT_TRUE(box.answered);
    EXPECT_EQ(box.seen_text, "Assertion failed");

    // Cancelled, the browser gives nothing; accepted, the folder it shows selected.
    BoxAnswer cancel{nullptr, IDCANCEL, {}, false};
    pending = &cancel;
    SetTimer(nullptr, 0, 50, answer_box);
    EXPECT_EQ(host.browse_for_folder("Select an output directory"), std::nullopt);
    EXPECT_TRUE(cancel.answered);

    BoxAnswer accept{nullptr, IDOK, {}, false};
    pending = &accept;
    SetTimer(nullptr, 0, 50, answer_box);
    const std::optional<std::string> chosen = host.browse_for_folder("Select an output directory");
    EXPECT_TRUE(accept.answered);
    ASSERT_TRUE(chosen.has_value());
    EXPECT_NE(GetFileAttributesA(chosen->c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u) << *chosen;
    EXPECT_LT(chosen->size(), std::size_t{MAX_PATH});
    pending = nullptr;
}
