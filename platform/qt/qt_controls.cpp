// The dialogs' controls as Qt widgets: which widget stands for each template control,
// how its notifications become WM_COMMAND and WM_NOTIFY, and how the logic reads and
// writes its text, checks, choices and rows. Everything that knows the concrete widget
// class behind a ControlKind is here: the widget built for a kind and the casts that read
// it back must agree.
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpressionValidator>
#include <QTreeWidget>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

#include "platform/qt/dialog_units.h"
#include "platform/qt/qt_host_internal.h"
#include "resources/dialog_template.h"

namespace kc::qt {
namespace {

using namespace style;

bool same_class(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::tolower(x) == std::tolower(y); });
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

template <typename T>
T* as(Node* n, ControlKind kind) {
    return n != nullptr && n->alive && n->kind == kind && n->widget
               ? static_cast<T*>(n->widget.data())
               : nullptr;
}

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

}  // namespace kc::qt
