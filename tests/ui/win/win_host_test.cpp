// The Win32 dialog host under Wine and a virtual X server: every dialog template built
// by the dialog manager with its controls where the template puts them, the messages
// the dialog logic relies on, timers and posted messages during nested dialogs, and
// subclassed windows.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <vector>

#include "platform/win/win_dialog_template.h"
#include "resources/skin_tables.h"
#include "tests/ui/win/win_host_rig.h"

namespace {
bool same_ignoring_case(std::string a, std::string b) {
    for (auto* s : {&a, &b}) {
        for (char& c : *s) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return a == b;
}

std::vector<HWND> children(HWND dialog) {
    std::vector<HWND> all;
    for (HWND child = GetWindow(dialog, GW_CHILD); child != nullptr;
         child = GetWindow(child, GW_HWNDNEXT)) {
        all.push_back(child);
    }
    return all;
}

// Where the window is, in the client coordinates of `dialog`.
RECT rect_in(HWND dialog, HWND window) {
    RECT r{};
    GetWindowRect(window, &r);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&r), 2);
    return r;
}

void check_control(WinDialogHost& host, HWND dialog, HWND window, const ControlTemplate& c) {
    const std::string cls(c.cls);
    SCOPED_TRACE(cls + " " + std::to_string(c.id) + " \"" + std::string(c.text) + "\"");
    EXPECT_TRUE(same_ignoring_case(class_name(window), cls)) << class_name(window);
    EXPECT_EQ(GetDlgCtrlID(window), c.id);
    const auto style = static_cast<std::uint32_t>(GetWindowLongA(window, GWL_STYLE));
    const auto ex_style = static_cast<std::uint32_t>(GetWindowLongA(window, GWL_EXSTYLE));
    // Controls manage these themselves: edits, lists and progress bars draw their own
    // border in place of WS_BORDER, and scroll bars come and go with the content.
    const std::uint32_t kept = c.style & ~(WS_BORDER | WS_VSCROLL | WS_HSCROLL);
    EXPECT_EQ(kept & ~style, 0u) << "style bits missing: " << std::hex << (kept & ~style);
    EXPECT_EQ(c.ex_style & ~ex_style, 0u)
        << "extended style bits missing: " << std::hex << (c.ex_style & ~ex_style);
    if (c.id != IDC_STATIC) {
        EXPECT_EQ(host.get_dlg_item(reinterpret_cast<WindowHandle>(dialog), c.id),
                  reinterpret_cast<WindowHandle>(window));
    }

    // Position and size are converted each on its own, with the metrics the templates
    // were made for (the dialog manager's, where their font is installed).
    const RECT expected{template_x(c.x), template_y(c.y), template_x(c.cx), template_y(c.cy)};
    const RECT actual = rect_in(dialog, window);
    EXPECT_EQ(actual.left, expected.left);
    EXPECT_EQ(actual.top, expected.top);
    const bool bitmap_static = cls == "STATIC" && (c.style & 0x1F) == SS_BITMAP;
    if (bitmap_static) {
        // A picture static takes its bitmap's size: the skin, loaded from the program.
        const auto bitmap =
            reinterpret_cast<HBITMAP>(SendMessageA(window, STM_GETIMAGE, IMAGE_BITMAP, 0));
        ASSERT_NE(bitmap, nullptr);
        BITMAP info{};
        GetObjectA(bitmap, sizeof info, &info);
        const int picture = std::atoi(std::string(c.text.substr(1)).c_str());
        for (const skin::Bitmap& b : skin::bitmaps()) {
            if (b.id == picture) {
                EXPECT_EQ(info.bmWidth, b.width_px);
                EXPECT_EQ(info.bmHeight, b.height_px);
            }
        }
        EXPECT_EQ(actual.right - actual.left, info.bmWidth);
        return;
    }
    if (cls == "STATIC" && (c.style & 0x1F) == SS_ETCHEDHORZ) {
        return;  // an etched line's size is its own business (Wine adds its edge)
    }
    EXPECT_EQ(actual.right - actual.left, expected.right);
    if (cls != "COMBOBOX") {  // a drop-down list's height is its closed height
        EXPECT_EQ(actual.bottom - actual.top, expected.bottom);
    }
    if (cls != "COMBOBOX" && cls != "SysListView32") {
        EXPECT_EQ(window_text(window), std::string(c.text));
    }
}
}  // namespace

TEST(WinHost, EveryTemplateIsBuiltWithItsControlsWhereTheTemplatePutsThem) {
    WinDialogHost host;
    int templates = 0;
    for (int id = 1; id < 1000; ++id) {
        const DialogTemplate* t = find_dialog_template(id);
        if (t == nullptr) {
            continue;
        }
        ++templates;
        SCOPED_TRACE("template " + std::to_string(id));
        const LResult result = run_and_end(
            host, id,
            [&](WindowHandle d) {
                const HWND dialog = hwnd(d);
                EXPECT_EQ(window_text(dialog), std::string(t->caption));
                const auto style = static_cast<std::uint32_t>(GetWindowLongA(dialog, GWL_STYLE));
                const std::uint32_t window_bits = t->style & 0xFFFF0000u & ~WS_VISIBLE;
                EXPECT_EQ(style & window_bits, window_bits) << std::hex << style;

                LOGFONTA font{};
                GetObjectA(reinterpret_cast<HFONT>(SendMessageA(dialog, WM_GETFONT, 0, 0)),
                           sizeof font, &font);
                EXPECT_EQ(std::string(font.lfFaceName), std::string(t->font));

                const std::vector<HWND> windows = children(dialog);
                ASSERT_EQ(windows.size(), t->controls.size()) << "one window per control";
                for (std::size_t i = 0; i < windows.size(); ++i) {
                    check_control(host, dialog, windows[i], t->controls[i]);
                }
            },
            id);
        EXPECT_EQ(result, id) << "the code given to end_dialog";
    }
    EXPECT_EQ(templates, 9);
    EXPECT_EQ(host.dialog_box(999, nullptr, &rig_proc, 0), -1) << "no such template";
}

TEST(WinHost, OwnerDrawnButtonsAndListNotificationsArriveAsTheProjectsRecords) {
    WinDialogHost host;
    DrawItem drawn{};
    WindowHandle play = nullptr;
    run_dialog(host, IDD_MAIN, [&](WindowHandle d, unsigned message, WParam wparam, LParam lparam) {
        if (message == wm::init_dialog) {
            play = host.get_dlg_item(d, IDC_PLAY);
        } else if (message == wm::draw_item && wparam == IDC_PLAY) {
            // Painting the shown window asks the dialog to draw its picture buttons.
            drawn = *reinterpret_cast<const DrawItem*>(lparam);
            host.end_dialog(d, 1);
            return LResult{1};
        }
        return LResult{0};
    });
    EXPECT_EQ(drawn.control_id, static_cast<unsigned>(IDC_PLAY));
    EXPECT_EQ(drawn.item, play);
    EXPECT_NE(drawn.dc, nullptr);
    EXPECT_EQ(drawn.state & ODS_SELECTED, 0u);
    EXPECT_EQ(drawn.rect.left, 0);
    EXPECT_EQ(drawn.rect.top, 0);
    EXPECT_GT(drawn.rect.right, 0);

    NotifyHeader note{};
    WindowHandle list = nullptr;
    run_dialog(host, IDD_SCENE_LIST, [&](WindowHandle d, unsigned message, WParam, LParam lparam) {
        if (message == wm::init_dialog) {
            list = host.get_dlg_item(d, IDC_LIST_VIEW);
            host.list_insert_column(list, 0, "Name", 100);
            host.list_insert_item(list, 0, "scene");
            RECT item{LVIR_BOUNDS, 0, 0, 0};
            SendMessageA(hwnd(list), LVM_GETITEMRECT, 0, reinterpret_cast<LPARAM>(&item));
            // The list view tells its dialog of a double click itself.
            SendMessageA(hwnd(list), WM_LBUTTONDBLCLK, MK_LBUTTON,
                         MAKELPARAM(item.left + 5, (item.top + item.bottom) / 2));
            host.end_dialog(d, 1);
            return LResult{1};
        }
        if (message == wm::notify) {
            const auto* header = reinterpret_cast<const NotifyHeader*>(lparam);
            if (header->code == -3) {  // NM_DBLCLK
                note = *header;
            }
        }
        return LResult{0};
    });
    EXPECT_EQ(note.from, list);
    EXPECT_EQ(note.id, static_cast<std::uintptr_t>(IDC_LIST_VIEW));
    EXPECT_EQ(note.code, -3);
}

TEST(WinHost, TimersAndPostedMessagesReachAnOuterDialogWhileANestedOneRuns) {
    WinDialogHost host;
    int ticks_during_inner = 0;
    bool inner_running = false;
    WParam event_wparam = 0;
    LParam event_lparam = 0;
    LResult inner_result = 0;
    bool outer_disabled = false;
    WindowHandle inner = nullptr;
    WindowHandle inner_parent = nullptr;

    const LResult outer_result = run_dialog(
        host, IDD_SEEK, [&](WindowHandle outer, unsigned message, WParam wparam, LParam lparam) {
            if (message == wm::init_dialog) {
                EXPECT_EQ(host.set_timer(outer, 1, 20), 1u);
                return LResult{1};
            }
            if (message == wm::timer && wparam == 1) {
                if (inner_running) {
                    ++ticks_during_inner;
                } else if (inner == nullptr) {
                    inner_running = true;
                    inner_result = run_dialog(
                        host, IDD_TASK,
                        [&](WindowHandle d, unsigned m, WParam, LParam) {
                            if (m == wm::init_dialog) {
                                inner = d;
                                inner_parent = host.get_parent(d);
                                outer_disabled = !IsWindowEnabled(hwnd(outer));
                                EXPECT_TRUE(host.post_message(outer, wm::graph_event, 7, 8));
                                return LResult{1};
                            }
                            return LResult{0};
                        },
                        outer);
                    inner_running = false;
                    host.kill_timer(outer, 1);
                    host.end_dialog(outer, 9);
                }
                if (ticks_during_inner >= 3 && event_wparam == 7) {
                    host.end_dialog(inner, 3);
                }
                return LResult{1};
            }
            if (message == wm::graph_event) {
                event_wparam = wparam;
                event_lparam = lparam;
                return LResult{1};
            }
            return LResult{0};
        });
    EXPECT_EQ(outer_result, 9);
    EXPECT_EQ(inner_result, 3);
    EXPECT_GE(ticks_during_inner, 3);
    EXPECT_EQ(event_wparam, 7u);
    EXPECT_EQ(event_lparam, 8);
    EXPECT_TRUE(outer_disabled) << "the owner of a modal dialog waits for it";
    EXPECT_NE(inner_parent, nullptr);
}

namespace {
std::vector<unsigned> pane_messages;
WindowProc pane_old_proc = nullptr;
WinDialogHost* pane_host = nullptr;

LResult recording_pane_proc(WindowHandle window, unsigned message, WParam wparam, LParam lparam) {
    pane_messages.push_back(message);
    return pane_host->call_window_proc(pane_old_proc, window, message, wparam, lparam);
}
}  // namespace

TEST(WinHost, ASubclassedWindowSeesItsMessagesFirstAndPassesThemOn) {
    WinDialogHost host;
    pane_host = &host;
    pane_messages.clear();
    LONG_PTR own = 0;
    run_dialog(host, IDD_BATCH, [&](WindowHandle d, unsigned message, WParam, LParam) {
        const WindowHandle pane = host.get_dlg_item(d, IDC_PREVIEW);
        if (message == wm::init_dialog) {
            own = GetWindowLongPtrA(hwnd(pane), GWLP_WNDPROC);
            pane_old_proc = host.get_window_proc(pane);
            host.set_window_proc(pane, &recording_pane_proc);
            EXPECT_EQ(host.get_window_proc(pane), &recording_pane_proc);

            // Passed on to the button's own procedure, which keeps the text.
            SetWindowTextA(hwnd(pane), "seen");
            EXPECT_EQ(window_text(hwnd(pane)), "seen");
            EXPECT_NE(std::count(pane_messages.begin(), pane_messages.end(), WM_SETTEXT), 0);

            host.post_message(pane, wm::graph_event, 0, 0);
            host.post_message(d, wm::user + 50, 0, 0);  // after the pane's, in order
            return LResult{1};
        }
        if (message == wm::user + 50) {
            EXPECT_NE(std::count(pane_messages.begin(), pane_messages.end(), wm::graph_event), 0)
                << "the posted graph event reached the pane's procedure";
            host.set_window_proc(pane, pane_old_proc);
            EXPECT_EQ(host.get_window_proc(pane), pane_old_proc);
            EXPECT_EQ(GetWindowLongPtrA(hwnd(pane), GWLP_WNDPROC), own)
                << "its own procedure again";
            pane_messages.clear();
            SetWindowTextA(hwnd(pane), "after");
            EXPECT_TRUE(pane_messages.empty()) << "the subclassing has ended";
            EXPECT_EQ(window_text(hwnd(pane)), "after");
            host.end_dialog(d, 1);
            return LResult{1};
        }
        return LResult{0};
    });
}
