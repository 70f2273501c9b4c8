#include "platform/win/win_dialog_template.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace {
// The dialog manager's predefined classes, written as atoms as a resource compiler does.
struct PredefinedClass {
    std::string_view name;
    WORD atom;
};
constexpr PredefinedClass predefined_classes[] = {
    {"BUTTON", 0x0080},  {"EDIT", 0x0081},      {"STATIC", 0x0082},
    {"LISTBOX", 0x0083}, {"SCROLLBAR", 0x0084}, {"COMBOBOX", 0x0085},
};

class Writer {
  public:
    std::vector<WORD> words;

    void word(WORD w) { words.push_back(w); }
    void dword(DWORD d) {
        word(LOWORD(d));
        word(HIWORD(d));
    }
    void signed_word(int value) { word(static_cast<WORD>(static_cast<short>(value))); }
    // Zero-terminated UTF-16.
    void text(std::string_view ansi) {
        if (!ansi.empty()) {
            const int length = MultiByteToWideChar(CP_ACP, 0, ansi.data(),
                                                   static_cast<int>(ansi.size()), nullptr, 0);
            std::wstring wide(static_cast<std::size_t>(length), L'\0');
            MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), wide.data(),
                                length);
            for (wchar_t c : wide) {
                word(static_cast<WORD>(c));
            }
        }
        word(0);
    }
    void ordinal(WORD number) {
        word(0xFFFF);
        word(number);
    }
    // Items start on 32-bit boundaries; the buffer itself is aligned by the caller.
    void align_dword() {
        if (words.size() % 2 != 0) {
            word(0);
        }
    }
};

bool same_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) {
            return false;
        }
    }
    return true;
}

void write_class(Writer& out, std::string_view cls) {
    for (const PredefinedClass& p : predefined_classes) {
        if (same_ignoring_case(p.name, cls)) {
            out.ordinal(p.atom);
            return;
        }
    }
    out.text(cls);
}

// "#153" is resource number 153; any other text is itself.
void write_title(Writer& out, std::string_view title) {
    WORD number = 0;
    if (title.size() > 1 && title.front() == '#') {
        const auto [end, error] =
            std::from_chars(title.data() + 1, title.data() + title.size(), number);
        if (error == std::errc() && end == title.data() + title.size()) {
            out.ordinal(number);
            return;
        }
    }
    out.text(title);
}
// A skin is a bitmap static under the buttons drawn on it, and it does not clip its
// siblings: Wine paints it after the buttons above it that are not transparent, over
// them. Owner-drawn buttons paint their whole face from the skin's own pictures, so as
// transparent windows, painted after what lies under them, they lose nothing and stay
// in sight.
DWORD extra_ex_style(const ControlTemplate& control) {
    const bool owner_drawn =
        control.cls == "BUTTON" && (control.style & BS_TYPEMASK) == BS_OWNERDRAW;
    return owner_drawn ? WS_EX_TRANSPARENT : 0;
}
}  // namespace

std::vector<WORD> build_dialog_template(const DialogTemplate& dialog) {
    Writer out;
    out.word(1);       // version
    out.word(0xFFFF);  // the extended format's signature
    out.dword(0);      // help id
    out.dword(dialog.ex_style);
    out.dword(dialog.style);
    out.word(static_cast<WORD>(dialog.controls.size()));
    out.signed_word(dialog.x);
    out.signed_word(dialog.y);
    out.signed_word(dialog.cx);
    out.signed_word(dialog.cy);
    out.word(0);  // no menu
    out.word(0);  // the dialog manager's own window class
    out.text(dialog.caption);
    if ((dialog.style & DS_SETFONT) != 0) {
        out.word(static_cast<WORD>(dialog.font_points));
        out.word(FW_DONTCARE);
        out.word(MAKEWORD(FALSE, DEFAULT_CHARSET));  // italic, character set
        out.text(dialog.font);
    }
    for (const ControlTemplate& control : dialog.controls) {
        out.align_dword();
        out.dword(0);  // help id
        out.dword(control.ex_style | extra_ex_style(control));
        out.dword(control.style);
        out.signed_word(control.x);
        out.signed_word(control.y);
        out.signed_word(control.cx);
        out.signed_word(control.cy);
        out.dword(static_cast<DWORD>(control.id));
        write_class(out, control.cls);
        write_title(out, control.text);
        out.word(0);  // no creation data
    }
    return out.words;
}

int template_x(int units) {
    return static_cast<int>(std::lround(units * 6.0 / 4.0));
}

int template_y(int units) {
    return static_cast<int>(std::lround(units * (600.0 * 8.0 / 370.0) / 8.0));
}
