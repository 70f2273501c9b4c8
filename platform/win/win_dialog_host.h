// The dialog host on Win32: every operation is the user-interface call of the same name.
// Dialogs are built from the template data of resources/ (DialogBoxIndirectParamA); the
// skin bitmaps and the icon are resources of the program, linked in from
// kc_win_resources. Window, DC and GDI handles are the project's handles as they are.
//
// The dialog manager calls one procedure of ours for every dialog, which hands each
// message to the project's procedure, turning the records some messages point to
// (DRAWITEMSTRUCT, NMHDR) into the project's DrawItem and NotifyHeader. Subclassed
// windows go through the same translation.
//
// All operations run on the user-interface thread, except post_message.
#pragma once

#include <functional>
#include <vector>

#include "platform/win/win32.h"

class WinDialogHost : public DialogHost {
  public:
    // `module` holds the dialogs' bitmaps and the icon (the program itself). Registers the
    // common controls the templates use.
    explicit WinDialogHost(HINSTANCE module = GetModuleHandleA(nullptr));

    // --- Beyond the platform interface: for the program's self-test ------------------
    // The dialog most recently opened that is still running (the innermost modal one),
    // or null.
    WindowHandle top_dialog() const;
    // Called on the user-interface thread each time a dialog has been created and
    // initialised, before its modal loop starts.
    void set_dialog_shown_hook(std::function<void(WindowHandle dialog, int template_id)> hook) {
        shown_hook = std::move(hook);
    }
    // The dialog procedure's report that a dialog has been initialised.
    void dialog_started(HWND dialog, int template_id);

    LResult dialog_box(int template_id, WindowHandle parent, DialogProc proc,
                       LParam param) override;
    void end_dialog(WindowHandle dialog, LResult code) override;
    WindowHandle get_dlg_item(WindowHandle dialog, int id) override;
    WindowHandle get_parent(WindowHandle window) override;
    void set_prop(WindowHandle window, const char* name, void* value) override;
    void* get_prop(WindowHandle window, const char* name) override;
    void remove_prop(WindowHandle window, const char* name) override;
    bool post_message(WindowHandle window, unsigned message, WParam wparam, LParam lparam) override;
    int message_box(WindowHandle owner, const std::string& text, const std::string& title,
                    unsigned flags) override;
    // A window not subclassed through the host answers with a procedure that forwards to
    // the window's own (Win32) procedure; setting that one back ends the subclassing.
    WindowProc get_window_proc(WindowHandle window) override;
    void set_window_proc(WindowHandle window, WindowProc proc) override;
    LResult call_window_proc(WindowProc proc, WindowHandle window, unsigned message, WParam wparam,
                             LParam lparam) override;
    Rect get_client_rect(WindowHandle window) override;
    void set_client_size(WindowHandle window, int width, int height) override;
    void invalidate_rect(WindowHandle window, const Rect* rect, bool erase) override;
    void update_window(WindowHandle window) override;
    void enable_window(WindowHandle window, bool enable) override;
    void set_dlg_item_text(WindowHandle dialog, int id, const std::string& text) override;
    std::string get_dlg_item_text(WindowHandle dialog, int id, int max_chars) override;
    void set_dlg_item_int(WindowHandle dialog, int id, std::uint32_t value,
                          bool is_signed) override;
    std::uint32_t get_dlg_item_int(WindowHandle dialog, int id, bool is_signed) override;
    void check_dlg_button(WindowHandle dialog, int id, bool checked) override;
    bool is_dlg_button_checked(WindowHandle dialog, int id) override;
    void check_radio_button(WindowHandle dialog, int first_id, int last_id,
                            int checked_id) override;
    int combo_add_string(WindowHandle combo, const std::string& text) override;
    void combo_set_cur_sel(WindowHandle combo, int index) override;
    int combo_get_cur_sel(WindowHandle combo) override;
    void progress_set_range(WindowHandle bar, int low, int high) override;
    void progress_set_pos(WindowHandle bar, int position) override;
    void list_insert_column(WindowHandle list, int column, const std::string& header,
                            int width_px) override;
    void list_delete_all_items(WindowHandle list) override;
    void list_insert_item(WindowHandle list, int row, const std::string& text) override;
    void list_set_item_text(WindowHandle list, int row, int column,
                            const std::string& text) override;
    int list_get_item_count(WindowHandle list) override;
    bool list_is_item_selected(WindowHandle list, int row) override;
    unsigned set_timer(WindowHandle window, unsigned id, unsigned period_ms) override;
    void kill_timer(WindowHandle window, unsigned id) override;
    std::uint32_t tick_count() override;
    // LoadImageA at the bitmap's own size; a DIB section when asked.
    BitmapHandle load_bitmap(int id, bool dib_section) override;
    bool bitmap_size(BitmapHandle bitmap, int& width, int& height) override;
    void delete_bitmap(BitmapHandle bitmap) override;
    IconHandle load_icon(int id) override;
    void set_big_icon(WindowHandle window, IconHandle icon) override;
    BrushHandle stock_brush(StockBrush which) override;
    void set_bk_color(DcHandle dc, Rgb colour) override;
    void set_text_color(DcHandle dc, Rgb colour) override;
    void set_bk_mode_transparent(DcHandle dc) override;
    void draw_bitmap(DcHandle dc, int x, int y, int width, int height,
                     BitmapHandle bitmap) override;
    void draw_bitmap_on_window(WindowHandle window, int x, int y, BitmapHandle bitmap) override;
    WindowHandle create_tooltip(WindowHandle owner) override;
    // The tool follows its control (TTF_SUBCLASS); the record is the first, short TOOLINFO
    // layout, which every version of the common controls takes.
    void add_tool(WindowHandle tooltip, WindowHandle control, int id, const Rect& rect,
                  const std::string& text) override;
    CursorHandle set_wait_cursor() override;
    void set_cursor(CursorHandle cursor) override;
    // SHBrowseForFolderA from the desktop, without an owner or flags.
    std::optional<std::string> browse_for_folder(const std::string& title) override;

  private:
    HINSTANCE module;
    std::vector<WindowHandle> running;
    std::function<void(WindowHandle, int)> shown_hook;
};
