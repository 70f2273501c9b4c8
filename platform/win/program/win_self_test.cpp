#include "platform/win/program/win_self_test.h"

#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/win/win_picture.h"

namespace kc::program {
namespace {

class WinSelfTestHost : public SelfTestHost {
  public:
    explicit WinSelfTestHost(WinDialogHost& host) : host(host) {}

    DialogHost& dialogs() override { return host; }
    void after(int ms, std::function<void()> step) override {
        const UINT_PTR id = SetTimer(nullptr, 0, static_cast<UINT>(ms), &WinSelfTestHost::fire);
        if (id != 0) {
            pending()[id] = std::move(step);
        }
    }
    WindowHandle top_dialog() override { return host.top_dialog(); }
    bool save_picture(WindowHandle window, const std::string& path) override {
        return kc::win::save_window_picture(reinterpret_cast<HWND>(window), path);
    }
    std::string picture_ending() const override { return ".bmp"; }

  private:
    static std::map<UINT_PTR, std::function<void()>>& pending() {
        static std::map<UINT_PTR, std::function<void()>> steps;
        return steps;
    }
    // A thread timer fires once: it is killed before its step runs, so that a step that
    // opens a modal dialog does not see itself fire again from that dialog's loop.
    static void CALLBACK fire(HWND, UINT, UINT_PTR id, DWORD) {
        KillTimer(nullptr, id);
        const auto it = pending().find(id);
        if (it == pending().end()) {
            return;
        }
        std::function<void()> step = std::move(it->second);
        pending().erase(it);
        step();
    }

    WinDialogHost& host;
};

std::string absolute(const std::string& path) {
    std::error_code ignored;
    return path.empty() ? path : std::filesystem::absolute(path, ignored).string();
}

}  // namespace

bool parse_self_test(int argc, char** argv, SelfTest& test) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }
    if (!parse_self_test(args, test)) {
        return false;
    }
    test.output_dir = absolute(test.output_dir);
    test.screenshots_dir = absolute(test.screenshots_dir);
    test.screenshot = absolute(test.screenshot);
    return true;
}

void install_self_test(WinDialogHost& host, const SelfTest& test) {
    // Live until the process ends: the host's hook refers to them.
    auto* driver = new SelfTestDriver(*new WinSelfTestHost(host), test);
    host.set_dialog_shown_hook([driver](WindowHandle d, int id) { driver->shown(d, id); });
    driver->install();
}

}  // namespace kc::program
