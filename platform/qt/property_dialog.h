// The property pages of a media element as one generic dialog: each page is a named list
// of properties, each shown with the editor its kind calls for. The media platform
// describes an element's properties in these plain records and applies what comes back,
// so the dialog knows nothing of GStreamer and the media layer nothing of Qt.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

class QWidget;

namespace kc::qt {

struct PropertyItem {
    enum class Kind { boolean, integer, real, text, choice };
    std::string name;   // the property's own name, given back with its new value
    std::string label;  // shown beside the editor
    std::string blurb;  // tooltip
    Kind kind = Kind::text;
    bool writable = true;
    double minimum = 0;  // integer and real
    double maximum = 0;
    std::vector<std::string> choices;  // choice: the names, in order
    // The current value as text: "true"/"false", a number, the text, or a choice's name.
    std::string value;
};

struct PropertyPage {
    std::string title;
    std::vector<PropertyItem> items;
};

// (name, new value as text) for every property the user changed.
using PropertyChanges = std::vector<std::pair<std::string, std::string>>;

// Runs the dialog modally over `owner` (may be null). OK gives the changes (possibly
// none); Cancel, Esc or the close box give nothing. UI thread only.
std::optional<PropertyChanges> run_property_dialog(QWidget* owner, const std::string& caption,
                                                   const std::vector<PropertyPage>& pages);

}  // namespace kc::qt
