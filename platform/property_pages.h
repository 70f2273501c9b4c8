// A filter's property pages as plain records, and the host that shows them as one modal
// frame. The media platform describes an element's settings in these records and applies
// what comes back; the host (Qt on Linux) knows nothing of the media framework, and the
// media platform nothing of the widgets.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/window.h"

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

class PropertyFrames {
  public:
    virtual ~PropertyFrames() = default;
    // Shows the pages modally over `owner` (may be null) under `caption`. OK gives the
    // changes (possibly none); Cancel, Esc or the close box give nothing. UI thread only.
    virtual std::optional<PropertyChanges> show_property_frame(
        WindowHandle owner, const std::string& caption, const std::vector<PropertyPage>& pages) = 0;
};
