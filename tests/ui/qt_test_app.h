// The one QApplication of a Qt test executable, on the offscreen platform.
#pragma once

#include <QApplication>
#include <cstdlib>

inline QApplication& qt_test_app() {
    static int argc = 1;
    static char name[] = "kc-ui-test";
    static char* argv[] = {name, nullptr};
    if (QApplication::instance() == nullptr) {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    }
    static QApplication app(argc, argv);
    return app;
}
