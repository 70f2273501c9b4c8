// The one QApplication of a Qt test executable, on the offscreen platform. It is never
// destroyed: Qt's own globals go first at exit, and a QApplication destroyed after them
// crashes.
#pragma once

#include <QApplication>
#include <cstdlib>

inline QApplication& qt_test_app() {
    static int argc = 1;
    static char name[] = "kc-ui-test";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        return new QApplication(argc, argv);
    }();
    return *app;
}
