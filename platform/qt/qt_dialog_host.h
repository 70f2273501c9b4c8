// The dialog host on Qt 6 Widgets: builds every dialog from its template data, runs
// nested modal loops, and turns Qt events into the window messages the dialog framework
// routes. It is also the media layer's VideoSurfaces: each preview pane is a widget that
// paints the newest frame the renderer presented; and its PropertyFrames: a filter's
// property pages run as the generic property dialog.
//
// One instance per process, created on the user-interface thread after QApplication and
// destroyed before it. Every call runs on that thread except post_message and the
// surfaces' present/clear, which any thread may call.
#pragma once

#include <QIcon>
#include <QObject>
#include <QPixmap>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/dialog_host.h"
#include "platform/property_pages.h"
#include "platform/video_surface.h"

class QWidget;
class QPainter;
struct DialogTemplate;

namespace kc::qt {

struct Node;
class PaneSurface;

struct HostOptions {
    // Folders searched, in order, for the skin bitmaps "<id>.png" and the icon
    // "kestrel-capture.svg" / ".png" (or "icon-<id>"). A bitmap found nowhere is drawn as a
    // labelled grey stand-in at its table size, so the program still runs without its art.
    std::vector<std::string> art_dirs;
};

class QtDialogHost : public QObject,
                     public DialogHost,
                     public VideoSurfaces,
                     public PropertyFrames {
  public:
    explicit QtDialogHost(HostOptions options = {});
    ~QtDialogHost() override;
    QtDialogHost(const QtDialogHost&) = delete;
    QtDialogHost& operator=(const QtDialogHost&) = delete;

    // --- Beyond the platform interface: for the program, its self-test and the tests --
    // The top-level widget of a dialog, or the widget of a control; null when unknown.
    QWidget* widget(WindowHandle window) const;
    // The dialog most recently opened that is still running (the innermost modal one),
    // or null.
    WindowHandle top_dialog() const;
    // Called on the UI thread each time a dialog has been created, initialised and
    // shown, before its modal loop starts. Tests and the self-test drive windows from it.
    void set_dialog_shown_hook(std::function<void(WindowHandle dialog, int template_id)> hook) {
        shown_hook = std::move(hook);
    }
    // When set, message boxes are answered by the hook instead of being shown (tests
    // and the unattended self-test must never block on one).
    void set_message_box_hook(
        std::function<int(const std::string& text, const std::string& title, unsigned flags)>
            hook) {
        message_box_hook = std::move(hook);
    }
    // Whether a bitmap of that id was found on disk (not drawn as a stand-in).
    bool has_art(int bitmap_id) const;
    // The size of the newest frame presented to a pane; (0, 0) without one.
    std::pair<int, int> presented_size(WindowHandle pane);

    // --- DialogHost ------------------------------------------------------------------
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

    // --- VideoSurfaces -----------------------------------------------------------------
    VideoSurface* surface_for(WindowHandle pane) override;

    // --- PropertyFrames ----------------------------------------------------------------
    std::optional<PropertyChanges> show_property_frame(
        WindowHandle owner, const std::string& caption,
        const std::vector<PropertyPage>& pages) override;

    // --- Used by the host's own widgets (UI thread) --------------------------------------
    // Sends a message to a window's procedure now: the dialog procedure of a dialog,
    // the window procedure of a control. 0 for a window that is gone.
    LResult send(Node* node, unsigned message, WParam wparam, LParam lparam);
    void paint_owner_drawn(Node* button, QPainter& painter, bool pressed);
    // Enter, Esc and the close box, as the classic dialog manager turns them into
    // messages.
    void key_enter(Node* dialog);
    void key_escape(Node* dialog);
    void close_box(Node* dialog);
    // The pane's newest frame arrived; repaint it on this thread.
    void frame_ready(PaneSurface* surface);

  private:
    Node* node(WindowHandle window) const;
    Node* control(WindowHandle dialog, int id) const;
    Node* make_node();
    void build_controls(Node* dialog, const DialogTemplate& t);
    void apply_colours(Node* control);
    void destroy_dialog(Node* dialog);

    HostOptions options;
    std::vector<std::unique_ptr<Node>> nodes;  // never freed before the host: handles
                                               // posted from other threads stay checkable
    std::vector<Node*> running_dialogs;
    std::map<std::pair<Node*, unsigned>, QObject*> timers;
    std::vector<std::unique_ptr<PaneSurface>> surfaces;
    std::function<void(WindowHandle, int)> shown_hook;
    std::function<int(const std::string&, const std::string&, unsigned)> message_box_hook;
    std::set<Node*> known;
    std::map<int, QPixmap> pixmap_cache;
    std::set<int> found_art;
    std::vector<std::unique_ptr<QIcon>> icons;
    QPixmap find_picture(int id);
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    int cursor_state = 0;  // 0 normal, 1 wait
};

}  // namespace kc::qt
