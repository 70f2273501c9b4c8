// The dialog host: every window, control, timer and drawing call the user interface
// makes, one operation per platform call. The Qt host implements it for the program;
// the recording fake of the tests implements it to feed messages and check calls.
//
// All operations run on the user-interface thread, except post_message, which any
// thread may call (the media layer posts the graph-event message with it).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/window.h"

enum class StockBrush { black, null };

class DialogHost {
  public:
    virtual ~DialogHost() = default;

    // --- Dialogs and windows ---------------------------------------------------
    // Creates the dialog of template `template_id` owned by `parent` (none for the
    // main window), sends wm::init_dialog with `param` as lParam, and runs a nested
    // modal loop until end_dialog. Returns end_dialog's code, or -1 when the dialog
    // cannot be created. Every message of the dialog goes to `proc`.
    virtual LResult dialog_box(int template_id, WindowHandle parent, DialogProc proc,
                               LParam param) = 0;
    virtual void end_dialog(WindowHandle dialog, LResult code) = 0;
    // The control with that id, or null when the dialog has none.
    virtual WindowHandle get_dlg_item(WindowHandle dialog, int id) = 0;
    virtual WindowHandle get_parent(WindowHandle window) = 0;
    virtual void set_prop(WindowHandle window, const char* name, void* value) = 0;
    virtual void* get_prop(WindowHandle window, const char* name) = 0;
    virtual void remove_prop(WindowHandle window, const char* name) = 0;
    // Queues a message for the window's procedure. Safe from any thread.
    virtual bool post_message(WindowHandle window, unsigned message, WParam wparam,
                              LParam lparam) = 0;
    virtual int message_box(WindowHandle owner, const std::string& text, const std::string& title,
                            unsigned flags) = 0;

    // A window's own procedure can be replaced (the preview pane is subclassed so
    // that it can follow resizes and forward graph events).
    virtual WindowProc get_window_proc(WindowHandle window) = 0;
    virtual void set_window_proc(WindowHandle window, WindowProc proc) = 0;
    virtual LResult call_window_proc(WindowProc proc, WindowHandle window, unsigned message,
                                     WParam wparam, LParam lparam) = 0;

    virtual Rect get_client_rect(WindowHandle window) = 0;
    // Grows the window so that its client area is width x height, without moving it.
    virtual void set_client_size(WindowHandle window, int width, int height) = 0;
    // `rect` null: the whole client area.
    virtual void invalidate_rect(WindowHandle window, const Rect* rect, bool erase) = 0;
    virtual void update_window(WindowHandle window) = 0;
    virtual void enable_window(WindowHandle window, bool enable) = 0;

    // --- Controls --------------------------------------------------------------
    virtual void set_dlg_item_text(WindowHandle dialog, int id, const std::string& text) = 0;
    // At most max_chars - 1 characters, as the classic call with a buffer of max_chars.
    virtual std::string get_dlg_item_text(WindowHandle dialog, int id, int max_chars) = 0;
    virtual void set_dlg_item_int(WindowHandle dialog, int id, std::uint32_t value,
                                  bool is_signed) = 0;
    // Text that is not a number reads as 0.
    virtual std::uint32_t get_dlg_item_int(WindowHandle dialog, int id, bool is_signed) = 0;
    virtual void check_dlg_button(WindowHandle dialog, int id, bool checked) = 0;
    virtual bool is_dlg_button_checked(WindowHandle dialog, int id) = 0;
    virtual void check_radio_button(WindowHandle dialog, int first_id, int last_id,
                                    int checked_id) = 0;

    virtual int combo_add_string(WindowHandle combo, const std::string& text) = 0;
    // An index with no entry clears the selection.
    virtual void combo_set_cur_sel(WindowHandle combo, int index) = 0;
    // -1 when nothing is selected.
    virtual int combo_get_cur_sel(WindowHandle combo) = 0;

    virtual void progress_set_range(WindowHandle bar, int low, int high) = 0;
    virtual void progress_set_pos(WindowHandle bar, int position) = 0;

    virtual void list_insert_column(WindowHandle list, int column, const std::string& header,
                                    int width_px) = 0;
    virtual void list_delete_all_items(WindowHandle list) = 0;
    virtual void list_insert_item(WindowHandle list, int row, const std::string& text) = 0;
    virtual void list_set_item_text(WindowHandle list, int row, int column,
                                    const std::string& text) = 0;
    virtual int list_get_item_count(WindowHandle list) = 0;
    virtual bool list_is_item_selected(WindowHandle list, int row) = 0;

    // --- Timers and time ---------------------------------------------------------
    // Timer messages keep arriving during nested modal loops. Returns the timer id,
    // 0 on failure.
    virtual unsigned set_timer(WindowHandle window, unsigned id, unsigned period_ms) = 0;
    virtual void kill_timer(WindowHandle window, unsigned id) = 0;
    // Milliseconds since an arbitrary start, wrapping at 2^32.
    virtual std::uint32_t tick_count() = 0;

    // --- Skin: bitmaps, icon, colours, drawing ------------------------------------
    virtual BitmapHandle load_bitmap(int id, bool dib_section) = 0;
    virtual bool bitmap_size(BitmapHandle bitmap, int& width, int& height) = 0;
    virtual void delete_bitmap(BitmapHandle bitmap) = 0;
    virtual IconHandle load_icon(int id) = 0;
    virtual void set_big_icon(WindowHandle window, IconHandle icon) = 0;
    virtual BrushHandle stock_brush(StockBrush which) = 0;
    virtual void set_bk_color(DcHandle dc, Rgb colour) = 0;
    virtual void set_text_color(DcHandle dc, Rgb colour) = 0;
    virtual void set_bk_mode_transparent(DcHandle dc) = 0;
    // Copies the bitmap 1:1 from its top-left corner into dc at x, y, clipped to
    // width x height.
    virtual void draw_bitmap(DcHandle dc, int x, int y, int width, int height,
                             BitmapHandle bitmap) = 0;
    // The same straight onto a window's client area, outside any paint cycle.
    virtual void draw_bitmap_on_window(WindowHandle window, int x, int y, BitmapHandle bitmap) = 0;

    // --- Tooltips, cursor, folder browser ---------------------------------------------
    // A topmost tooltip control owned by `owner`.
    virtual WindowHandle create_tooltip(WindowHandle owner) = 0;
    virtual void add_tool(WindowHandle tooltip, WindowHandle control, int id, const Rect& rect,
                          const std::string& text) = 0;
    // Shows the wait cursor and returns the previous one.
    virtual CursorHandle set_wait_cursor() = 0;
    virtual void set_cursor(CursorHandle cursor) = 0;
    // A full path of at most 259 characters, or nothing when cancelled.
    virtual std::optional<std::string> browse_for_folder(const std::string& title) = 0;
};
