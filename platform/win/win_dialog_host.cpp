#include "platform/win/win_dialog_host.h"

#include <algorithm>
#include <vector>

#include "platform/win/win_dialog_template.h"

namespace {
HWND hwnd_of(WindowHandle window) {
    return reinterpret_cast<HWND>(window);
}
WindowHandle handle_of(HWND window) {
    return reinterpret_cast<WindowHandle>(window);
}
HDC hdc_of(DcHandle dc) {
    return reinterpret_cast<HDC>(dc);
}
HBITMAP hbitmap_of(BitmapHandle bitmap) {
    return reinterpret_cast<HBITMAP>(bitmap);
}
COLORREF colorref_of(Rgb colour) {
    return RGB(colour.r, colour.g, colour.b);
}
Rect rect_of(const RECT& r) {
    return Rect{r.left, r.top, r.right, r.bottom};
}

// Where the host keeps its own state on windows: the project procedure of a running
// dialog, and the two procedures of a subclassed window.
constexpr char dialog_start_prop[] = "KcDialogStart";
constexpr char window_proc_prop[] = "KcWindowProc";
constexpr char native_proc_prop[] = "KcNativeProc";

struct DialogStart {
    DialogProc proc;
    LParam param;
    const DialogTemplate* dialog;
    WinDialogHost* host;
};

// The templates were laid out, and the main window's skin drawn, for "MS Sans Serif" at 8
// points: 6 pixels of average width and 600 / 370 * 8 of height per base unit. Where that
// font is missing (Wine), its stand-in has other metrics and the controls would no longer
// sit on the skin's pictures, so they are placed with the font's own metrics, as the
// dialog manager would place them on a system that has it.
void place_controls(HWND hwnd, const DialogTemplate& dialog) {
    if ((dialog.font != "MS Sans Serif" && dialog.font != "MS Shell Dlg") ||
        dialog.font_points != 8) {
        return;
    }
    const auto x = template_x;
    const auto y = template_y;
    // The dialog manager makes the controls in template order, each after the last.
    HWND child = GetWindow(hwnd, GW_CHILD);
    for (const ControlTemplate& control : dialog.controls) {
        if (child == nullptr) {
            break;
        }
        SetWindowPos(child, nullptr, x(control.x), y(control.y), x(control.cx), y(control.cy),
                     SWP_NOZORDER | SWP_NOACTIVATE);
        child = GetWindow(child, GW_HWNDNEXT);
    }
    RECT r{0, 0, x(dialog.cx), y(dialog.cy)};
    AdjustWindowRectEx(&r, static_cast<DWORD>(GetWindowLongA(hwnd, GWL_STYLE)), FALSE,
                       static_cast<DWORD>(GetWindowLongA(hwnd, GWL_EXSTYLE)));
    SetWindowPos(hwnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

// While the project's procedure handles a message whose record was translated, the
// Win32 record it stands for; a procedure that passes the message on to a window's own
// procedure passes the record that procedure understands.
struct Translation {
    LParam project;
    LParam native;
};
thread_local std::vector<Translation> translations;

class TranslationScope {
  public:
    TranslationScope(LParam project, LParam native) { translations.push_back({project, native}); }
    ~TranslationScope() { translations.pop_back(); }
    TranslationScope(const TranslationScope&) = delete;
    TranslationScope& operator=(const TranslationScope&) = delete;
};

LPARAM native_lparam(LParam lparam) {
    for (auto it = translations.rbegin(); it != translations.rend(); ++it) {
        if (it->project == lparam) {
            return it->native;
        }
    }
    return lparam;
}

// Hands a Win32 message to a project procedure, with the project's records for the two
// messages that point to one.
LResult dispatch(WindowProc proc, HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_DRAWITEM && lparam != 0) {
        const auto* d = reinterpret_cast<const DRAWITEMSTRUCT*>(lparam);
        DrawItem item{d->CtlID, d->itemState, handle_of(d->hwndItem),
                      reinterpret_cast<DcHandle>(d->hDC), rect_of(d->rcItem)};
        const auto project = reinterpret_cast<LParam>(&item);
        TranslationScope scope(project, lparam);
        return proc(handle_of(hwnd), message, wparam, project);
    }
    if (message == WM_NOTIFY && lparam != 0) {
        const auto* n = reinterpret_cast<const NMHDR*>(lparam);
        // Windows' notification codes are unsigned; the project's are the same bits as int.
        NotifyHeader header{handle_of(n->hwndFrom), n->idFrom, static_cast<int>(n->code)};
        const auto project = reinterpret_cast<LParam>(&header);
        TranslationScope scope(project, lparam);
        return proc(handle_of(hwnd), message, wparam, project);
    }
    return proc(handle_of(hwnd), message, wparam, lparam);
}

INT_PTR CALLBACK dialog_trampoline(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_INITDIALOG) {
        auto* start = reinterpret_cast<DialogStart*>(lparam);
        SetPropA(hwnd, dialog_start_prop, start);
        place_controls(hwnd, *start->dialog);
        const INT_PTR result = start->proc(handle_of(hwnd), message, wparam, start->param);
        start->host->dialog_started(hwnd, start->dialog->id);
        return result;
    }
    // Messages before WM_INITDIALOG (WM_SETFONT, ...) have no procedure to go to yet.
    auto* start = static_cast<DialogStart*>(GetPropA(hwnd, dialog_start_prop));
    if (start == nullptr) {
        return FALSE;
    }
    const INT_PTR result = dispatch(start->proc, hwnd, message, wparam, lparam);
    if (message == WM_NCDESTROY) {
        RemovePropA(hwnd, dialog_start_prop);
    }
    return result;
}

WNDPROC native_proc(HWND hwnd) {
    if (HANDLE saved = GetPropA(hwnd, native_proc_prop); saved != nullptr) {
        return reinterpret_cast<WNDPROC>(saved);
    }
    return reinterpret_cast<WNDPROC>(GetWindowLongPtrA(hwnd, GWLP_WNDPROC));
}

void end_subclass(HWND hwnd) {
    if (HANDLE saved = GetPropA(hwnd, native_proc_prop); saved != nullptr) {
        SetWindowLongPtrA(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(saved));
        RemovePropA(hwnd, native_proc_prop);
        RemovePropA(hwnd, window_proc_prop);
    }
}

LRESULT CALLBACK subclass_trampoline(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    const WNDPROC native = native_proc(hwnd);
    if (message == WM_NCDESTROY) {
        // The window's last message: its own procedure gets it, and nothing of ours stays.
        end_subclass(hwnd);
        return CallWindowProcA(native, hwnd, message, wparam, lparam);
    }
    const auto proc = reinterpret_cast<WindowProc>(GetPropA(hwnd, window_proc_prop));
    if (proc == nullptr) {
        return CallWindowProcA(native, hwnd, message, wparam, lparam);
    }
    return dispatch(proc, hwnd, message, wparam, lparam);
}

// The procedure get_window_proc gives for a window's own Win32 procedure.
LResult forward_to_native(WindowHandle window, unsigned message, WParam wparam, LParam lparam) {
    const HWND hwnd = hwnd_of(window);
    return CallWindowProcA(native_proc(hwnd), hwnd, message, wparam, native_lparam(lparam));
}
}  // namespace

WinDialogHost::WinDialogHost(HINSTANCE module_) : module(module_) {
    INITCOMMONCONTROLSEX controls{
        sizeof(INITCOMMONCONTROLSEX),
        ICC_STANDARD_CLASSES | ICC_PROGRESS_CLASS | ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES};
    InitCommonControlsEx(&controls);
}

// --- Dialogs and windows ------------------------------------------------------------------

LResult WinDialogHost::dialog_box(int template_id, WindowHandle parent, DialogProc proc,
                                  LParam param) {
    const DialogTemplate* dialog = find_dialog_template(template_id);
    if (dialog == nullptr) {
        return -1;
    }
    // The format wants the header on a DWORD boundary; the vector's storage, from
    // operator new, is aligned for any type.
    const std::vector<WORD> bytes = build_dialog_template(*dialog);
    DialogStart start{proc, param, dialog, this};
    const std::size_t depth = running.size();
    const LResult result = DialogBoxIndirectParamA(
        module, reinterpret_cast<LPCDLGTEMPLATEA>(bytes.data()), hwnd_of(parent), dialog_trampoline,
        reinterpret_cast<LPARAM>(&start));
    running.resize(std::min(running.size(), depth));
    return result;
}

void WinDialogHost::dialog_started(HWND dialog, int template_id) {
    running.push_back(handle_of(dialog));
    if (shown_hook) {
        shown_hook(handle_of(dialog), template_id);
    }
}

WindowHandle WinDialogHost::top_dialog() const {
    return running.empty() ? nullptr : running.back();
}

void WinDialogHost::end_dialog(WindowHandle dialog, LResult code) {
    EndDialog(hwnd_of(dialog), code);
}

WindowHandle WinDialogHost::get_dlg_item(WindowHandle dialog, int id) {
    return handle_of(GetDlgItem(hwnd_of(dialog), id));
}

WindowHandle WinDialogHost::get_parent(WindowHandle window) {
    return handle_of(GetParent(hwnd_of(window)));
}

void WinDialogHost::set_prop(WindowHandle window, const char* name, void* value) {
    SetPropA(hwnd_of(window), name, value);
}

void* WinDialogHost::get_prop(WindowHandle window, const char* name) {
    return GetPropA(hwnd_of(window), name);
}

void WinDialogHost::remove_prop(WindowHandle window, const char* name) {
    RemovePropA(hwnd_of(window), name);
}

bool WinDialogHost::post_message(WindowHandle window, unsigned message, WParam wparam,
                                 LParam lparam) {
    return PostMessageA(hwnd_of(window), message, wparam, lparam) != 0;
}

int WinDialogHost::message_box(WindowHandle owner, const std::string& text,
                               const std::string& title, unsigned flags) {
    return MessageBoxA(hwnd_of(owner), text.c_str(), title.c_str(), flags);
}

WindowProc WinDialogHost::get_window_proc(WindowHandle window) {
    if (HANDLE proc = GetPropA(hwnd_of(window), window_proc_prop); proc != nullptr) {
        return reinterpret_cast<WindowProc>(proc);
    }
    return &forward_to_native;
}

void WinDialogHost::set_window_proc(WindowHandle window, WindowProc proc) {
    const HWND hwnd = hwnd_of(window);
    if (proc == &forward_to_native) {
        end_subclass(hwnd);
        return;
    }
    if (GetPropA(hwnd, native_proc_prop) == nullptr) {
        SetPropA(hwnd, native_proc_prop,
                 reinterpret_cast<HANDLE>(GetWindowLongPtrA(hwnd, GWLP_WNDPROC)));
        SetWindowLongPtrA(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&subclass_trampoline));
    }
    SetPropA(hwnd, window_proc_prop, reinterpret_cast<HANDLE>(proc));
}

LResult WinDialogHost::call_window_proc(WindowProc proc, WindowHandle window, unsigned message,
                                        WParam wparam, LParam lparam) {
    return proc(window, message, wparam, lparam);
}

Rect WinDialogHost::get_client_rect(WindowHandle window) {
    RECT r{};
    GetClientRect(hwnd_of(window), &r);
    return rect_of(r);
}

void WinDialogHost::set_client_size(WindowHandle window, int width, int height) {
    const HWND hwnd = hwnd_of(window);
    RECT r{0, 0, width, height};
    AdjustWindowRect(&r, static_cast<DWORD>(GetWindowLongA(hwnd, GWL_STYLE)), FALSE);
    SetWindowPos(hwnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOOWNERZORDER);
}

void WinDialogHost::invalidate_rect(WindowHandle window, const Rect* rect, bool erase) {
    if (rect == nullptr) {
        InvalidateRect(hwnd_of(window), nullptr, erase);
        return;
    }
    const RECT r{rect->left, rect->top, rect->right, rect->bottom};
    InvalidateRect(hwnd_of(window), &r, erase);
}

void WinDialogHost::update_window(WindowHandle window) {
    UpdateWindow(hwnd_of(window));
}

void WinDialogHost::enable_window(WindowHandle window, bool enable) {
    EnableWindow(hwnd_of(window), enable);
}

// --- Controls ---------------------------------------------------------------------------

void WinDialogHost::set_dlg_item_text(WindowHandle dialog, int id, const std::string& text) {
    SetDlgItemTextA(hwnd_of(dialog), id, text.c_str());
}

std::string WinDialogHost::get_dlg_item_text(WindowHandle dialog, int id, int max_chars) {
    if (max_chars <= 0) {
        return {};
    }
    std::string buffer(static_cast<std::size_t>(max_chars), '\0');
    const UINT length = GetDlgItemTextA(hwnd_of(dialog), id, buffer.data(), max_chars);
    buffer.resize(length);
    return buffer;
}

void WinDialogHost::set_dlg_item_int(WindowHandle dialog, int id, std::uint32_t value,
                                     bool is_signed) {
    SetDlgItemInt(hwnd_of(dialog), id, value, is_signed);
}

std::uint32_t WinDialogHost::get_dlg_item_int(WindowHandle dialog, int id, bool is_signed) {
    return GetDlgItemInt(hwnd_of(dialog), id, nullptr, is_signed);
}

void WinDialogHost::check_dlg_button(WindowHandle dialog, int id, bool checked) {
    CheckDlgButton(hwnd_of(dialog), id, checked ? BST_CHECKED : BST_UNCHECKED);
}

bool WinDialogHost::is_dlg_button_checked(WindowHandle dialog, int id) {
    return IsDlgButtonChecked(hwnd_of(dialog), id) == BST_CHECKED;
}

void WinDialogHost::check_radio_button(WindowHandle dialog, int first_id, int last_id,
                                       int checked_id) {
    CheckRadioButton(hwnd_of(dialog), first_id, last_id, checked_id);
}

int WinDialogHost::combo_add_string(WindowHandle combo, const std::string& text) {
    return static_cast<int>(
        SendMessageA(hwnd_of(combo), CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str())));
}

void WinDialogHost::combo_set_cur_sel(WindowHandle combo, int index) {
    // Windows clears the selection for an index past the end; Wine keeps the old one. -1
    // clears it on both.
    const HWND box = hwnd_of(combo);
    const auto count = static_cast<int>(SendMessageA(box, CB_GETCOUNT, 0, 0));
    if (index < 0 || index >= count) {
        index = -1;
    }
    SendMessageA(box, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
}

int WinDialogHost::combo_get_cur_sel(WindowHandle combo) {
    return static_cast<int>(SendMessageA(hwnd_of(combo), CB_GETCURSEL, 0, 0));
}

void WinDialogHost::progress_set_range(WindowHandle bar, int low, int high) {
    SendMessageA(hwnd_of(bar), PBM_SETRANGE, 0, MAKELPARAM(low, high));
}

void WinDialogHost::progress_set_pos(WindowHandle bar, int position) {
    SendMessageA(hwnd_of(bar), PBM_SETPOS, static_cast<WPARAM>(position), 0);
}

void WinDialogHost::list_insert_column(WindowHandle list, int column, const std::string& header,
                                       int width_px) {
    std::string text = header;  // the record's text pointer is not const
    LVCOLUMNA c{};
    c.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    c.cx = width_px;
    c.pszText = text.data();
    c.iSubItem = column;
    SendMessageA(hwnd_of(list), LVM_INSERTCOLUMNA, static_cast<WPARAM>(column),
                 reinterpret_cast<LPARAM>(&c));
}

void WinDialogHost::list_delete_all_items(WindowHandle list) {
    SendMessageA(hwnd_of(list), LVM_DELETEALLITEMS, 0, 0);
}

void WinDialogHost::list_insert_item(WindowHandle list, int row, const std::string& text) {
    std::string copy = text;
    LVITEMA item{};
    item.mask = LVIF_TEXT;
    item.iItem = row;
    item.pszText = copy.data();
    SendMessageA(hwnd_of(list), LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
}

void WinDialogHost::list_set_item_text(WindowHandle list, int row, int column,
                                       const std::string& text) {
    std::string copy = text;
    LVITEMA item{};
    item.mask = LVIF_TEXT;
    item.iItem = row;
    item.iSubItem = column;
    item.pszText = copy.data();
    SendMessageA(hwnd_of(list), LVM_SETITEMA, 0, reinterpret_cast<LPARAM>(&item));
}

int WinDialogHost::list_get_item_count(WindowHandle list) {
    return static_cast<int>(SendMessageA(hwnd_of(list), LVM_GETITEMCOUNT, 0, 0));
}

bool WinDialogHost::list_is_item_selected(WindowHandle list, int row) {
    LVITEMA item{};
    item.mask = LVIF_STATE;
    item.iItem = row;
    item.stateMask = ~0u;
    if (!SendMessageA(hwnd_of(list), LVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item))) {
        return false;
    }
    return (item.state & LVIS_SELECTED) != 0;
}

// --- Timers and time ----------------------------------------------------------------------

unsigned WinDialogHost::set_timer(WindowHandle window, unsigned id, unsigned period_ms) {
    return static_cast<unsigned>(SetTimer(hwnd_of(window), id, period_ms, nullptr));
}

void WinDialogHost::kill_timer(WindowHandle window, unsigned id) {
    KillTimer(hwnd_of(window), id);
}

std::uint32_t WinDialogHost::tick_count() {
    return GetTickCount();
}

// --- Skin: bitmaps, icon, colours, drawing --------------------------------------------------

BitmapHandle WinDialogHost::load_bitmap(int id, bool dib_section) {
    const UINT flags = LR_DEFAULTSIZE | (dib_section ? LR_CREATEDIBSECTION : 0);
    return reinterpret_cast<BitmapHandle>(
        LoadImageA(module, MAKEINTRESOURCEA(id), IMAGE_BITMAP, 0, 0, flags));
}

bool WinDialogHost::bitmap_size(BitmapHandle bitmap, int& width, int& height) {
    BITMAP info{};
    if (bitmap == nullptr || GetObjectA(hbitmap_of(bitmap), sizeof info, &info) == 0) {
        return false;
    }
    width = info.bmWidth;
    height = info.bmHeight;
    return true;
}

void WinDialogHost::delete_bitmap(BitmapHandle bitmap) {
    if (bitmap != nullptr) {
        DeleteObject(hbitmap_of(bitmap));
    }
}

IconHandle WinDialogHost::load_icon(int id) {
    return reinterpret_cast<IconHandle>(LoadIconA(module, MAKEINTRESOURCEA(id)));
}

void WinDialogHost::set_big_icon(WindowHandle window, IconHandle icon) {
    SendMessageA(hwnd_of(window), WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(icon));
}

BrushHandle WinDialogHost::stock_brush(StockBrush which) {
    return reinterpret_cast<BrushHandle>(
        GetStockObject(which == StockBrush::black ? BLACK_BRUSH : NULL_BRUSH));
}

void WinDialogHost::set_bk_color(DcHandle dc, Rgb colour) {
    SetBkColor(hdc_of(dc), colorref_of(colour));
}

void WinDialogHost::set_text_color(DcHandle dc, Rgb colour) {
    SetTextColor(hdc_of(dc), colorref_of(colour));
}

void WinDialogHost::set_bk_mode_transparent(DcHandle dc) {
    SetBkMode(hdc_of(dc), TRANSPARENT);
}

void WinDialogHost::draw_bitmap(DcHandle dc, int x, int y, int width, int height,
                                BitmapHandle bitmap) {
    const HDC target = hdc_of(dc);
    const HDC source = CreateCompatibleDC(target);
    const HGDIOBJ previous = SelectObject(source, hbitmap_of(bitmap));
    BitBlt(target, x, y, width, height, source, 0, 0, SRCCOPY);
    SelectObject(source, previous);
    DeleteDC(source);
}

void WinDialogHost::draw_bitmap_on_window(WindowHandle window, int x, int y, BitmapHandle bitmap) {
    int width = 0, height = 0;
    if (!bitmap_size(bitmap, width, height)) {
        return;
    }
    const HWND hwnd = hwnd_of(window);
    const HDC dc = GetDC(hwnd);
    draw_bitmap(reinterpret_cast<DcHandle>(dc), x, y, width, height, bitmap);
    ReleaseDC(hwnd, dc);
}

// --- Tooltips, cursor, folder browser -------------------------------------------------------

WindowHandle WinDialogHost::create_tooltip(WindowHandle owner) {
    const HWND tooltip =
        CreateWindowExA(WS_EX_TOPMOST, TOOLTIPS_CLASSA, nullptr,
                        WS_POPUP | TTS_NOPREFIX | TTS_ALWAYSTIP, CW_USEDEFAULT, CW_USEDEFAULT,
                        CW_USEDEFAULT, CW_USEDEFAULT, hwnd_of(owner), nullptr, module, nullptr);
    if (tooltip != nullptr) {
        SetWindowPos(tooltip, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }
    return handle_of(tooltip);
}

void WinDialogHost::add_tool(WindowHandle tooltip, WindowHandle control, int id, const Rect& rect,
                             const std::string& text) {
    std::string copy = text;  // the control copies the text; the record's pointer is not const
    TTTOOLINFOA tool{};
    tool.cbSize = TTTOOLINFOA_V1_SIZE;
    tool.uFlags = TTF_SUBCLASS;
    tool.hwnd = hwnd_of(control);
    tool.uId = static_cast<UINT_PTR>(id);
    tool.rect = RECT{rect.left, rect.top, rect.right, rect.bottom};
    tool.hinst = module;
    tool.lpszText = copy.data();
    SendMessageA(hwnd_of(tooltip), TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&tool));
}

CursorHandle WinDialogHost::set_wait_cursor() {
    return reinterpret_cast<CursorHandle>(SetCursor(LoadCursorA(nullptr, IDC_WAIT)));
}

void WinDialogHost::set_cursor(CursorHandle cursor) {
    SetCursor(reinterpret_cast<HCURSOR>(cursor));
}

std::optional<std::string> WinDialogHost::browse_for_folder(const std::string& title) {
    BROWSEINFOA browse{};
    browse.lpszTitle = title.c_str();
    PIDLIST_ABSOLUTE chosen = SHBrowseForFolderA(&browse);
    if (chosen == nullptr) {
        return std::nullopt;
    }
    char path[MAX_PATH] = {};
    const bool is_path = SHGetPathFromIDListA(chosen, path) != FALSE;
    CoTaskMemFree(chosen);
    if (!is_path) {
        return std::nullopt;  // a place with no folder of its own, such as the printers
    }
    return std::string(path);
}
