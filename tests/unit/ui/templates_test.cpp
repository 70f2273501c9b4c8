// The templates and skin tables as data: the main window exactly as laid out on the
// skin, every other dialog complete and tidy, and the tables the main window draws with.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "app/errors.h"
#include "resources/dialog_template.h"
#include "resources/resource_ids.h"
#include "resources/skin_tables.h"

using namespace style;

namespace {

const ControlTemplate* find_control(const DialogTemplate& t, int id) {
    for (const ControlTemplate& c : t.controls) {
        if (c.id == id) {
            return &c;
        }
    }
    return nullptr;
}

bool overlaps(const ControlTemplate& a, const ControlTemplate& b) {
    return a.x < b.x + b.cx && b.x < a.x + a.cx && a.y < b.y + b.cy && b.y < a.y + a.cy;
}

bool is_group_box(const ControlTemplate& c) {
    return c.cls == "BUTTON" && (c.style & 0xF) == BS_GROUPBOX;
}

constexpr std::uint32_t owner_draw = WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW;
constexpr std::uint32_t display = WS_CHILD | WS_VISIBLE | WS_DISABLED | WS_TABSTOP | ES_AUTOHSCROLL;

struct Row {
    int id;
    const char* cls;
    const char* text;
    std::uint32_t style;
    std::uint32_t ex_style;
    int x, y, cx, cy;
};

// The main window's controls in template order, as they sit on the skin.
const Row main_rows[] = {
    {101, "BUTTON", "", WS_CHILD | WS_VISIBLE | BS_FLAT, 0, 24, 19, 390, 268},
    {103, "BUTTON", "Stop", owner_draw, 0, 309, 314, 50, 33},
    {104, "BUTTON", ">>", owner_draw, WS_EX_TRANSPARENT, 247, 316, 65, 39},
    {106, "BUTTON", "<<", owner_draw, 0, 129, 316, 67, 37},
    {109, "BUTTON", "Properties", owner_draw, WS_EX_TRANSPARENT, 11, 316, 43, 19},
    {1010, "EDIT", "", display | ES_NUMBER | ES_CENTER, WS_EX_TRANSPARENT, 12, 300, 44, 10},
    {114, "EDIT", "", display | ES_NUMBER, 0, 36, 5, 34, 10},
    {116, "BUTTON", "About", owner_draw, 0, 50, 316, 41, 23},
    {117, "BUTTON", "Quit", owner_draw, WS_EX_TRANSPARENT, 403, 288, 31, 27},
    {118, "BUTTON", "Start", owner_draw, WS_EX_TRANSPARENT, 122, 288, 31, 24},
    {119, "BUTTON", "End", owner_draw, WS_EX_TRANSPARENT, 288, 288, 29, 26},
    {120, "BUTTON", "Edit", owner_draw, WS_EX_TRANSPARENT, 389, 316, 36, 19},
    {121, "BUTTON", "Seek", WS_CHILD | WS_TABSTOP, 0, 4, 5, 29, 11},
    {1001, "msctls_progress32", "Progress1", WS_CHILD | WS_VISIBLE | WS_BORDER, 0, 320, 300, 48, 8},
    {1003, "EDIT", "", display, 0, 371, 300, 28, 10},
    {-1, "STATIC", "", WS_CHILD | WS_VISIBLE | SS_ETCHEDFRAME, WS_EX_DLGMODALFRAME, 66, 32, 247,
     193},
    {1008, "EDIT", "", display | ES_CENTER, 0, 91, 300, 29, 10},
    {115, "BUTTON", "Pause", owner_draw, WS_EX_TRANSPARENT, 86, 314, 49, 35},
    {-1, "STATIC", "#153", WS_CHILD | WS_VISIBLE | SS_BITMAP, 0, 0, 0, 440, 370},
    {102, "BUTTON", "Play", owner_draw, WS_EX_TRANSPARENT, 188, 316, 65, 41},
    {108, "BUTTON", "Record", owner_draw, WS_EX_TRANSPARENT, 354, 317, 37, 20},
    {1016, "EDIT", "", display | ES_CENTER, 0, 155, 300, 45, 10},
    {1017, "EDIT", "", display | ES_CENTER, 0, 243, 300, 42, 10},
    {1018, "BUTTON", "Play In-out", owner_draw, 0, 206, 289, 30, 25},
    {124, "EDIT", "", display | ES_CENTER, 0, 59, 300, 28, 10},
    {122, "EDIT", "", display, 0, 356, 5, 55, 10},
};

}  // namespace

TEST(MainTemplate, WindowAndEveryControlInTemplateOrder) {
    const DialogTemplate* t = find_dialog_template(IDD_MAIN);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->caption, "Kestrel Capture");
    EXPECT_EQ(t->style, WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | DS_SETFONT);
    EXPECT_EQ(t->font, "MS Sans Serif");
    EXPECT_EQ(t->font_points, 8);
    EXPECT_EQ(std::vector<int>({t->x, t->y, t->cx, t->cy}), std::vector<int>({6, 18, 445, 370}));
    ASSERT_EQ(t->controls.size(), std::size(main_rows));
    for (std::size_t i = 0; i < std::size(main_rows); ++i) {
        const Row& want = main_rows[i];
        const ControlTemplate& got = t->controls[i];
        SCOPED_TRACE("control #" + std::to_string(i + 1) + " id " + std::to_string(want.id));
        EXPECT_EQ(std::tuple(got.id, got.cls, got.text, got.style, got.ex_style, got.x, got.y,
                             got.cx, got.cy),
                  std::tuple(want.id, std::string_view(want.cls), std::string_view(want.text),
                             want.style, want.ex_style, want.x, want.y, want.cx, want.cy));
    }
}

TEST(MainTemplate, OnlyTheSeekButtonIsHiddenAndTheDisplayFieldsAreReadOnly) {
    const DialogTemplate* t = find_dialog_template(IDD_MAIN);
    ASSERT_NE(t, nullptr);
    std::vector<int> hidden;
    for (const ControlTemplate& c : t->controls) {
        if ((c.style & WS_VISIBLE) == 0) {
            hidden.push_back(c.id);
        }
        if (c.cls == "EDIT") {
            EXPECT_NE(c.style & WS_DISABLED, 0u) << c.id;
        }
    }
    EXPECT_EQ(hidden, std::vector<int>{IDC_SEEK});
    // Every picture button of the skin tables is owner-drawn in the template.
    for (const skin::ButtonPictures& b : skin::button_pictures()) {
        const ControlTemplate* c = find_control(*t, b.control_id);
        ASSERT_NE(c, nullptr) << b.control_id;
        EXPECT_EQ(c->style & 0xF, BS_OWNERDRAW) << b.control_id;
    }
}

TEST(Templates, EveryDialogExistsWithItsCaptionSizeAndFont) {
    struct Want {
        int id;
        const char* caption;
        int cx, cy;
    };
    const Want wants[] = {
        {IDD_ERROR, "Error", 273, 151},
        {IDD_MESSAGE, "Kestrel Capture", 233, 77},
        {IDD_PROPERTIES, "Properties", 238, 394},
        {IDD_SCENE_LIST, "Batch Capture", 321, 188},
        {IDD_TASK, "Task Properties", 180, 121},
        {IDD_BATCH, "Batch Progress", 180, 139},
        {IDD_SEEK, "Seek", 199, 58},
        {IDD_SCENE_DETECT, "Scene Detect Progress", 180, 156},
    };
    for (const Want& w : wants) {
        const DialogTemplate* t = find_dialog_template(w.id);
        ASSERT_NE(t, nullptr) << w.id;
        EXPECT_EQ(std::tuple(t->id, t->caption, t->cx, t->cy, t->font, t->font_points),
                  std::tuple(w.id, std::string_view(w.caption), w.cx, w.cy,
                             std::string_view("MS Sans Serif"), 8));
        EXPECT_NE(t->style & WS_CAPTION, 0u) << w.id;
    }
    EXPECT_EQ(find_dialog_template(300), nullptr);  // the about picture's dialog is not kept
    EXPECT_EQ(find_dialog_template(0), nullptr);
}

TEST(Templates, ControlKindsTheDialogsRelyOn) {
    // That every control a dialog uses exists is checked by the dialog tests themselves
    // (the fake host answers from these templates); here, what kind each one is.
    const auto control = [](int dialog, int id) {
        const ControlTemplate* c = find_control(*find_dialog_template(dialog), id);
        EXPECT_NE(c, nullptr) << dialog << ":" << id;
        return c ? *c : ControlTemplate{};
    };
    for (int id : {115, 203, 204, 208}) {
        EXPECT_EQ(control(IDD_PROPERTIES, id).style & 0xF, CBS_DROPDOWNLIST) << id;
    }
    for (auto [dialog, id] :
         {std::pair{IDD_PROPERTIES, 1002}, std::pair{IDD_PROPERTIES, 210}, std::pair{IDD_TASK, 501},
          std::pair{IDD_TASK, 502}, std::pair{IDD_SEEK, 114}}) {
        EXPECT_NE(control(dialog, id).style & ES_NUMBER, 0u) << dialog << ":" << id;
    }
    EXPECT_EQ(control(IDD_PROPERTIES, 1020).style & 0xF, BS_AUTOCHECKBOX);
    EXPECT_EQ(control(IDD_PROPERTIES, 205).text, "Type 1 (Interleaved Audio/Video)");
    EXPECT_EQ(control(IDD_PROPERTIES, 206).text, "Type 2 (Seperate Audio/Video)");
    EXPECT_EQ(control(IDD_SCENE_LIST, 401).style & (LVS_REPORT | LVS_EDITLABELS),
              LVS_REPORT | LVS_EDITLABELS);
    // The error dialog's texts are read-only, the message dialog's is not.
    EXPECT_NE(control(IDD_ERROR, IDC_ERROR_MESSAGE).style & ES_READONLY, 0u);
    EXPECT_NE(control(IDD_ERROR, IDC_ERROR_SYSTEM_TEXT).style & ES_READONLY, 0u);
    EXPECT_EQ(control(IDD_MESSAGE, IDC_ERROR_MESSAGE).style & ES_READONLY, 0u);
    EXPECT_EQ(find_control(*find_dialog_template(IDD_MESSAGE), IDC_ERROR_SYSTEM_TEXT), nullptr);
    for (int dialog : {IDD_BATCH, IDD_SCENE_DETECT}) {
        const ControlTemplate pane = control(dialog, IDC_PREVIEW);
        EXPECT_EQ(std::vector<int>({pane.cx, pane.cy}), std::vector<int>({106, 86})) << dialog;
        EXPECT_NE(pane.style & BS_FLAT, 0u) << dialog;
        EXPECT_EQ(control(dialog, IDCANCEL).cls, "BUTTON") << dialog;
    }
}

TEST(Templates, OrdinaryDialogsAreTidy) {
    for (int id : {IDD_ERROR, IDD_MESSAGE, IDD_PROPERTIES, IDD_SCENE_LIST, IDD_TASK, IDD_BATCH,
                   IDD_SEEK, IDD_SCENE_DETECT}) {
        const DialogTemplate& t = *find_dialog_template(id);
        SCOPED_TRACE("template " + std::to_string(id));
        std::set<int> ids;
        for (const ControlTemplate& c : t.controls) {
            // Inside the dialog with a margin, every control visible and a child.
            EXPECT_GE(c.x, 4) << c.id;
            EXPECT_GE(c.y, 4) << c.id;
            EXPECT_LE(c.x + c.cx, t.cx - 4) << c.id;
            EXPECT_LE(c.y + c.cy, t.cy - 4) << c.id;
            EXPECT_EQ(c.style & (WS_CHILD | WS_VISIBLE), WS_CHILD | WS_VISIBLE) << c.id;
            if (c.id != IDC_STATIC) {
                EXPECT_TRUE(ids.insert(c.id).second) << "duplicate id " << c.id;
            }
        }
        // No two controls on top of each other, except inside a group box. A drop-down
        // list's rectangle includes its list, so only its closed height counts.
        for (std::size_t i = 0; i < t.controls.size(); ++i) {
            for (std::size_t j = i + 1; j < t.controls.size(); ++j) {
                ControlTemplate a = t.controls[i];
                ControlTemplate b = t.controls[j];
                if (is_group_box(a) || is_group_box(b)) {
                    continue;
                }
                for (ControlTemplate* c : {&a, &b}) {
                    if (c->cls == "COMBOBOX") {
                        c->cy = 12;
                    }
                }
                EXPECT_FALSE(overlaps(a, b))
                    << a.id << " '" << a.text << "' and " << b.id << " '" << b.text << "'";
            }
        }
    }
}

TEST(SkinTables, ButtonPicturesPairEveryOwnerDrawnButton) {
    // Control id, pressed and normal bitmap, width and height in pixels.
    const std::vector<std::array<int, 5>> want = {
        {102, 138, 139, 103, 71}, {106, 136, 137, 103, 71}, {104, 140, 141, 103, 71},
        {103, 142, 143, 75, 57},  {115, 134, 135, 75, 57},  {116, 131, 132, 62, 41},
        {108, 144, 145, 62, 41},  {120, 146, 147, 66, 32},  {109, 129, 130, 66, 32},
        {117, 127, 128, 47, 44},  {118, 123, 124, 47, 44},  {119, 125, 126, 47, 44},
        {1018, 150, 151, 47, 44}};
    std::vector<std::array<int, 5>> got;
    for (const skin::ButtonPictures& p : skin::button_pictures()) {
        got.push_back({p.control_id, p.pressed_bitmap, p.normal_bitmap, p.width_px, p.height_px});
    }
    EXPECT_EQ(got, want);
}

TEST(SkinTables, BitmapListCoversSkinIndicatorAndEveryPictureOnce) {
    std::map<int, std::pair<int, int>> sizes;
    for (const skin::Bitmap& b : skin::bitmaps()) {
        EXPECT_TRUE(sizes.emplace(b.id, std::pair{b.width_px, b.height_px}).second)
            << "bitmap listed twice: " << b.id;
    }
    EXPECT_EQ(sizes[IDB_SKIN], std::pair(660, 600));
    EXPECT_EQ(sizes[IDB_INDICATOR], std::pair(24, 19));
    // 123 to 151 hold the button pictures; three numbers in that range are unused.
    std::set<int> expected{IDB_SKIN, IDB_ABOUT, IDB_INDICATOR}, ids;
    for (int id = 123; id <= 151; ++id) {
        if (id != 133 && id != 148 && id != 149) {
            expected.insert(id);
        }
    }
    for (const auto& [id, size] : sizes) {
        ids.insert(id);
    }
    EXPECT_EQ(ids, expected);
}

TEST(SkinTables, TooltipsInRegistrationOrder) {
    std::vector<int> ids;
    std::vector<std::string> texts;
    for (const skin::Tooltip& t : skin::tooltips()) {
        ids.push_back(t.control_id);
        texts.emplace_back(t.text);
    }
    EXPECT_EQ(ids, (std::vector<int>{108, 102, 103, 1018, 104, 106, 115, 109, 121, 116, 120, 117,
                                     118, 119}));
    EXPECT_EQ(texts, (std::vector<std::string>{"Record", "Play", "Stop", "Play from In point",
                                               "Fast Forward or Step Forward if paused",
                                               "Rewind or Step Backwards if paused", "Pause",
                                               "Options", "Seek", "Help", "Edit scene list",
                                               "Exit program", "Set In point", "Set Out point"}));
}

TEST(SkinTables, TransportStatusTextsByMode) {
    const std::vector<std::pair<long, std::string>> named = {
        {4296, "Playing"},      {4297, "Stopped"},      {4298, "Paused"},
        {4300, "Fast forward"}, {4301, "Rewind"},       {4302, "Recording"},
        {4304, "Step forward"}, {4905, "Step reverse"}, {5029, "Fast forward"},
        {5030, "Fast forward"}, {5031, "Rewind"},       {5032, "Rewind"},
    };
    for (const auto& [mode, text] : named) {
        const char* got = skin::transport_status_text(mode);
        ASSERT_NE(got, nullptr) << mode;
        EXPECT_EQ(std::string(got), text) << mode;
    }
    // Passing states, an unreadable mode and anything else keep the last text.
    for (long mode : {0L, 4299L, 4303L, 4305L, -1L, 5033L}) {
        EXPECT_EQ(skin::transport_status_text(mode), nullptr) << mode;
    }
}
