#include "tests/fakes/fake_dialog_host.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace {
std::string id_of(WindowHandle h) {
    return h ? std::to_string(FakeDialogHost::win(h)->id) : std::string("null");
}

LResult default_window_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

constexpr std::intptr_t normal_cursor = 1;
constexpr std::intptr_t wait_cursor = 2;
}  // namespace

FakeDialogHost::Window* FakeDialogHost::make_window(int id, Window* parent) {
    windows.push_back(std::make_unique<Window>());
    Window* w = windows.back().get();
    w->id = id;
    w->parent = parent;
    w->window_proc = &default_window_proc;
    return w;
}

WindowHandle FakeDialogHost::open(DialogProc proc, LParam param, int template_id,
                                  WindowHandle parent) {
    Window* w = make_window(template_id, win(parent));
    w->is_dialog = true;
    w->dialog_proc = proc;
    dialogs_opened.push_back(template_id);
    record("dialog_box", template_id, id_of(parent));
    proc(handle(w), wm::init_dialog, 0, param);
    return handle(w);
}

LResult FakeDialogHost::send(WindowHandle window, unsigned message, WParam wparam, LParam lparam) {
    Window* w = win(window);
    if (w->is_dialog) {
        return w->dialog_proc ? w->dialog_proc(window, message, wparam, lparam) : 0;
    }
    return w->window_proc(window, message, wparam, lparam);
}

LResult FakeDialogHost::command(WindowHandle dialog, int id, unsigned code) {
    return send(dialog, wm::command, make_wparam(static_cast<unsigned>(id), code), 0);
}

void FakeDialogHost::pump() {
    while (!posted.empty()) {
        Posted p = posted.front();
        posted.pop_front();
        if (win(p.window)->ended) {
            continue;  // a destroyed window gets nothing
        }
        send(p.window, p.message, p.wparam, p.lparam);
    }
}

FakeDialogHost::Window& FakeDialogHost::control(WindowHandle dialog, int id) {
    Window* d = win(dialog);
    auto it = d->controls.find(id);
    if (it == d->controls.end()) {
        it = d->controls.emplace(id, make_window(id, d)).first;
    }
    return *it->second;
}

void FakeDialogHost::remove_control(WindowHandle dialog, int id) {
    win(dialog)->missing_controls.insert(id);
}

bool FakeDialogHost::called(const std::string& call) const {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

std::size_t FakeDialogHost::count(const std::string& prefix) const {
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [&](const std::string& c) { return c.rfind(prefix, 0) == 0; }));
}

LResult FakeDialogHost::dialog_box(int template_id, WindowHandle parent, DialogProc proc,
                                   LParam param) {
    const WindowHandle h = open(proc, param, template_id, parent);
    Window* w = win(h);
    auto it = scripts.find(template_id);
    if (!w->ended && it != scripts.end() && !it->second.empty()) {
        Script s = std::move(it->second.front());
        it->second.pop_front();
        s(*this, h);
    }
    if (!w->ended) {
        pump();
    }
    if (!w->ended) {
        w->ended = true;
        w->end_code = 0;
    }
    w->timers.clear();
    return w->end_code;
}

void FakeDialogHost::end_dialog(WindowHandle dialog, LResult code) {
    record("end_dialog", id_of(dialog), code);
    win(dialog)->ended = true;
    win(dialog)->end_code = code;
}

bool FakeDialogHost::in_template(WindowHandle dialog, int id) {
    const Window* d = win(dialog);
    if (!control_exists || !d->is_dialog || control_exists(d->id, id)) {
        return true;
    }
    template_misses.push_back(std::to_string(d->id) + ":" + std::to_string(id));
    return false;
}

WindowHandle FakeDialogHost::get_dlg_item(WindowHandle dialog, int id) {
    if (win(dialog)->missing_controls.count(id) || !in_template(dialog, id)) {
        return nullptr;
    }
    return handle(&control(dialog, id));
}

WindowHandle FakeDialogHost::get_parent(WindowHandle window) {
    record("get_parent", id_of(window));
    return handle(win(window)->parent);
}

void FakeDialogHost::set_prop(WindowHandle window, const char* name, void* value) {
    record("set_prop", id_of(window), name);
    win(window)->props[name] = value;
}

void* FakeDialogHost::get_prop(WindowHandle window, const char* name) {
    auto& props = win(window)->props;
    auto it = props.find(name);
    return it == props.end() ? nullptr : it->second;
}

void FakeDialogHost::remove_prop(WindowHandle window, const char* name) {
    record("remove_prop", id_of(window), name);
    win(window)->props.erase(name);
}

bool FakeDialogHost::post_message(WindowHandle window, unsigned message, WParam wparam,
                                  LParam lparam) {
    record("post_message", id_of(window), message, wparam, lparam);
    posted.push_back({window, message, wparam, lparam});
    return true;
}

int FakeDialogHost::message_box(WindowHandle owner, const std::string& text,
                                const std::string& title, unsigned flags) {
    record("message_box", id_of(owner), text, title, flags);
    // Echoed so that death tests can see a box shown just before an assertion.
    std::fprintf(stderr, "%s\n", calls.back().c_str());
    return 1;
}

WindowProc FakeDialogHost::get_window_proc(WindowHandle window) {
    record("get_window_proc", id_of(window));
    return win(window)->window_proc;
}

void FakeDialogHost::set_window_proc(WindowHandle window, WindowProc proc) {
    record("set_window_proc", id_of(window));
    win(window)->window_proc = proc;
}

LResult FakeDialogHost::call_window_proc(WindowProc proc, WindowHandle window, unsigned message,
                                         WParam wparam, LParam lparam) {
    record("call_window_proc", id_of(window), message);
    return proc(window, message, wparam, lparam);
}

Rect FakeDialogHost::get_client_rect(WindowHandle window) {
    return win(window)->client;
}

void FakeDialogHost::set_client_size(WindowHandle window, int width, int height) {
    record("set_client_size", id_of(window), width, height);
    win(window)->client = Rect{0, 0, width, height};
}

void FakeDialogHost::invalidate_rect(WindowHandle window, const Rect* rect, bool erase) {
    if (rect) {
        record("invalidate_rect", id_of(window), rect->left, rect->top, rect->right, rect->bottom,
               erase);
    } else {
        record("invalidate_rect", id_of(window), "all", erase);
    }
}

void FakeDialogHost::update_window(WindowHandle window) {
    record("update_window", id_of(window));
}

void FakeDialogHost::enable_window(WindowHandle window, bool enable) {
    record("enable_window", id_of(window), enable);
    win(window)->enabled = enable;
}

void FakeDialogHost::set_dlg_item_text(WindowHandle dialog, int id, const std::string& text) {
    record("set_dlg_item_text", id, text);
    item(dialog, id).text = text;
}

std::string FakeDialogHost::get_dlg_item_text(WindowHandle dialog, int id, int max_chars) {
    const std::string& t = item(dialog, id).text;
    return t.substr(0, static_cast<std::size_t>(std::max(0, max_chars - 1)));
}

void FakeDialogHost::set_dlg_item_int(WindowHandle dialog, int id, std::uint32_t value,
                                      bool is_signed) {
    const std::string text =
        is_signed ? std::to_string(static_cast<std::int32_t>(value)) : std::to_string(value);
    record("set_dlg_item_int", id, text);
    item(dialog, id).text = text;
}

std::uint32_t FakeDialogHost::get_dlg_item_int(WindowHandle dialog, int id, bool is_signed) {
    const std::string& t = item(dialog, id).text;
    std::int64_t v = 0;
    const bool parsed = std::from_chars(t.data(), t.data() + t.size(), v).ec == std::errc();
    const bool fits = is_signed ? v >= INT32_MIN && v <= INT32_MAX : v >= 0 && v <= UINT32_MAX;
    return parsed && fits ? static_cast<std::uint32_t>(v) : 0;
}

void FakeDialogHost::check_dlg_button(WindowHandle dialog, int id, bool checked) {
    record("check_dlg_button", id, checked);
    item(dialog, id).checked = checked;
}

bool FakeDialogHost::is_dlg_button_checked(WindowHandle dialog, int id) {
    return item(dialog, id).checked;
}

void FakeDialogHost::check_radio_button(WindowHandle dialog, int first_id, int last_id,
                                        int checked_id) {
    in_template(dialog, first_id);
    in_template(dialog, last_id);
    record("check_radio_button", first_id, last_id, checked_id);
    for (int id = first_id; id <= last_id; ++id) {
        control(dialog, id).checked = id == checked_id;
    }
}

int FakeDialogHost::combo_add_string(WindowHandle combo, const std::string& text) {
    record("combo_add_string", id_of(combo), text);
    win(combo)->combo_items.push_back(text);
    return static_cast<int>(win(combo)->combo_items.size()) - 1;
}

void FakeDialogHost::combo_set_cur_sel(WindowHandle combo, int index) {
    record("combo_set_cur_sel", id_of(combo), index);
    Window* w = win(combo);
    w->combo_sel = index >= 0 && index < static_cast<int>(w->combo_items.size()) ? index : -1;
}

int FakeDialogHost::combo_get_cur_sel(WindowHandle combo) {
    return win(combo)->combo_sel;
}

void FakeDialogHost::progress_set_range(WindowHandle bar, int low, int high) {
    record("progress_set_range", id_of(bar), low, high);
}

void FakeDialogHost::progress_set_pos(WindowHandle bar, int position) {
    record("progress_set_pos", id_of(bar), position);
    win(bar)->progress_pos = position;
}

void FakeDialogHost::list_insert_column(WindowHandle list, int column, const std::string& header,
                                        int width_px) {
    record("list_insert_column", column, header, width_px);
    auto& cols = win(list)->columns;
    cols.insert(cols.begin() + std::min<std::size_t>(static_cast<std::size_t>(column), cols.size()),
                header);
}

void FakeDialogHost::list_delete_all_items(WindowHandle list) {
    record("list_delete_all_items");
    win(list)->rows.clear();
    win(list)->selected_rows.clear();
}

void FakeDialogHost::list_insert_item(WindowHandle list, int row, const std::string& text) {
    record("list_insert_item", row, text);
    auto& rows = win(list)->rows;
    const auto at = std::min<std::size_t>(static_cast<std::size_t>(std::max(row, 0)), rows.size());
    rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(at), std::vector<std::string>{text});
}

void FakeDialogHost::list_set_item_text(WindowHandle list, int row, int column,
                                        const std::string& text) {
    record("list_set_item_text", row, column, text);
    auto& rows = win(list)->rows;
    if (row < 0 || row >= static_cast<int>(rows.size())) {
        return;
    }
    auto& cells = rows[static_cast<std::size_t>(row)];
    if (cells.size() <= static_cast<std::size_t>(column)) {
        cells.resize(static_cast<std::size_t>(column) + 1);
    }
    cells[static_cast<std::size_t>(column)] = text;
}

int FakeDialogHost::list_get_item_count(WindowHandle list) {
    return static_cast<int>(win(list)->rows.size());
}

bool FakeDialogHost::list_is_item_selected(WindowHandle list, int row) {
    return win(list)->selected_rows.count(row) != 0;
}

unsigned FakeDialogHost::set_timer(WindowHandle window, unsigned id, unsigned period_ms) {
    record("set_timer", id_of(window), id, period_ms);
    win(window)->timers.insert(id);
    return id;
}

void FakeDialogHost::kill_timer(WindowHandle window, unsigned id) {
    record("kill_timer", id_of(window), id);
    win(window)->timers.erase(id);
}

std::uint32_t FakeDialogHost::tick_count() {
    return tick;
}

BitmapHandle FakeDialogHost::load_bitmap(int id, bool dib_section) {
    record("load_bitmap", id, dib_section);
    return missing_bitmaps.count(id) ? nullptr : bitmap_handle(id);
}

bool FakeDialogHost::bitmap_size(BitmapHandle bitmap, int& width, int& height) {
    auto it = bitmap_sizes.find(static_cast<int>(reinterpret_cast<std::intptr_t>(bitmap)));
    if (it == bitmap_sizes.end()) {
        return false;
    }
    width = it->second.first;
    height = it->second.second;
    return true;
}

void FakeDialogHost::delete_bitmap(BitmapHandle bitmap) {
    record("delete_bitmap", reinterpret_cast<std::intptr_t>(bitmap));
}

IconHandle FakeDialogHost::load_icon(int id) {
    record("load_icon", id);
    return reinterpret_cast<IconHandle>(static_cast<std::intptr_t>(id));
}

void FakeDialogHost::set_big_icon(WindowHandle window, IconHandle icon) {
    record("set_big_icon", id_of(window), reinterpret_cast<std::intptr_t>(icon));
}

BrushHandle FakeDialogHost::stock_brush(StockBrush which) {
    return reinterpret_cast<BrushHandle>(
        static_cast<std::intptr_t>(which == StockBrush::black ? 1 : 2));
}

void FakeDialogHost::set_bk_color(DcHandle, Rgb c) {
    record("set_bk_color", c.r, c.g, c.b);
}

void FakeDialogHost::set_text_color(DcHandle, Rgb c) {
    record("set_text_color", c.r, c.g, c.b);
}

void FakeDialogHost::set_bk_mode_transparent(DcHandle) {
    record("set_bk_mode_transparent");
}

void FakeDialogHost::draw_bitmap(DcHandle, int x, int y, int width, int height,
                                 BitmapHandle bitmap) {
    record("draw_bitmap", x, y, width, height, reinterpret_cast<std::intptr_t>(bitmap));
}

void FakeDialogHost::draw_bitmap_on_window(WindowHandle window, int x, int y, BitmapHandle bitmap) {
    record("draw_bitmap_on_window", id_of(window), x, y, reinterpret_cast<std::intptr_t>(bitmap));
}

WindowHandle FakeDialogHost::create_tooltip(WindowHandle owner) {
    record("create_tooltip", id_of(owner));
    return handle(make_window(-100, win(owner)));
}

void FakeDialogHost::add_tool(WindowHandle, WindowHandle control, int id, const Rect&,
                              const std::string& text) {
    record("add_tool", id_of(control), id, text);
}

CursorHandle FakeDialogHost::set_wait_cursor() {
    record("set_wait_cursor");
    CursorHandle previous =
        reinterpret_cast<CursorHandle>(cursor == 1 ? wait_cursor : normal_cursor);
    cursor = 1;
    return previous;
}

void FakeDialogHost::set_cursor(CursorHandle c) {
    record("set_cursor");
    cursor = reinterpret_cast<std::intptr_t>(c) == wait_cursor ? 1 : 0;
}

std::optional<std::string> FakeDialogHost::browse_for_folder(const std::string& title) {
    record("browse_for_folder", title);
    return folder_choice;
}
