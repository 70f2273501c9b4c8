// A dialog template of resources/ turned into the in-memory extended template that
// DialogBoxIndirectParamA takes: the same bytes a resource compiler writes for a
// DIALOGEX, so the dialog manager lays the dialog out in dialog units of its font, as it
// would from a resource.
#pragma once

#include <vector>

#include "platform/win/win32.h"

// Pixels of a template's dialog units, with the metrics of "MS Sans Serif" at 8 points
// that the templates and the skin were made for (6 pixels of average width, 600 / 370 * 8
// of height per base unit), whatever stands in for that font.
int template_x(int units);
int template_y(int units);

// The template as 16-bit words (the format's alignment unit); texts in UTF-16 from the
// ANSI code page. A STATIC whose text is "#<number>" names a resource by number, as
// "#153" does the skin bitmap of SS_BITMAP.
std::vector<WORD> build_dialog_template(const DialogTemplate& dialog);
