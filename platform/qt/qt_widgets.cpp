#include <QCloseEvent>
#include <QKeyEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QResizeEvent>
#include <cstring>

#include "platform/qt/qt_host_internal.h"

namespace kc::qt {

// --- DialogWidget ---------------------------------------------------------------------

DialogWidget::DialogWidget(QtDialogHost& host, Node& node, QWidget* owner)
    : QWidget(owner, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                         Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
      host(host),
      node(node) {}

void DialogWidget::closeEvent(QCloseEvent* event) {
    // The window only goes away through end_dialog; the close box is a request.
    event->ignore();
    if (node.alive && !node.ended) {
        host.close_box(&node);
    }
}

void DialogWidget::keyPressEvent(QKeyEvent* event) {
    if (event->modifiers() & ~(Qt::KeypadModifier | Qt::ShiftModifier)) {
        QWidget::keyPressEvent(event);
        return;
    }
    switch (event->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            host.key_enter(&node);
            return;
        case Qt::Key_Escape:
            host.key_escape(&node);
            return;
        default:
            QWidget::keyPressEvent(event);
    }
}

bool DialogWidget::event(QEvent* event) {
    if (node.alive && !node.ended) {
        if (event->type() == QEvent::WindowActivate) {
            host.send(&node, wm::activate, make_wparam(WA_ACTIVE, 0), 0);
        } else if (event->type() == QEvent::WindowDeactivate) {
            host.send(&node, wm::activate, make_wparam(WA_INACTIVE, 0), 0);
        }
    }
    return QWidget::event(event);
}

// --- OwnerDrawnButton -----------------------------------------------------------------

OwnerDrawnButton::OwnerDrawnButton(QtDialogHost& host, Node& node, QWidget* parent)
    : QAbstractButton(parent), host(host), node(node) {}

void OwnerDrawnButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    host.paint_owner_drawn(&node, painter, isDown());
}

// --- PaneSurface ------------------------------------------------------------------------

void PaneSurface::present(const std::uint8_t* pixels, int width, int height, int stride) {
    if (pixels == nullptr || width <= 0 || height <= 0 || stride < width * 4) {
        return;
    }
    {
        std::lock_guard lock(mutex);
        // RGB32 is 0xffRRGGBB in host order: B, G, R, X bytes on a little-endian machine,
        // the layout the renderer delivers. The X byte is ignored by the format.
        if (frame.width() != width || frame.height() != height) {
            frame = QImage(width, height, QImage::Format_RGB32);
        }
        for (int row = 0; row < height; ++row) {
            std::memcpy(frame.scanLine(row), pixels + static_cast<std::ptrdiff_t>(row) * stride,
                        static_cast<std::size_t>(width) * 4);
        }
    }
    // One repaint request in flight at a time: a slow UI drops frames, not memory.
    if (!repaint_pending.exchange(true)) {
        QMetaObject::invokeMethod(
            &host, [h = &host, self = this] { h->frame_ready(self); }, Qt::QueuedConnection);
    }
}

void PaneSurface::clear() {
    {
        std::lock_guard lock(mutex);
        frame = QImage();
    }
    if (!repaint_pending.exchange(true)) {
        QMetaObject::invokeMethod(
            &host, [h = &host, self = this] { h->frame_ready(self); }, Qt::QueuedConnection);
    }
}

bool PaneSurface::has_frame() {
    std::lock_guard lock(mutex);
    return !frame.isNull();
}

QSize PaneSurface::frame_size() {
    std::lock_guard lock(mutex);
    return frame.size();
}

void PaneSurface::paint(QPainter& painter, const QRect& target) {
    std::lock_guard lock(mutex);
    if (frame.isNull()) {
        painter.fillRect(target, Qt::black);
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, frame);
}

// --- VideoPane --------------------------------------------------------------------------

VideoPane::VideoPane(QtDialogHost& host, Node& node, QWidget* parent)
    : QWidget(parent), host(host), node(node) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void VideoPane::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (node.surface != nullptr) {
        node.surface->paint(painter, rect());
    } else {
        painter.fillRect(rect(), Qt::black);
    }
}

void VideoPane::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (node.alive) {
        const QSize s = event->size();
        host.send(&node, wm::size, 0,
                  static_cast<LParam>((s.width() & 0xFFFF) | ((s.height() & 0xFFFF) << 16)));
    }
}

// --- OverlayWidget ----------------------------------------------------------------------

OverlayWidget::OverlayWidget(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
}

void OverlayWidget::stamp(const QPoint& at, const QPixmap& picture) {
    erase(QRect(at, picture.size()));
    stamps.emplace_back(at, picture);
    update(QRect(at, picture.size()));
}

bool OverlayWidget::erase(const QRect& area) {
    bool any = false;
    for (auto it = stamps.begin(); it != stamps.end();) {
        const QRect r(it->first, it->second.size());
        if (r.intersects(area)) {
            update(r);
            it = stamps.erase(it);
            any = true;
        } else {
            ++it;
        }
    }
    return any;
}

void OverlayWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    for (const auto& [at, picture] : stamps) {
        painter.drawPixmap(at, picture);
    }
}

}  // namespace kc::qt
