// A recording dialog host for unit tests. It keeps a small model of windows and
// controls (texts, numbers, checks, combo entries, list rows, progress, timers,
// properties, window procedures), records every platform call with its arguments, and
// lets a test open a dialog and deliver any window message to it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/errors.h"
#include "platform/dialog_host.h"

class FakeDialogHost : public DialogHost {
  public:
    struct Window {
        int id = 0;  // control id, or template id for a dialog
        Window* parent = nullptr;
        bool is_dialog = false;
        DialogProc dialog_proc = nullptr;
        WindowProc window_proc = nullptr;
        std::map<std::string, void*> props;
        std::map<int, Window*> controls;
        std::string text;
        bool enabled = true;
        bool checked = false;
        std::vector<std::string> combo_items;
        int combo_sel = -1;
        std::vector<std::vector<std::string>> rows;
        std::set<int> selected_rows;
        std::vector<std::string> columns;
        int progress_pos = 0;
        Rect client{0, 0, 100, 100};
        bool ended = false;
        LResult end_code = 0;
        std::set<unsigned> timers;
        std::set<int> missing_controls;
    };

    // What a nested dialog does once it is open: deliver messages to it (through
    // send()), then return. Without a script, a nested dialog is opened, initialised,
    // and ended with 0 if it did not end itself.
    using Script = std::function<void(FakeDialogHost& host, WindowHandle dialog)>;
    void script(int template_id, Script s) { scripts[template_id].push_back(std::move(s)); }

    // Opens a dialog the way dialog_box would (wm::init_dialog with `param`), but
    // returns at once with its window, so that the test can send it messages.
    WindowHandle open(DialogProc proc, LParam param, int template_id,
                      WindowHandle parent = nullptr);
    bool ended(WindowHandle dialog) const { return win(dialog)->ended; }
    LResult end_code(WindowHandle dialog) const { return win(dialog)->end_code; }
    // Calls the window's procedure now (dialog procedure or window procedure).
    LResult send(WindowHandle window, unsigned message, WParam wparam = 0, LParam lparam = 0);
    LResult command(WindowHandle dialog, int id, unsigned code = 0);
    // Delivers posted messages until none is left.
    void pump();

    // Control model access for assertions and for simulating the user.
    Window& control(WindowHandle dialog, int id);
    std::string text(WindowHandle dialog, int id) { return control(dialog, id).text; }
    bool enabled(WindowHandle dialog, int id) { return control(dialog, id).enabled; }
    void remove_control(WindowHandle dialog, int id);
    static Window* win(WindowHandle h) { return reinterpret_cast<Window*>(h); }
    static WindowHandle handle(Window* w) { return reinterpret_cast<WindowHandle>(w); }

    // Every call, formatted "name(arg,arg)" in call order.
    std::vector<std::string> calls;
    // When set, also sees each call as it is recorded (to merge it into another log).
    std::function<void(const std::string&)> echo;
    bool called(const std::string& call) const;
    std::size_t count(const std::string& prefix) const;
    // Message boxes and dialogs opened, by template id, in order.
    std::vector<int> dialogs_opened;

    // Optional check of every control lookup against the dialog's template: when set, a
    // control that the template lacks is absent (get_dlg_item gives null, as the real
    // dialog manager does) and every by-id access to it is noted in template_misses as
    // "<template id>:<control id>".
    std::function<bool(int template_id, int control_id)> control_exists;
    std::vector<std::string> template_misses;

    // Scripted answers.
    std::uint32_t tick = 0;
    std::optional<std::string> folder_choice;
    std::set<int> missing_bitmaps;

    // DialogHost
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
    void add_tool(WindowHandle tooltip, WindowHandle control, int id, const Rect& rect,
                  const std::string& text) override;
    CursorHandle set_wait_cursor() override;
    void set_cursor(CursorHandle cursor) override;
    std::optional<std::string> browse_for_folder(const std::string& title) override;

    // A fake bitmap handle encodes its resource id; sizes can be scripted.
    static BitmapHandle bitmap_handle(int id) {
        return reinterpret_cast<BitmapHandle>(static_cast<std::intptr_t>(id));
    }
    std::map<int, std::pair<int, int>> bitmap_sizes;
    // The cursor currently shown: 0 normal, 1 wait.
    int cursor = 0;

  private:
    struct Posted {
        WindowHandle window;
        unsigned message;
        WParam wparam;
        LParam lparam;
    };
    Window* make_window(int id, Window* parent);
    // False (and noted) when control_exists says the dialog's template lacks `id`.
    bool in_template(WindowHandle dialog, int id);
    // A control looked up by id, checked against the template.
    Window& item(WindowHandle dialog, int id) {
        in_template(dialog, id);
        return control(dialog, id);
    }
    // Records "name(arg,arg)": strings as they are, bools as 1/0, numbers in decimal.
    template <class... Args>
    void record(const char* name, const Args&... args) {
        std::string call = std::string(name) + "(";
        [[maybe_unused]] const char* separator = "";
        ((call += separator + arg_text(args), separator = ","), ...);
        calls.push_back(call + ")");
        if (echo) {
            echo(calls.back());
        }
    }
    static std::string arg_text(const std::string& s) { return s; }
    static std::string arg_text(const char* s) { return s; }
    static std::string arg_text(bool b) { return b ? "1" : "0"; }
    template <class T>
    static std::string arg_text(T n) {
        return std::to_string(n);
    }
    std::vector<std::unique_ptr<Window>> windows;
    std::deque<Posted> posted;
    std::map<int, std::deque<Script>> scripts;
};

// Texts of the message and error dialogs shown so far, in order.
inline std::vector<std::string> shown_messages(const FakeDialogHost& host) {
    const std::string prefix = "set_dlg_item_text(" + std::to_string(IDC_ERROR_MESSAGE) + ",";
    std::vector<std::string> out;
    for (const std::string& c : host.calls) {
        if (c.rfind(prefix, 0) == 0) {
            out.push_back(c.substr(prefix.size(), c.size() - prefix.size() - 1));
        }
    }
    return out;
}
