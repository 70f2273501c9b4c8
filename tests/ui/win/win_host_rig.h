// Dialogs of the Win32 host run with procedures of the test's own: each run gets a
// handler that sees every message of its dialog, as the project's procedure would, and
// a watchdog that ends a dialog nobody ended, so that a broken test fails instead of
// hanging.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "resources/dialog_template.h"
#include "resources/resource_ids.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_dialog_host.h"

using Handler = std::function<LResult(WindowHandle, unsigned, WParam, LParam)>;

inline constexpr unsigned watchdog_timer = 0x7FFF;
inline constexpr LResult watchdog_code = -2;

inline std::map<WindowHandle, Handler*>& handlers() {
    static std::map<WindowHandle, Handler*> all;
    return all;
}

inline LResult rig_proc(WindowHandle dialog, unsigned message, WParam wparam, LParam lparam) {
    if (message == wm::init_dialog) {
        handlers()[dialog] = reinterpret_cast<Handler*>(lparam);
    }
    const auto it = handlers().find(dialog);
    if (it == handlers().end()) {
        return 0;
    }
    if (message == wm::timer && wparam == watchdog_timer) {
        ADD_FAILURE() << "the dialog was still open after the watchdog's time";
        EndDialog(reinterpret_cast<HWND>(dialog), watchdog_code);
        return 1;
    }
    return (*it->second)(dialog, message, wparam, lparam);
}

// Runs template `id` with `handler`; returns the dialog's end code.
inline LResult run_dialog(WinDialogHost& host, int id, Handler handler,
                          WindowHandle parent = nullptr) {
    Handler wrapped = [&](WindowHandle dialog, unsigned message, WParam wparam, LParam lparam) {
        if (message == wm::init_dialog) {
            host.set_timer(dialog, watchdog_timer, 15000);
        }
        return handler(dialog, message, wparam, lparam);
    };
    const LResult result =
        host.dialog_box(id, parent, &rig_proc, reinterpret_cast<LParam>(&wrapped));
    for (auto it = handlers().begin(); it != handlers().end();) {
        it = it->second == &wrapped ? handlers().erase(it) : std::next(it);
    }
    return result;
}

// Runs template `id`, calls `body` once it is initialised and ends it with `code`.
inline LResult run_and_end(WinDialogHost& host, int id,
                           const std::function<void(WindowHandle)>& body, LResult code = 1) {
    return run_dialog(host, id, [&](WindowHandle dialog, unsigned message, WParam, LParam) {
        if (message == wm::init_dialog) {
            body(dialog);
            host.end_dialog(dialog, code);
            return LResult{1};
        }
        return LResult{0};
    });
}

inline std::string window_text(HWND window) {
    char text[512] = {};
    GetWindowTextA(window, text, sizeof text);
    return text;
}

inline std::string class_name(HWND window) {
    char name[128] = {};
    GetClassNameA(window, name, sizeof name);
    return name;
}

inline HWND hwnd(WindowHandle window) {
    return reinterpret_cast<HWND>(window);
}
