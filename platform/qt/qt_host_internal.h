// The host's own window records and widgets, and the helpers its files share. Private to
// platform/qt.
#pragma once

#include <QAbstractButton>
#include <QImage>
#include <QPixmap>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/qt/qt_dialog_host.h"
#include "resources/dialog_template.h"

class QEventLoop;

namespace kc::qt {

enum class ControlKind {
    none,
    push_button,
    owner_drawn,
    check_box,
    radio_button,
    group_box,
    pane,
    label,
    bitmap,
    etched,
    line_edit,
    text_edit,
    combo,
    progress,
    list,
};

class OverlayWidget;

// One window as the logic sees it: a dialog, one of its controls, or a tooltip. The
// handle given out is the record's address; records live as long as the host, so a
// handle that outlived its window is recognised as dead instead of reused.
struct Node {
    enum class Type { dialog, control, tooltip } type = Type::control;
    int id = 0;
    Node* parent = nullptr;
    QPointer<QWidget> widget;
    bool alive = true;
    std::map<std::string, void*> props;
    // Dialogs.
    DialogProc dialog_proc = nullptr;
    std::vector<Node*> controls;
    bool ended = false;
    LResult end_code = 0;
    QEventLoop* loop = nullptr;
    OverlayWidget* overlay = nullptr;
    // Controls.
    ControlKind kind = ControlKind::none;
    const ControlTemplate* tmpl = nullptr;
    WindowProc window_proc = nullptr;
    PaneSurface* surface = nullptr;
    int radio_group = 0;  // radios of one WS_GROUP run exclude each other

    WindowHandle handle() { return reinterpret_cast<WindowHandle>(this); }
};

// A device context: the painter of a paint cycle (or none, for colour queries) and the
// colours a WM_CTLCOLOR handler chose for it.
struct QtDc {
    QPainter* painter = nullptr;
    bool has_background = false;
    bool has_text = false;
    bool transparent = false;
    Rgb background;
    Rgb text;
};

struct QtBitmap {
    QPixmap pixmap;
};

struct QtBrush {
    bool hollow = false;
    Rgb colour;
};

// The dialog's top-level window: the close box, Enter, Esc and activation become
// messages for its procedure.
class DialogWidget : public QWidget {
  public:
    DialogWidget(QtDialogHost& host, Node& node, QWidget* owner);

  protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool event(QEvent* event) override;

  private:
    QtDialogHost& host;
    Node& node;
};

// A BS_OWNERDRAW button: its dialog paints it through WM_DRAWITEM.
class OwnerDrawnButton : public QAbstractButton {
  public:
    OwnerDrawnButton(QtDialogHost& host, Node& node, QWidget* parent);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QtDialogHost& host;
    Node& node;
};

// The surface of one preview pane. present() may run on a streaming thread; the pane
// widget reads the frame on the UI thread. Surfaces live as long as the host, so a
// renderer that still holds one after its pane closed paints nowhere, safely.
class PaneSurface : public VideoSurface {
  public:
    explicit PaneSurface(QtDialogHost& host) : host(host) {}
    void present(const std::uint8_t* pixels, int width, int height, int stride) override;
    void clear() override;
    // UI thread: draws the newest frame scaled into `target`, black without one.
    void paint(QPainter& painter, const QRect& target);
    bool has_frame();

    QPointer<QWidget> pane;  // UI thread only
    std::atomic<bool> repaint_pending{false};

  private:
    QtDialogHost& host;
    std::mutex mutex;
    QImage frame;
};

// The preview pane: black until frames come, then the newest frame.
class VideoPane : public QWidget {
  public:
    VideoPane(QtDialogHost& host, Node& node, QWidget* parent);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QtDialogHost& host;
    Node& node;
};

// Drawing that a window received outside its paint cycle (the record indicator). It
// stays on screen until the area under it is invalidated, as such drawing does.
class OverlayWidget : public QWidget {
  public:
    explicit OverlayWidget(QWidget* parent);
    void stamp(const QPoint& at, const QPixmap& picture);
    // Forgets the drawing that intersects `area`; true when any was there.
    bool erase(const QRect& area);
    int stamp_count() const { return static_cast<int>(stamps.size()); }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    std::vector<std::pair<QPoint, QPixmap>> stamps;
};

// The notification of a clicked button, which the logic does not name.
inline constexpr unsigned BN_CLICKED = 0;

// The procedure of a control that has none of its own from the logic: it handles nothing.
LResult control_default_proc(WindowHandle, unsigned, WParam, LParam);

inline QString qstr(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// The BS_ type in a button's style.
inline std::uint32_t button_type(std::uint32_t s) {
    return s & 0x000Fu;
}

}  // namespace kc::qt
