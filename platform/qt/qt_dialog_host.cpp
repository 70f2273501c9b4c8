// The core of the dialog host: the window records and the routing of messages to them,
// each dialog's own modal loop, window timers, Enter, Esc and the close box, tooltips, the
// cursor and the preview panes' surfaces. Building controls from their templates
// (qt_controls.cpp) and drawing the skin (qt_skin.cpp) live beside it; this file holds
// what decides when the logic is called.
#include "platform/qt/qt_dialog_host.h"

#include <QApplication>
#include <QEventLoop>
#include <QFileDialog>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/qt/dialog_units.h"
#include "platform/qt/qt_host_internal.h"
#include "resources/dialog_template.h"

namespace kc::qt {
namespace {

using namespace style;

// Message box buttons, icons and answers.
constexpr unsigned MB_TYPEMASK = 0x000F;
constexpr unsigned MB_OKCANCEL = 0x0001;
constexpr unsigned MB_YESNO = 0x0004;
constexpr unsigned MB_ICONMASK = 0x00F0;
constexpr unsigned MB_ICONQUESTION = 0x0020;
constexpr unsigned MB_ICONEXCLAMATION = 0x0030;
constexpr unsigned MB_ICONASTERISK = 0x0040;
constexpr int IDYES = 6;
constexpr int IDNO = 7;
// The shortest period a window timer runs at, as the classic timer does.
constexpr unsigned min_timer_period_ms = 10;
constexpr int max_path_chars = 259;

}  // namespace

LResult control_default_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

QtDialogHost::QtDialogHost(HostOptions options_) : options(std::move(options_)) {}

QtDialogHost::~QtDialogHost() {
    for (auto& [key, timer] : timers) {
        delete timer;
    }
    timers.clear();
    for (auto& n : nodes) {
        n->alive = false;
        if (n->type == Node::Type::dialog && n->widget) {
            delete n->widget.data();
        }
    }
}

// --- Records -------------------------------------------------------------------------

Node* QtDialogHost::make_node() {
    nodes.push_back(std::make_unique<Node>());
    known.insert(nodes.back().get());
    return nodes.back().get();
}

Node* QtDialogHost::node(WindowHandle window) const {
    auto* n = reinterpret_cast<Node*>(window);
    if (n == nullptr || known.count(n) == 0 || !n->alive) {
        return nullptr;
    }
    return n;
}

Node* QtDialogHost::control(WindowHandle dialog, int id) const {
    Node* d = node(dialog);
    if (d == nullptr) {
        return nullptr;
    }
    for (Node* c : d->controls) {
        if (c->id == id) {
            return c;
        }
    }
    return nullptr;
}

QWidget* QtDialogHost::widget(WindowHandle window) const {
    Node* n = node(window);
    return n != nullptr ? n->widget.data() : nullptr;
}

WindowHandle QtDialogHost::top_dialog() const {
    return running_dialogs.empty() ? nullptr : running_dialogs.back()->handle();
}

LResult QtDialogHost::send(Node* n, unsigned message, WParam wparam, LParam lparam) {
    if (n == nullptr || !n->alive) {
        return 0;
    }
    // An exception must not unwind through Qt's event dispatch: that is undefined. The
    // handlers catch what they expect, so one arriving here is a defect; stop loudly.
    try {
        if (n->type == Node::Type::dialog) {
            return n->dialog_proc != nullptr ? n->dialog_proc(n->handle(), message, wparam, lparam)
                                             : 0;
        }
        if (n->type == Node::Type::control && n->window_proc != nullptr) {
            return n->window_proc(n->handle(), message, wparam, lparam);
        }
    } catch (...) {
        std::fprintf(stderr, "kestrel-capture: an exception left the handler of message %u\n",
                     message);
        std::abort();
    }
    return 0;
}

// --- Dialogs -------------------------------------------------------------------------

LResult QtDialogHost::dialog_box(int template_id, WindowHandle parent, DialogProc proc,
                                 LParam param) {
    const DialogTemplate* t = find_dialog_template(template_id);
    if (t == nullptr || proc == nullptr) {
        return -1;
    }
    Node* owner = node(parent);
    QWidget* owner_widget = owner != nullptr && owner->widget ? owner->widget->window() : nullptr;

    Node* d = make_node();
    d->type = Node::Type::dialog;
    d->id = template_id;
    d->parent = owner;
    d->dialog_proc = proc;
    auto* w = new DialogWidget(*this, *d, owner_widget);
    d->widget = w;
    w->setWindowTitle(qstr(t->caption));
    // The templates' font is not on this desktop; a sans face at its pixel height keeps
    // the texts inside the controls laid out for it.
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(11);
    font.setStretch(QFont::Condensed);
    w->setFont(font);
    const DialogUnits du = DialogUnits::for_font(t->font, t->font_points);
    w->setFixedSize(du.x(t->cx), du.y(t->cy));
    if (owner_widget != nullptr) {
        // Centred over the owner, so that a dialog never opens off its window.
        const QRect o = owner_widget->frameGeometry();
        w->move(o.center() - QPoint(w->width() / 2, w->height() / 2));
    } else if (QScreen* screen = QGuiApplication::primaryScreen()) {
        w->move(screen->availableGeometry().topLeft() + QPoint(du.x(t->x), du.y(t->y)));
    }
    build_controls(d, *t);
    d->overlay = new OverlayWidget(w);
    d->overlay->setGeometry(w->rect());
    d->overlay->raise();
    running_dialogs.push_back(d);

    // The dialog manager gives the font before the object is attached; the framework
    // must ignore it.
    send(d, wm::set_font, 0, 0);
    send(d, wm::init_dialog, 0, param);
    for (Node* c : d->controls) {
        apply_colours(c);
    }
    if (!d->ended && d->alive) {
        if (owner_widget != nullptr) {
            w->setWindowModality(Qt::ApplicationModal);
        }
        w->show();
        w->activateWindow();
        if (shown_hook) {
            shown_hook(d->handle(), template_id);
        }
        if (!d->ended) {
            QEventLoop loop;
            d->loop = &loop;
            loop.exec();
            d->loop = nullptr;
        }
    }
    const LResult code = d->end_code;
    destroy_dialog(d);
    if (owner_widget != nullptr && owner != nullptr && owner->alive) {
        owner_widget->activateWindow();
    }
    return code;
}

void QtDialogHost::destroy_dialog(Node* d) {
    for (auto it = timers.begin(); it != timers.end();) {
        if (it->first.first == d || it->first.first->parent == d) {
            delete it->second;
            it = timers.erase(it);
        } else {
            ++it;
        }
    }
    for (Node* c : d->controls) {
        c->alive = false;
        if (c->surface != nullptr) {
            c->surface->pane = nullptr;
        }
    }
    for (auto& n : nodes) {
        if (n->type == Node::Type::tooltip && n->parent == d) {
            n->alive = false;
        }
    }
    d->alive = false;
    running_dialogs.erase(std::remove(running_dialogs.begin(), running_dialogs.end(), d),
                          running_dialogs.end());
    delete d->widget.data();
}

void QtDialogHost::end_dialog(WindowHandle dialog, LResult code) {
    Node* d = node(dialog);
    if (d == nullptr || d->type != Node::Type::dialog || d->ended) {
        return;
    }
    d->ended = true;
    d->end_code = code;
    if (d->widget) {
        d->widget->hide();
    }
    if (d->loop != nullptr) {
        d->loop->quit();
    }
}

WindowHandle QtDialogHost::get_dlg_item(WindowHandle dialog, int id) {
    Node* c = control(dialog, id);
    return c != nullptr ? c->handle() : nullptr;
}

WindowHandle QtDialogHost::get_parent(WindowHandle window) {
    Node* n = node(window);
    return n != nullptr && n->parent != nullptr ? n->parent->handle() : nullptr;
}

void QtDialogHost::set_prop(WindowHandle window, const char* name, void* value) {
    if (Node* n = node(window)) {
        n->props[name] = value;
    }
}

void* QtDialogHost::get_prop(WindowHandle window, const char* name) {
    Node* n = node(window);
    if (n == nullptr) {
        return nullptr;
    }
    auto it = n->props.find(name);
    return it == n->props.end() ? nullptr : it->second;
}

void QtDialogHost::remove_prop(WindowHandle window, const char* name) {
    if (Node* n = node(window)) {
        n->props.erase(name);
    }
}

bool QtDialogHost::post_message(WindowHandle window, unsigned message, WParam wparam,
                                LParam lparam) {
    auto* target = reinterpret_cast<Node*>(window);
    if (target == nullptr) {
        return false;
    }
    // Queued onto the UI thread; whether the window still exists is decided there.
    QMetaObject::invokeMethod(
        this,
        [this, target, message, wparam, lparam] {
            Node* n = node(target->handle());
            if (n == nullptr) {
                return;
            }
            const Node* dialog = n->type == Node::Type::dialog ? n : n->parent;
            if (dialog != nullptr && dialog->ended) {
                return;  // an ended dialog gets nothing more
            }
            send(n, message, wparam, lparam);
        },
        Qt::QueuedConnection);
    return true;
}

int QtDialogHost::message_box(WindowHandle owner, const std::string& text, const std::string& title,
                              unsigned flags) {
    if (message_box_hook) {
        return message_box_hook(text, title, flags);
    }
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    switch (flags & MB_ICONMASK) {
        case MB_ICONHAND:
            icon = QMessageBox::Critical;
            break;
        case MB_ICONQUESTION:
            icon = QMessageBox::Question;
            break;
        case MB_ICONEXCLAMATION:
            icon = QMessageBox::Warning;
            break;
        case MB_ICONASTERISK:
            icon = QMessageBox::Information;
            break;
        default:
            break;
    }
    QMessageBox::StandardButtons buttons = QMessageBox::Ok;
    if ((flags & MB_TYPEMASK) == MB_OKCANCEL) {
        buttons = QMessageBox::Ok | QMessageBox::Cancel;
    } else if ((flags & MB_TYPEMASK) == MB_YESNO) {
        buttons = QMessageBox::Yes | QMessageBox::No;
    }
    QMessageBox box(icon, qstr(title), qstr(text), buttons, widget(owner));
    switch (box.exec()) {
        case QMessageBox::Cancel:
            return IDCANCEL;
        case QMessageBox::Yes:
            return IDYES;
        case QMessageBox::No:
            return IDNO;
        default:
            return IDOK;
    }
}

WindowProc QtDialogHost::get_window_proc(WindowHandle window) {
    Node* n = node(window);
    return n != nullptr ? n->window_proc : nullptr;
}

void QtDialogHost::set_window_proc(WindowHandle window, WindowProc proc) {
    if (Node* n = node(window); n != nullptr && n->type == Node::Type::control) {
        n->window_proc = proc != nullptr ? proc : &control_default_proc;
    }
}

LResult QtDialogHost::call_window_proc(WindowProc proc, WindowHandle window, unsigned message,
                                       WParam wparam, LParam lparam) {
    return proc != nullptr ? proc(window, message, wparam, lparam) : 0;
}

Rect QtDialogHost::get_client_rect(WindowHandle window) {
    QWidget* w = widget(window);
    return w != nullptr ? Rect{0, 0, w->width(), w->height()} : Rect{};
}

void QtDialogHost::set_client_size(WindowHandle window, int width, int height) {
    Node* n = node(window);
    if (n == nullptr || !n->widget || width <= 0 || height <= 0) {
        return;
    }
    n->widget->setFixedSize(width, height);
    if (n->overlay != nullptr) {
        n->overlay->setGeometry(0, 0, width, height);
    }
}

void QtDialogHost::invalidate_rect(WindowHandle window, const Rect* rect, bool) {
    Node* n = node(window);
    if (n == nullptr || !n->widget) {
        return;
    }
    const QRect area = rect != nullptr ? QRect(QPoint(rect->left, rect->top),
                                               QPoint(rect->right - 1, rect->bottom - 1))
                                       : n->widget->rect();
    if (n->overlay != nullptr) {
        n->overlay->erase(area);
    }
    n->widget->update(area);
}

void QtDialogHost::update_window(WindowHandle window) {
    if (QWidget* w = widget(window); w != nullptr && w->isVisible()) {
        w->repaint();
    }
}

void QtDialogHost::enable_window(WindowHandle window, bool enable) {
    Node* n = node(window);
    if (n == nullptr || !n->widget) {
        return;
    }
    n->widget->setEnabled(enable);
    apply_colours(n);
}

// --- Timers and time -------------------------------------------------------------------

unsigned QtDialogHost::set_timer(WindowHandle window, unsigned id, unsigned period_ms) {
    Node* n = node(window);
    if (n == nullptr || id == 0) {
        return 0;
    }
    const auto key = std::make_pair(n, id);
    if (auto it = timers.find(key); it != timers.end()) {
        delete it->second;
        timers.erase(it);
    }
    // A QTimer fires in whichever event loop runs, so a window's timers keep coming
    // while a nested modal dialog or message box is open.
    auto* timer = new QTimer(this);
    timer->setInterval(static_cast<int>(std::max(period_ms, min_timer_period_ms)));
    QObject::connect(timer, &QTimer::timeout, this, [this, n, id] {
        if (n->alive) {
            send(n, wm::timer, id, 0);
        }
    });
    timer->start();
    timers[key] = timer;
    return id;
}

void QtDialogHost::kill_timer(WindowHandle window, unsigned id) {
    auto it = timers.find(std::make_pair(reinterpret_cast<Node*>(window), id));
    if (it != timers.end()) {
        delete it->second;
        timers.erase(it);
    }
}

std::uint32_t QtDialogHost::tick_count() {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - started);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(ms.count()));
}

// --- Tooltips, cursor, folder browser ----------------------------------------------------

WindowHandle QtDialogHost::create_tooltip(WindowHandle owner) {
    Node* o = node(owner);
    if (o == nullptr) {
        return nullptr;
    }
    Node* t = make_node();
    t->type = Node::Type::tooltip;
    t->parent = o;
    return t->handle();
}

void QtDialogHost::add_tool(WindowHandle tooltip, WindowHandle control_handle, int, const Rect&,
                            const std::string& text) {
    Node* t = node(tooltip);
    QWidget* w = widget(control_handle);
    if (t != nullptr && t->type == Node::Type::tooltip && w != nullptr) {
        w->setToolTip(qstr(text));
    }
}

namespace {
CursorHandle cursor_handle(int state) {
    return reinterpret_cast<CursorHandle>(static_cast<std::intptr_t>(state + 1));
}
}  // namespace

CursorHandle QtDialogHost::set_wait_cursor() {
    const int previous = cursor_state;
    if (cursor_state == 0) {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        cursor_state = 1;
    }
    return cursor_handle(previous);
}

void QtDialogHost::set_cursor(CursorHandle cursor) {
    const int wanted = static_cast<int>(reinterpret_cast<std::intptr_t>(cursor)) - 1;
    if (wanted == 0 && cursor_state == 1) {
        QApplication::restoreOverrideCursor();
        cursor_state = 0;
    } else if (wanted == 1 && cursor_state == 0) {
        set_wait_cursor();
    }
}

std::optional<std::string> QtDialogHost::browse_for_folder(const std::string& title) {
    Node* top = running_dialogs.empty() ? nullptr : running_dialogs.back();
    const QString folder =
        QFileDialog::getExistingDirectory(top != nullptr ? top->widget.data() : nullptr,
                                          qstr(title), QString(), QFileDialog::ShowDirsOnly);
    if (folder.isEmpty()) {
        return std::nullopt;
    }
    std::string path = folder.toStdString();
    if (static_cast<int>(path.size()) > max_path_chars) {
        message_box(top != nullptr ? top->handle() : nullptr,
                    "The folder's path is longer than 259 characters. Please choose another.",
                    qstr(title).toStdString(), MB_ICONEXCLAMATION);
        return std::nullopt;
    }
    return path;
}

// --- Keys and the close box -----------------------------------------------------------------

void QtDialogHost::key_enter(Node* d) {
    if (d == nullptr || !d->alive || d->ended) {
        return;
    }
    // A focused push button takes Enter; otherwise the default push button, otherwise
    // IDOK, as the classic dialog manager decides.
    Node* target = nullptr;
    QWidget* focus = QApplication::focusWidget();
    for (Node* c : d->controls) {
        if (c->widget == focus &&
            (c->kind == ControlKind::push_button || c->kind == ControlKind::owner_drawn)) {
            target = c;
        }
    }
    if (target == nullptr) {
        for (Node* c : d->controls) {
            if (c->kind == ControlKind::push_button && c->tmpl != nullptr &&
                button_type(c->tmpl->style) == BS_DEFPUSHBUTTON) {
                target = c;
                break;
            }
        }
    }
    if (target != nullptr && target->widget && !target->widget->isEnabled()) {
        return;
    }
    const unsigned id = target != nullptr ? static_cast<unsigned>(target->id) : IDOK;
    send(d, wm::command, make_wparam(id, BN_CLICKED),
         target != nullptr ? reinterpret_cast<LParam>(target->handle()) : 0);
}

void QtDialogHost::key_escape(Node* d) {
    if (d == nullptr || !d->alive || d->ended) {
        return;
    }
    Node* cancel = control(d->handle(), IDCANCEL);
    if (cancel != nullptr && cancel->widget && !cancel->widget->isEnabled()) {
        return;
    }
    send(d, wm::command, make_wparam(IDCANCEL, BN_CLICKED),
         cancel != nullptr ? reinterpret_cast<LParam>(cancel->handle()) : 0);
}

void QtDialogHost::close_box(Node* d) {
    // A procedure that handles WM_CLOSE decides alone; one that leaves it gets Esc's
    // IDCANCEL, as the classic default dialog procedure sends.
    if (send(d, wm::close, 0, 0) == 0 && d->alive && !d->ended) {
        Node* cancel = control(d->handle(), IDCANCEL);
        send(d, wm::command, make_wparam(IDCANCEL, BN_CLICKED),
             cancel != nullptr ? reinterpret_cast<LParam>(cancel->handle()) : 0);
    }
}

// --- Video surfaces --------------------------------------------------------------------------

VideoSurface* QtDialogHost::surface_for(WindowHandle pane) {
    Node* n = node(pane);
    if (n == nullptr || n->kind != ControlKind::pane) {
        return nullptr;
    }
    if (n->surface == nullptr) {
        surfaces.push_back(std::make_unique<PaneSurface>(*this));
        n->surface = surfaces.back().get();
        n->surface->pane = n->widget;
    }
    return n->surface;
}

void QtDialogHost::frame_ready(PaneSurface* surface) {
    surface->repaint_pending = false;
    if (surface->pane) {
        surface->pane->update();
    }
}

}  // namespace kc::qt
