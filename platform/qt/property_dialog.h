// The property pages of a media element as one generic dialog: each page is a named list
// of properties, each shown with the editor its kind calls for (the records are in
// platform/property_pages.h).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/property_pages.h"

class QWidget;

namespace kc::qt {

using ::PropertyChanges;
using ::PropertyItem;
using ::PropertyPage;

// Runs the dialog modally over `owner` (may be null). OK gives the changes (possibly
// none); Cancel, Esc or the close box give nothing. UI thread only.
std::optional<PropertyChanges> run_property_dialog(QWidget* owner, const std::string& caption,
                                                   const std::vector<PropertyPage>& pages);

}  // namespace kc::qt
