// The look of the dialogs: the skin's pictures (or labelled stand-ins when the art is not
// installed), the icon, brushes and device contexts, the colours a dialog procedure gives
// its controls, and owner-drawn buttons painted by their dialog. The logic draws through
// these handles as it would on any platform; only this file knows they are Qt pixmaps and
// painters.
#include <QFile>
#include <QPainter>
#include <algorithm>

#include "platform/qt/qt_host_internal.h"
#include "resources/dialog_template.h"
#include "resources/skin_tables.h"

namespace kc::qt {
namespace {

using namespace style;

// Draw-item states beyond ODS_SELECTED, which the logic does not name.
constexpr unsigned ODS_DISABLED = 0x0004;
constexpr unsigned ODS_FOCUS = 0x0010;

QColor colour(Rgb c) {
    return QColor(c.r, c.g, c.b);
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

}  // namespace kc::qt
