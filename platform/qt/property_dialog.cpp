#include "platform/qt/property_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QScrollArea>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>

namespace kc::qt {
namespace {

QString qstr(const std::string& s) {
    return QString::fromStdString(s);
}

// One editor and how to read its value back as text.
struct Editor {
    const PropertyItem* item;
    std::function<std::string()> read;
};

QWidget* make_editor(const PropertyItem& item, std::vector<Editor>& editors, QWidget* parent) {
    QWidget* w = nullptr;
    switch (item.kind) {
        case PropertyItem::Kind::boolean: {
            auto* box = new QCheckBox(parent);
            box->setChecked(item.value == "true" || item.value == "1");
            editors.push_back(
                {&item, [box] { return std::string(box->isChecked() ? "true" : "false"); }});
            w = box;
            break;
        }
        case PropertyItem::Kind::integer: {
            auto* spin = new QSpinBox(parent);
            // A property's range can exceed what the editor holds; the editor shows the
            // part of it that an int covers.
            const double lo = std::max(item.minimum, static_cast<double>(INT_MIN));
            const double hi = std::min(item.maximum, static_cast<double>(INT_MAX));
            spin->setRange(static_cast<int>(lo), static_cast<int>(std::max(lo, hi)));
            spin->setValue(static_cast<int>(std::clamp(std::atof(item.value.c_str()), lo, hi)));
            editors.push_back({&item, [spin] { return std::to_string(spin->value()); }});
            w = spin;
            break;
        }
        case PropertyItem::Kind::real: {
            auto* spin = new QDoubleSpinBox(parent);
            spin->setDecimals(3);
            spin->setRange(item.minimum, std::max(item.minimum, item.maximum));
            spin->setValue(std::atof(item.value.c_str()));
            editors.push_back(
                {&item, [spin] { return QString::number(spin->value(), 'g', 10).toStdString(); }});
            w = spin;
            break;
        }
        case PropertyItem::Kind::choice: {
            auto* combo = new QComboBox(parent);
            for (const std::string& c : item.choices) {
                combo->addItem(qstr(c));
            }
            combo->setCurrentText(qstr(item.value));
            editors.push_back({&item, [combo] { return combo->currentText().toStdString(); }});
            w = combo;
            break;
        }
        case PropertyItem::Kind::text: {
            auto* line = new QLineEdit(qstr(item.value), parent);
            editors.push_back({&item, [line] { return line->text().toStdString(); }});
            w = line;
            break;
        }
    }
    w->setObjectName(qstr(item.name));
    w->setEnabled(item.writable);
    w->setToolTip(qstr(item.blurb));
    return w;
}

}  // namespace

std::optional<PropertyChanges> run_property_dialog(QWidget* owner, const std::string& caption,
                                                   const std::vector<PropertyPage>& pages) {
    QDialog dialog(owner);
    dialog.setWindowTitle(qstr(caption));
    auto* layout = new QVBoxLayout(&dialog);
    auto* tabs = new QTabWidget(&dialog);
    layout->addWidget(tabs);
    std::vector<Editor> editors;
    for (const PropertyPage& page : pages) {
        auto* scroll = new QScrollArea(tabs);
        scroll->setWidgetResizable(true);
        auto* body = new QWidget(scroll);
        auto* form = new QFormLayout(body);
        if (page.items.empty()) {
            form->addRow(new QLabel(QObject::tr("This page has no settings."), body));
        }
        for (const PropertyItem& item : page.items) {
            form->addRow(qstr(item.label.empty() ? item.name : item.label),
                         make_editor(item, editors, body));
        }
        scroll->setWidget(body);
        tabs->addTab(scroll, qstr(page.title));
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    dialog.resize(420, 360);

    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    PropertyChanges changes;
    for (const Editor& e : editors) {
        if (!e.item->writable) {
            continue;
        }
        std::string now = e.read();
        bool changed = now != e.item->value;
        if (e.item->kind == PropertyItem::Kind::real ||
            e.item->kind == PropertyItem::Kind::integer) {
            // "1.50" and "1.5" are one value.
            changed = std::fabs(std::atof(now.c_str()) - std::atof(e.item->value.c_str())) > 1e-9;
        } else if (e.item->kind == PropertyItem::Kind::boolean) {
            changed = (now == "true") != (e.item->value == "true" || e.item->value == "1");
        }
        if (changed) {
            changes.emplace_back(e.item->name, std::move(now));
        }
    }
    return changes;
}

}  // namespace kc::qt
