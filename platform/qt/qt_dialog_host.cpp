#include "platform/qt/qt_dialog_host.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QFrame>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpressionValidator>
#include <QScreen>
#include <QTimer>
#include <QTreeWidget>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

#include "platform/qt/dialog_units.h"
#include "platform/qt/qt_host_internal.h"
#include "resources/dialog_template.h"
#include "resources/skin_tables.h"

namespace kc::qt {
namespace {

using namespace style;

// Draw-item states beyond ODS_SELECTED, which the logic does not name.
constexpr unsigned ODS_DISABLED = 0x0004;
constexpr unsigned ODS_FOCUS = 0x0010;
constexpr unsigned BN_CLICKED = 0;
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

LResult control_default_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

QString qstr(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

bool same_class(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::tolower(x) == std::tolower(y); });
}

std::uint32_t button_type(std::uint32_t s) {
    return s & 0x000Fu;
}

QColor colour(Rgb c) {
    return QColor(c.r, c.g, c.b);
}

// Cuts a UTF-8 string to at most `bytes` bytes without splitting a character.
std::string cut_utf8(std::string s, std::size_t bytes) {
    if (s.size() <= bytes) {
        return s;
    }
    std::size_t end = bytes;
    while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0u) == 0x80u) {
        --end;
    }
    s.resize(end);
    return s;
}

// The number a classic edit reads: optional blanks, a '-' when signed, digits, blanks.
// Anything else, or a value out of range, reads as 0.
std::uint32_t parse_int(const std::string& text, bool is_signed) {
    std::size_t first = text.find_first_not_of(' ');
    std::size_t last = text.find_last_not_of(' ');
    if (first == std::string::npos) {
        return 0;
    }
    const char* b = text.data() + first;
    const char* e = text.data() + last + 1;
    if (is_signed) {
        std::int32_t v = 0;
        auto r = std::from_chars(b, e, v);
        return r.ec == std::errc() && r.ptr == e ? static_cast<std::uint32_t>(v) : 0;
    }
    std::uint32_t v = 0;
    auto r = std::from_chars(b, e, v);
    return r.ec == std::errc() && r.ptr == e ? v : 0;
}

// The label of an owner-drawn button whose picture is `bitmap_id`, for the stand-in art.
std::string button_label(int bitmap_id, bool& pressed) {
    for (const skin::ButtonPictures& b : skin::button_pictures()) {
        if (b.pressed_bitmap == bitmap_id || b.normal_bitmap == bitmap_id) {
            pressed = b.pressed_bitmap == bitmap_id;
            if (const DialogTemplate* t = find_dialog_template(100)) {
                for (const ControlTemplate& c : t->controls) {
                    if (c.id == b.control_id) {
                        return std::string(c.text);
                    }
                }
            }
        }
    }
    return {};
}

QPixmap stand_in_picture(int id, int width, int height) {
    QPixmap picture(width, height);
    QPainter p(&picture);
    bool pressed = false;
    const std::string label = button_label(id, pressed);
    QLinearGradient shade(0, 0, 0, height);
    shade.setColorAt(0, pressed ? QColor(150, 70, 70) : QColor(110, 112, 118));
    shade.setColorAt(1, pressed ? QColor(90, 30, 30) : QColor(58, 60, 64));
    p.fillRect(picture.rect(), shade);
    p.setPen(QColor(200, 200, 200));
    p.drawRect(picture.rect().adjusted(0, 0, -1, -1));
    QFont f = p.font();
    f.setPixelSize(std::max(8, std::min(13, height / 4)));
    p.setFont(f);
    if (id == 153) {
        // The whole window: say plainly that the art is missing, away from the controls.
        p.drawText(QRect(0, 0, width, 18), Qt::AlignCenter,
                   QStringLiteral("Kestrel Capture - skin art not installed (bitmap 153)"));
    } else if (!label.empty()) {
        p.drawText(picture.rect(), Qt::AlignCenter, qstr(label));
    } else if (width >= 40) {
        p.drawText(picture.rect(), Qt::AlignCenter, QString::number(id));
    }
    return picture;
}

}  // namespace

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

namespace {
// A display field shows the program's whole text ("Unavailable" in a field sized for six
// digits), never a scrolled part of it: the text shrinks, down to a face still readable
// on the skin, whenever it or the field's size changes.
class DisplayField : public QLineEdit {
  public:
    using QLineEdit::QLineEdit;

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLineEdit::resizeEvent(event);
        fit();
    }

  public:
    void fit() {
        static constexpr int smallest_pixels = 7;
        QFont font = parentWidget() != nullptr ? parentWidget()->font() : this->font();
        // The edit keeps a few pixels inside its frame on either side.
        const int room = contentsRect().width() - 6;
        while (font.pixelSize() > smallest_pixels &&
               QFontMetrics(font).horizontalAdvance(text()) > room) {
            font.setPixelSize(font.pixelSize() - 1);
        }
        setFont(font);
        setCursorPosition(0);
    }
};
}  // namespace

void QtDialogHost::build_controls(Node* d, const DialogTemplate& t) {
    QWidget* dialog = d->widget;
    const DialogUnits du = DialogUnits::for_font(t.font, t.font_points);
    int group = 0;
    for (const ControlTemplate& c : t.controls) {
        Node* n = make_node();
        n->type = Node::Type::control;
        n->id = c.id;
        n->parent = d;
        n->tmpl = &c;
        n->window_proc = &control_default_proc;
        if (c.style & WS_GROUP) {
            ++group;
        }
        n->radio_group = group;
        const WParam command_id = static_cast<unsigned>(c.id);
        auto notify = [this, d, n, command_id](unsigned code) {
            send(d, wm::command, make_wparam(static_cast<unsigned>(command_id), code),
                 reinterpret_cast<LParam>(n->handle()));
        };
        QWidget* w = nullptr;
        const QString text = qstr(c.text);
        if (same_class(c.cls, "BUTTON")) {
            const std::uint32_t type = button_type(c.style);
            if (type == BS_OWNERDRAW) {
                auto* b = new OwnerDrawnButton(*this, *n, dialog);
                b->setText(text);
                QObject::connect(b, &QAbstractButton::clicked, b, [notify] { notify(BN_CLICKED); });
                n->kind = ControlKind::owner_drawn;
                w = b;
            } else if (type == BS_GROUPBOX) {
                auto* g = new QGroupBox(text, dialog);
                g->setAttribute(Qt::WA_TransparentForMouseEvents);
                n->kind = ControlKind::group_box;
                w = g;
            } else if (type == BS_AUTOCHECKBOX) {
                auto* b = new QCheckBox(text, dialog);
                QObject::connect(b, &QAbstractButton::clicked, b, [notify] { notify(BN_CLICKED); });
                n->kind = ControlKind::check_box;
                w = b;
            } else if (type == BS_AUTORADIOBUTTON) {
                auto* b = new QRadioButton(text, dialog);
                // Exclusion follows the template's groups, not Qt's parent widget.
                b->setAutoExclusive(false);
                QObject::connect(b, &QAbstractButton::clicked, b, [this, d, n, b, notify] {
                    b->setChecked(true);
                    for (Node* other : d->controls) {
                        if (other != n && other->kind == ControlKind::radio_button &&
                            other->radio_group == n->radio_group && other->widget) {
                            static_cast<QRadioButton*>(other->widget.data())->setChecked(false);
                        }
                    }
                    notify(BN_CLICKED);
                });
                n->kind = ControlKind::radio_button;
                w = b;
            } else if (text.isEmpty() && (c.style & BS_FLAT) && type == BS_PUSHBUTTON) {
                // A flat, empty push button is where a capture's picture goes.
                w = new VideoPane(*this, *n, dialog);
                n->kind = ControlKind::pane;
            } else {
                auto* b = new QPushButton(text, dialog);
                b->setAutoDefault(false);
                QObject::connect(b, &QAbstractButton::clicked, b, [notify] { notify(BN_CLICKED); });
                n->kind = ControlKind::push_button;
                w = b;
            }
        } else if (same_class(c.cls, "EDIT")) {
            if (c.style & ES_MULTILINE) {
                auto* e = new QPlainTextEdit(dialog);
                e->setReadOnly(c.style & ES_READONLY);
                if (!(c.style & WS_VSCROLL)) {
                    e->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
                }
                QObject::connect(e, &QPlainTextEdit::textChanged, e,
                                 [notify] { notify(EN_CHANGE); });
                n->kind = ControlKind::text_edit;
                w = e;
            } else {
                // Fields the program writes and the user only reads: read-only or disabled.
                const bool display = (c.style & (ES_READONLY | WS_DISABLED)) != 0;
                QLineEdit* e = display ? new DisplayField(dialog) : new QLineEdit(dialog);
                e->setReadOnly((c.style & ES_READONLY) != 0);
                e->setFrame(c.style & WS_BORDER);
                if (c.style & ES_CENTER) {
                    e->setAlignment(Qt::AlignCenter);
                }
                if (c.style & ES_NUMBER) {
                    e->setValidator(new QRegularExpressionValidator(
                        QRegularExpression(QStringLiteral("[0-9]*")), e));
                }
                e->setText(text);
                if (display) {
                    auto* field = static_cast<DisplayField*>(e);
                    QObject::connect(e, &QLineEdit::textChanged, e, [field] { field->fit(); });
                }
                // A single-line edit reports every change, also one the program makes.
                QObject::connect(e, &QLineEdit::textChanged, e, [notify] { notify(EN_CHANGE); });
                n->kind = ControlKind::line_edit;
                w = e;
            }
        } else if (same_class(c.cls, "STATIC")) {
            const std::uint32_t type = c.style & 0x1Fu;
            if (type == SS_BITMAP) {
                auto* l = new QLabel(dialog);
                int bitmap_id = 0;
                if (c.text.size() > 1 && c.text[0] == '#') {
                    bitmap_id = std::atoi(std::string(c.text.substr(1)).c_str());
                }
                const QPixmap picture = find_picture(bitmap_id);
                l->setPixmap(picture);
                l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
                n->kind = ControlKind::bitmap;
                w = l;
                // A bitmap static takes the size of its picture.
                w->setGeometry(du.x(c.x), du.y(c.y), picture.width(), picture.height());
            } else if (type == SS_ETCHEDHORZ || type == SS_ETCHEDFRAME) {
                auto* f = new QFrame(dialog);
                f->setFrameShape(type == SS_ETCHEDHORZ ? QFrame::HLine : QFrame::Box);
                f->setFrameShadow(QFrame::Sunken);
                n->kind = ControlKind::etched;
                w = f;
            } else {
                auto* l = new QLabel(text, dialog);
                l->setAlignment((type == SS_RIGHT ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignTop);
                l->setWordWrap(type == SS_LEFT);
                n->kind = ControlKind::label;
                w = l;
            }
            w->setAttribute(Qt::WA_TransparentForMouseEvents);
        } else if (same_class(c.cls, "COMBOBOX")) {
            auto* box = new QComboBox(dialog);
            // Only the user's choice is a selection change; the program's is silent.
            QObject::connect(box, &QComboBox::currentIndexChanged, box,
                             [notify] { notify(CBN_SELCHANGE); });
            n->kind = ControlKind::combo;
            w = box;
        } else if (same_class(c.cls, "msctls_progress32")) {
            auto* bar = new QProgressBar(dialog);
            bar->setTextVisible(false);
            bar->setRange(0, 100);
            bar->setValue(0);
            n->kind = ControlKind::progress;
            w = bar;
        } else if (same_class(c.cls, "SysListView32")) {
            auto* list = new QTreeWidget(dialog);
            list->setRootIsDecorated(false);
            list->setUniformRowHeights(true);
            list->setSelectionMode(QAbstractItemView::ExtendedSelection);
            list->setEditTriggers(QAbstractItemView::NoEditTriggers);
            list->setColumnCount(0);
            list->header()->setStretchLastSection(false);
            QObject::connect(list, &QTreeWidget::itemDoubleClicked, list, [this, d, n] {
                NotifyHeader header{n->handle(), static_cast<std::uintptr_t>(n->id), NM_DBLCLK};
                send(d, wm::notify, static_cast<WParam>(n->id), reinterpret_cast<LParam>(&header));
            });
            n->kind = ControlKind::list;
            w = list;
        } else {
            w = new QWidget(dialog);
            n->kind = ControlKind::none;
        }
        n->widget = w;
        if (n->kind != ControlKind::bitmap) {
            int height = du.y(c.cy);
            if (n->kind == ControlKind::combo) {
                // The template gives the height with the list dropped down.
                height = w->sizeHint().height();
            }
            w->setGeometry(du.x(c.x), du.y(c.y), du.x(c.cx), height);
        }
        w->setVisible(c.style & WS_VISIBLE);
        w->setEnabled(!(c.style & WS_DISABLED));
        d->controls.push_back(n);
    }
    // Later controls sit on top of earlier ones; frames and pictures are backgrounds
    // under every control, the skin lowest of all.
    for (auto it = d->controls.rbegin(); it != d->controls.rend(); ++it) {
        if ((*it)->kind == ControlKind::group_box || (*it)->kind == ControlKind::etched) {
            (*it)->widget->lower();
        }
    }
    for (auto it = d->controls.rbegin(); it != d->controls.rend(); ++it) {
        if ((*it)->kind == ControlKind::bitmap) {
            (*it)->widget->lower();
        }
    }
}

void QtDialogHost::apply_colours(Node* c) {
    if (c == nullptr || !c->widget || c->parent == nullptr) {
        return;
    }
    unsigned message = 0;
    switch (c->kind) {
        case ControlKind::push_button:
        case ControlKind::owner_drawn:
            message = wm::ctlcolor_button;
            break;
        case ControlKind::line_edit:
        case ControlKind::text_edit: {
            const bool read_only = c->tmpl != nullptr && (c->tmpl->style & ES_READONLY);
            message =
                c->widget->isEnabled() && !read_only ? wm::ctlcolor_edit : wm::ctlcolor_static;
            break;
        }
        case ControlKind::label:
        case ControlKind::check_box:
        case ControlKind::radio_button:
        case ControlKind::group_box:
            message = wm::ctlcolor_static;
            break;
        default:
            return;
    }
    QtDc dc;
    auto* brush = reinterpret_cast<QtBrush*>(
        send(c->parent, message, reinterpret_cast<WParam>(&dc), reinterpret_cast<LParam>(c)));
    QWidget* w = c->widget;
    if (brush == nullptr) {
        w->setPalette(QPalette());
        return;
    }
    if (c->kind == ControlKind::push_button || c->kind == ControlKind::owner_drawn) {
        return;  // push buttons paint themselves whatever the brush
    }
    QPalette p = w->palette();
    for (auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        if (dc.has_text) {
            for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
                p.setColor(group, role, colour(dc.text));
            }
        }
        const QColor fill = brush->hollow ? QColor(Qt::transparent) : colour(brush->colour);
        p.setColor(group, QPalette::Base, fill);
        p.setColor(group, QPalette::Window, fill);
    }
    w->setPalette(p);
    w->setAutoFillBackground(!brush->hollow && c->kind == ControlKind::label);
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

// --- Controls ------------------------------------------------------------------------

void QtDialogHost::set_dlg_item_text(WindowHandle dialog, int id, const std::string& text) {
    Node* c = control(dialog, id);
    if (c == nullptr || !c->widget) {
        return;
    }
    QString s = qstr(text);
    switch (c->kind) {
        case ControlKind::line_edit:
            static_cast<QLineEdit*>(c->widget.data())->setText(s);
            break;
        case ControlKind::text_edit: {
            // The program's own text is no edit by the user: a multi-line edit stays
            // silent, as the classic one does.
            auto* e = static_cast<QPlainTextEdit*>(c->widget.data());
            const QSignalBlocker quiet(e);
            e->setPlainText(s.replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
            break;
        }
        case ControlKind::label:
            static_cast<QLabel*>(c->widget.data())->setText(s);
            break;
        case ControlKind::group_box:
            static_cast<QGroupBox*>(c->widget.data())->setTitle(s);
            break;
        case ControlKind::push_button:
        case ControlKind::owner_drawn:
        case ControlKind::check_box:
        case ControlKind::radio_button:
            static_cast<QAbstractButton*>(c->widget.data())->setText(s);
            break;
        default:
            c->widget->setWindowTitle(s);
            break;
    }
}

std::string QtDialogHost::get_dlg_item_text(WindowHandle dialog, int id, int max_chars) {
    Node* c = control(dialog, id);
    if (c == nullptr || !c->widget || max_chars <= 0) {
        return {};
    }
    QString s;
    switch (c->kind) {
        case ControlKind::line_edit:
            s = static_cast<QLineEdit*>(c->widget.data())->text();
            break;
        case ControlKind::text_edit:
            s = static_cast<QPlainTextEdit*>(c->widget.data())->toPlainText();
            s.replace(QStringLiteral("\n"), QStringLiteral("\r\n"));
            break;
        case ControlKind::label:
            s = static_cast<QLabel*>(c->widget.data())->text();
            break;
        case ControlKind::group_box:
            s = static_cast<QGroupBox*>(c->widget.data())->title();
            break;
        case ControlKind::push_button:
        case ControlKind::owner_drawn:
        case ControlKind::check_box:
        case ControlKind::radio_button:
            s = static_cast<QAbstractButton*>(c->widget.data())->text();
            break;
        case ControlKind::combo:
            s = static_cast<QComboBox*>(c->widget.data())->currentText();
            break;
        default:
            s = c->widget->windowTitle();
            break;
    }
    return cut_utf8(s.toStdString(), static_cast<std::size_t>(max_chars - 1));
}

void QtDialogHost::set_dlg_item_int(WindowHandle dialog, int id, std::uint32_t value,
                                    bool is_signed) {
    set_dlg_item_text(
        dialog, id,
        is_signed ? std::to_string(static_cast<std::int32_t>(value)) : std::to_string(value));
}

std::uint32_t QtDialogHost::get_dlg_item_int(WindowHandle dialog, int id, bool is_signed) {
    return parse_int(get_dlg_item_text(dialog, id, 64), is_signed);
}

void QtDialogHost::check_dlg_button(WindowHandle dialog, int id, bool checked) {
    Node* c = control(dialog, id);
    if (c != nullptr && c->widget &&
        (c->kind == ControlKind::check_box || c->kind == ControlKind::radio_button)) {
        static_cast<QAbstractButton*>(c->widget.data())->setChecked(checked);
    }
}

bool QtDialogHost::is_dlg_button_checked(WindowHandle dialog, int id) {
    Node* c = control(dialog, id);
    return c != nullptr && c->widget &&
           (c->kind == ControlKind::check_box || c->kind == ControlKind::radio_button) &&
           static_cast<QAbstractButton*>(c->widget.data())->isChecked();
}

void QtDialogHost::check_radio_button(WindowHandle dialog, int first_id, int last_id,
                                      int checked_id) {
    for (int id = first_id; id <= last_id; ++id) {
        check_dlg_button(dialog, id, id == checked_id);
    }
}

namespace {
template <typename T>
T* as(Node* n, ControlKind kind) {
    return n != nullptr && n->alive && n->kind == kind && n->widget
               ? static_cast<T*>(n->widget.data())
               : nullptr;
}
}  // namespace

int QtDialogHost::combo_add_string(WindowHandle combo, const std::string& text) {
    auto* box = as<QComboBox>(node(combo), ControlKind::combo);
    if (box == nullptr) {
        return -1;
    }
    const QSignalBlocker quiet(box);
    box->addItem(qstr(text));
    // Adding the first entry must not select it: a classic list starts with none.
    if (box->count() == 1) {
        box->setCurrentIndex(-1);
    }
    return box->count() - 1;
}

void QtDialogHost::combo_set_cur_sel(WindowHandle combo, int index) {
    if (auto* box = as<QComboBox>(node(combo), ControlKind::combo)) {
        const QSignalBlocker quiet(box);
        box->setCurrentIndex(index >= 0 && index < box->count() ? index : -1);
    }
}

int QtDialogHost::combo_get_cur_sel(WindowHandle combo) {
    auto* box = as<QComboBox>(node(combo), ControlKind::combo);
    return box != nullptr ? box->currentIndex() : -1;
}

void QtDialogHost::progress_set_range(WindowHandle bar, int low, int high) {
    if (auto* p = as<QProgressBar>(node(bar), ControlKind::progress)) {
        p->setRange(low, std::max(low, high));
    }
}

void QtDialogHost::progress_set_pos(WindowHandle bar, int position) {
    if (auto* p = as<QProgressBar>(node(bar), ControlKind::progress)) {
        // A classic bar clamps; Qt's would ignore a value outside its range.
        p->setValue(std::clamp(position, p->minimum(), p->maximum()));
    }
}

void QtDialogHost::list_insert_column(WindowHandle list, int column, const std::string& header,
                                      int width_px) {
    auto* l = as<QTreeWidget>(node(list), ControlKind::list);
    if (l == nullptr) {
        return;
    }
    QStringList headers;
    for (int i = 0; i < l->columnCount(); ++i) {
        headers << l->headerItem()->text(i);
    }
    std::vector<int> widths;
    for (int i = 0; i < l->columnCount(); ++i) {
        widths.push_back(l->columnWidth(i));
    }
    const int at = std::clamp(column, 0, static_cast<int>(headers.size()));
    headers.insert(at, qstr(header));
    widths.insert(widths.begin() + at, width_px);
    l->setColumnCount(static_cast<int>(headers.size()));
    l->setHeaderLabels(headers);
    for (int i = 0; i < static_cast<int>(widths.size()); ++i) {
        l->setColumnWidth(i, widths[static_cast<std::size_t>(i)]);
    }
}

void QtDialogHost::list_delete_all_items(WindowHandle list) {
    if (auto* l = as<QTreeWidget>(node(list), ControlKind::list)) {
        l->clear();
    }
}

void QtDialogHost::list_insert_item(WindowHandle list, int row, const std::string& text) {
    auto* l = as<QTreeWidget>(node(list), ControlKind::list);
    if (l == nullptr) {
        return;
    }
    auto* item = new QTreeWidgetItem();
    item->setText(0, qstr(text));
    l->insertTopLevelItem(std::clamp(row, 0, l->topLevelItemCount()), item);
}

void QtDialogHost::list_set_item_text(WindowHandle list, int row, int column,
                                      const std::string& text) {
    auto* l = as<QTreeWidget>(node(list), ControlKind::list);
    if (l == nullptr || row < 0 || row >= l->topLevelItemCount() || column < 0) {
        return;
    }
    l->topLevelItem(row)->setText(column, qstr(text));
}

int QtDialogHost::list_get_item_count(WindowHandle list) {
    auto* l = as<QTreeWidget>(node(list), ControlKind::list);
    return l != nullptr ? l->topLevelItemCount() : 0;
}

bool QtDialogHost::list_is_item_selected(WindowHandle list, int row) {
    auto* l = as<QTreeWidget>(node(list), ControlKind::list);
    return l != nullptr && row >= 0 && row < l->topLevelItemCount() &&
           l->topLevelItem(row)->isSelected();
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

// --- Skin ----------------------------------------------------------------------------

QPixmap QtDialogHost::find_picture(int id) {
    if (auto it = pixmap_cache.find(id); it != pixmap_cache.end()) {
        return it->second;
    }
    QPixmap picture;
    for (const std::string& dir : options.art_dirs) {
        const QString path = qstr(dir) + QStringLiteral("/%1.png").arg(id);
        if (QFile::exists(path) && picture.load(path)) {
            found_art.insert(id);
            break;
        }
    }
    if (picture.isNull()) {
        for (const skin::Bitmap& b : skin::bitmaps()) {
            if (b.id == id) {
                picture = stand_in_picture(id, b.width_px, b.height_px);
                break;
            }
        }
    }
    if (!picture.isNull()) {
        pixmap_cache[id] = picture;
    }
    return picture;
}

bool QtDialogHost::has_art(int bitmap_id) const {
    return found_art.count(bitmap_id) != 0;
}

BitmapHandle QtDialogHost::load_bitmap(int id, bool) {
    QPixmap picture = find_picture(id);
    if (picture.isNull()) {
        return nullptr;
    }
    return reinterpret_cast<BitmapHandle>(new QtBitmap{picture});
}

bool QtDialogHost::bitmap_size(BitmapHandle bitmap, int& width, int& height) {
    if (bitmap == nullptr) {
        return false;
    }
    const QPixmap& p = reinterpret_cast<QtBitmap*>(bitmap)->pixmap;
    width = p.width();
    height = p.height();
    return true;
}

void QtDialogHost::delete_bitmap(BitmapHandle bitmap) {
    delete reinterpret_cast<QtBitmap*>(bitmap);
}

IconHandle QtDialogHost::load_icon(int id) {
    QIcon icon;
    // Not "<id>.png": icon group 125 shares its number with a button picture.
    const QStringList names{
        QStringLiteral("icon-%1.svg").arg(id), QStringLiteral("icon-%1.png").arg(id),
        QStringLiteral("kestrel-capture.svg"), QStringLiteral("kestrel-capture.png")};
    for (const std::string& dir : options.art_dirs) {
        for (const QString& name : names) {
            const QString path = qstr(dir) + QLatin1Char('/') + name;
            if (icon.isNull() && QFile::exists(path)) {
                icon = QIcon(path);
            }
        }
    }
    if (icon.isNull()) {
        // A plain lens mark stands in until the icon art is installed.
        QPixmap mark(48, 48);
        mark.fill(Qt::transparent);
        QPainter p(&mark);
        p.setRenderHint(QPainter::Antialiasing);
        p.setBrush(QColor(60, 62, 68));
        p.setPen(QPen(QColor(190, 190, 190), 2));
        p.drawEllipse(4, 4, 40, 40);
        p.setBrush(QColor(200, 40, 60));
        p.drawEllipse(17, 17, 14, 14);
        p.end();
        icon = QIcon(mark);
    }
    icons.push_back(std::make_unique<QIcon>(icon));
    return reinterpret_cast<IconHandle>(icons.back().get());
}

void QtDialogHost::set_big_icon(WindowHandle window, IconHandle icon) {
    if (QWidget* w = widget(window); w != nullptr && icon != nullptr) {
        w->setWindowIcon(*reinterpret_cast<QIcon*>(icon));
    }
}

BrushHandle QtDialogHost::stock_brush(StockBrush which) {
    static QtBrush black{false, Rgb{0, 0, 0}};
    static QtBrush hollow{true, Rgb{}};
    return reinterpret_cast<BrushHandle>(which == StockBrush::black ? &black : &hollow);
}

void QtDialogHost::set_bk_color(DcHandle dc, Rgb c) {
    if (auto* d = reinterpret_cast<QtDc*>(dc)) {
        d->has_background = true;
        d->background = c;
    }
}

void QtDialogHost::set_text_color(DcHandle dc, Rgb c) {
    if (auto* d = reinterpret_cast<QtDc*>(dc)) {
        d->has_text = true;
        d->text = c;
    }
}

void QtDialogHost::set_bk_mode_transparent(DcHandle dc) {
    if (auto* d = reinterpret_cast<QtDc*>(dc)) {
        d->transparent = true;
    }
}

void QtDialogHost::draw_bitmap(DcHandle dc, int x, int y, int width, int height,
                               BitmapHandle bitmap) {
    auto* d = reinterpret_cast<QtDc*>(dc);
    if (d == nullptr || d->painter == nullptr || bitmap == nullptr || width <= 0 || height <= 0) {
        return;
    }
    // 1:1 from the picture's top-left corner, clipped to width x height.
    d->painter->drawPixmap(QPoint(x, y), reinterpret_cast<QtBitmap*>(bitmap)->pixmap,
                           QRect(0, 0, width, height));
}

void QtDialogHost::draw_bitmap_on_window(WindowHandle window, int x, int y, BitmapHandle bitmap) {
    Node* n = node(window);
    if (n == nullptr || bitmap == nullptr || n->overlay == nullptr) {
        return;
    }
    n->overlay->stamp(QPoint(x, y), reinterpret_cast<QtBitmap*>(bitmap)->pixmap);
}

void QtDialogHost::paint_owner_drawn(Node* button, QPainter& painter, bool pressed) {
    if (button == nullptr || !button->alive || button->parent == nullptr || !button->widget) {
        return;
    }
    QtDc dc;
    dc.painter = &painter;
    DrawItem item;
    item.control_id = static_cast<unsigned>(button->id);
    item.state = (pressed ? ODS_SELECTED : 0u) | (button->widget->isEnabled() ? 0u : ODS_DISABLED) |
                 (button->widget->hasFocus() ? ODS_FOCUS : 0u);
    item.item = button->handle();
    item.dc = reinterpret_cast<DcHandle>(&dc);
    item.rect = Rect{0, 0, button->widget->width(), button->widget->height()};
    send(button->parent, wm::draw_item, static_cast<WParam>(button->id),
         reinterpret_cast<LParam>(&item));
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
