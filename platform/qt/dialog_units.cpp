#include "platform/qt/dialog_units.h"

#include <QFont>
#include <QFontMetricsF>
#include <QString>
#include <cmath>

namespace kc::qt {

int DialogUnits::x(int units) const {
    return static_cast<int>(std::lround(units * base_x / 4.0));
}

int DialogUnits::y(int units) const {
    return static_cast<int>(std::lround(units * base_y / 8.0));
}

DialogUnits DialogUnits::for_font(std::string_view family, int points) {
    if ((family == "MS Sans Serif" || family == "MS Shell Dlg") && points == 8) {
        return DialogUnits{6.0, 600.0 * 8.0 / 370.0};
    }
    QFont font(QString::fromUtf8(family.data(), static_cast<qsizetype>(family.size())));
    font.setPointSize(points > 0 ? points : 8);
    const QFontMetricsF metrics(font);
    // The classic average width comes from the 52 letters, not the font's own figure.
    const double width = metrics.horizontalAdvance(QStringLiteral(
                             "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz")) /
                         52.0;
    return DialogUnits{std::round(width), std::round(metrics.height())};
}

}  // namespace kc::qt
