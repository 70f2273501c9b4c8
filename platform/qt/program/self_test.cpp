#include "platform/qt/program/self_test.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QPixmap>
#include <QTimer>
#include <QWidget>
#include <string>
#include <utility>
#include <vector>

namespace kc::program {
namespace {

class QtSelfTestHost : public SelfTestHost {
  public:
    explicit QtSelfTestHost(kc::qt::QtDialogHost& host) : host(host) {}

    DialogHost& dialogs() override { return host; }
    void after(int ms, std::function<void()> step) override {
        QTimer::singleShot(ms, qApp, std::move(step));
    }
    WindowHandle top_dialog() override { return host.top_dialog(); }
    bool save_picture(WindowHandle window, const std::string& path) override {
        QWidget* widget = host.widget(window);
        return widget != nullptr && widget->grab().save(QString::fromStdString(path));
    }
    std::string picture_ending() const override { return ".png"; }
    std::pair<int, int> presented_size(WindowHandle pane) override {
        return host.presented_size(pane);
    }
    // The generic property dialog is Qt's own, not one of the templates: it is found as
    // the modal dialog that has the named editor.
    bool when_property_frame(std::function<void(PropertyFrameView)> step) override {
        after(250, [this, step = std::move(step)]() mutable {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            auto* combo = dialog ? dialog->findChild<QComboBox*>("resolution") : nullptr;
            if (combo == nullptr) {
                when_property_frame(std::move(step));
                return;
            }
            PropertyFrameView view;
            view.title = dialog->windowTitle().toStdString();
            view.resolutions_offered = combo->count();
            view.resolution = combo->currentText().toStdString();
            view.choose = [dialog, combo](const std::string& choice) {
                combo->setCurrentText(QString::fromStdString(choice));
                dialog->accept();
            };
            view.cancel = [dialog] { dialog->reject(); };
            step(std::move(view));
        });
        return true;
    }

  private:
    kc::qt::QtDialogHost& host;
};

}  // namespace

bool parse_self_test(const QStringList& args, SelfTest& test) {
    std::vector<std::string> list;
    for (int i = 1; i < args.size(); ++i) {
        list.push_back(args[i].toStdString());
    }
    if (!parse_self_test(list, test)) {
        return false;
    }
    const auto absolute_dir = [](std::string& dir) {
        if (!dir.empty()) {
            dir = QDir(QString::fromStdString(dir)).absolutePath().toStdString();
        }
    };
    absolute_dir(test.output_dir);
    absolute_dir(test.screenshots_dir);
    if (!test.screenshot.empty()) {
        test.screenshot =
            QFileInfo(QString::fromStdString(test.screenshot)).absoluteFilePath().toStdString();
    }
    return true;
}

void install_self_test(kc::qt::QtDialogHost& host, const SelfTest& test) {
    // Live until the process ends: the host's hook refers to them.
    auto* driver = new SelfTestDriver(*new QtSelfTestHost(host), test);
    host.set_dialog_shown_hook([driver](WindowHandle d, int id) { driver->shown(d, id); });
    driver->install();
}

}  // namespace kc::program
