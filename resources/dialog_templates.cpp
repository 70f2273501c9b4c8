// Every dialog template of the capture station as data. Hosts build their windows from
// these records alone, so positions are exact dialog units and styles are the classic
// numeric values; nothing here depends on a toolkit.

#include <array>

#include "resources/dialog_template.h"
#include "resources/resource_ids.h"

using namespace style;

namespace {

constexpr const char* dialog_font = "MS Sans Serif";
constexpr int dialog_font_points = 8;

// The ids of the error and message dialogs; app/errors.h names them for the logic.
constexpr int error_dialog_id = 101;
constexpr int message_dialog_id = 102;
constexpr int error_system_text_id = 1006;
constexpr int error_message_id = 1007;

// Control kinds of the main window: picture buttons drawn by the window itself, and the
// small read-only fields of the display row, which are disabled edits so that the user
// cannot type into them and they get the static colours.
constexpr std::uint32_t owner_draw = WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW;
constexpr std::uint32_t display_field =
    WS_CHILD | WS_VISIBLE | WS_DISABLED | WS_TABSTOP | ES_AUTOHSCROLL;

// Control kinds of the ordinary dialogs.
constexpr std::uint32_t label = WS_CHILD | WS_VISIBLE | SS_LEFT;
constexpr std::uint32_t group_box = WS_CHILD | WS_VISIBLE | BS_GROUPBOX;
constexpr std::uint32_t push_button = WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON;
constexpr std::uint32_t default_button = WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON;
constexpr std::uint32_t text_box = WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL;
constexpr std::uint32_t number_box = text_box | ES_NUMBER;
constexpr std::uint32_t drop_list =
    WS_CHILD | WS_VISIBLE | WS_VSCROLL | WS_TABSTOP | CBS_DROPDOWNLIST;
constexpr std::uint32_t separator = WS_CHILD | WS_VISIBLE | SS_ETCHEDHORZ;
// The pane a capture's video window is placed over.
constexpr std::uint32_t picture_pane = WS_CHILD | WS_VISIBLE | BS_PUSHBUTTON | BS_FLAT;

constexpr std::uint32_t modal_dialog =
    WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME | DS_SETFONT;

// --- 100: the main window -------------------------------------------------------------
// The skin bitmap is 660 x 600 pixels in 440 x 370 dialog units, so every rectangle
// below is placed on the artwork at 1.5 px per horizontal and about 1.62 px per vertical
// unit. Order matters: it is the tab and the Z order.
constexpr std::array main_controls{
    ControlTemplate{IDC_PREVIEW, "BUTTON", "", WS_CHILD | WS_VISIBLE | BS_FLAT, 0, 24, 19, 390,
                    268},
    ControlTemplate{IDC_STOP, "BUTTON", "Stop", owner_draw, 0, 309, 314, 50, 33},
    ControlTemplate{IDC_FAST_FORWARD, "BUTTON", ">>", owner_draw, WS_EX_TRANSPARENT, 247, 316, 65,
                    39},
    ControlTemplate{IDC_REWIND, "BUTTON", "<<", owner_draw, 0, 129, 316, 67, 37},
    ControlTemplate{IDC_OPTIONS, "BUTTON", "Properties", owner_draw, WS_EX_TRANSPARENT, 11, 316, 43,
                    19},
    ControlTemplate{IDC_TIMECODE, "EDIT", "", display_field | ES_NUMBER | ES_CENTER,
                    WS_EX_TRANSPARENT, 12, 300, 44, 10},
    ControlTemplate{IDC_TRACK, "EDIT", "", display_field | ES_NUMBER, 0, 36, 5, 34, 10},
    ControlTemplate{IDC_HELP, "BUTTON", "About", owner_draw, 0, 50, 316, 41, 23},
    ControlTemplate{IDC_QUIT, "BUTTON", "Quit", owner_draw, WS_EX_TRANSPARENT, 403, 288, 31, 27},
    ControlTemplate{IDC_SET_IN, "BUTTON", "Start", owner_draw, WS_EX_TRANSPARENT, 122, 288, 31, 24},
    ControlTemplate{IDC_SET_OUT, "BUTTON", "End", owner_draw, WS_EX_TRANSPARENT, 288, 288, 29, 26},
    ControlTemplate{IDC_EDIT_SCENES, "BUTTON", "Edit", owner_draw, WS_EX_TRANSPARENT, 389, 316, 36,
                    19},
    // Kept in the template but never made visible; the command stays reachable.
    ControlTemplate{IDC_SEEK, "BUTTON", "Seek", WS_CHILD | WS_TABSTOP, 0, 4, 5, 29, 11},
    ControlTemplate{IDC_DISK_BAR, "msctls_progress32", "Progress1",
                    WS_CHILD | WS_VISIBLE | WS_BORDER, 0, 320, 300, 48, 8},
    ControlTemplate{IDC_DISK_GB, "EDIT", "", display_field, 0, 371, 300, 28, 10},
    ControlTemplate{IDC_STATIC, "STATIC", "", WS_CHILD | WS_VISIBLE | SS_ETCHEDFRAME,
                    WS_EX_DLGMODALFRAME, 66, 32, 247, 193},
    ControlTemplate{IDC_DROPPED, "EDIT", "", display_field | ES_CENTER, 0, 91, 300, 29, 10},
    ControlTemplate{IDC_PAUSE, "BUTTON", "Pause", owner_draw, WS_EX_TRANSPARENT, 86, 314, 49, 35},
    ControlTemplate{IDC_STATIC, "STATIC", "#153", WS_CHILD | WS_VISIBLE | SS_BITMAP, 0, 0, 0, 440,
                    370},
    ControlTemplate{IDC_PLAY, "BUTTON", "Play", owner_draw, WS_EX_TRANSPARENT, 188, 316, 65, 41},
    ControlTemplate{IDC_RECORD, "BUTTON", "Record", owner_draw, WS_EX_TRANSPARENT, 354, 317, 37,
                    20},
    ControlTemplate{IDC_IN_POINT, "EDIT", "", display_field | ES_CENTER, 0, 155, 300, 45, 10},
    ControlTemplate{IDC_OUT_POINT, "EDIT", "", display_field | ES_CENTER, 0, 243, 300, 42, 10},
    ControlTemplate{IDC_PLAY_IN_OUT, "BUTTON", "Play In-out", owner_draw, 0, 206, 289, 30, 25},
    ControlTemplate{IDC_DEVICE_TYPE, "EDIT", "", display_field | ES_CENTER, 0, 59, 300, 28, 10},
    ControlTemplate{IDC_TRANSPORT_STATUS, "EDIT", "", display_field, 0, 356, 5, 55, 10},
};

// --- 101: the error dialog ------------------------------------------------------------
constexpr std::uint32_t message_text =
    WS_CHILD | WS_VISIBLE | WS_BORDER | WS_VSCROLL | WS_TABSTOP | ES_MULTILINE | ES_AUTOVSCROLL;
constexpr std::array error_controls{
    ControlTemplate{IDC_STATIC, "STATIC", "An error has occured:", label, 0, 7, 7, 259, 8},
    ControlTemplate{error_message_id, "EDIT", "", message_text | ES_READONLY, 0, 7, 17, 259, 40},
    ControlTemplate{IDC_STATIC, "STATIC", "", separator, 0, 7, 63, 259, 1},
    ControlTemplate{IDC_STATIC, "STATIC", "Windows error message:", label, 0, 7, 69, 259, 8},
    ControlTemplate{error_system_text_id, "EDIT", "", message_text | ES_READONLY, 0, 7, 79, 259,
                    40},
    ControlTemplate{IDC_STATIC, "STATIC", "", separator, 0, 7, 125, 259, 1},
    ControlTemplate{1, "BUTTON", "OK", default_button, 0, 216, 131, 50, 14},
};

// --- 102: the message dialog ----------------------------------------------------------
constexpr std::array message_controls{
    ControlTemplate{IDC_STATIC, "STATIC", "Message:", label, 0, 7, 7, 219, 8},
    ControlTemplate{error_message_id, "EDIT", "", message_text, 0, 7, 17, 219, 34},
    ControlTemplate{1, "BUTTON", "OK", default_button, 0, 176, 56, 50, 14},
};

// --- 200: properties ------------------------------------------------------------------
// Settings that apply to every source at the top, then the controls of a WDM source,
// then those of a DV source; the dialog enables one group or the other by the source.
constexpr std::array properties_controls{
    ControlTemplate{IDC_STATIC, "BUTTON", "Capture Device", group_box, 0, 7, 7, 224, 32},
    ControlTemplate{IDC_PROP_DEVICE, "COMBOBOX", "", drop_list, 0, 14, 19, 210, 80},
    ControlTemplate{IDC_STATIC, "BUTTON", "Output Directory", group_box, 0, 7, 45, 224, 32},
    ControlTemplate{IDC_PROP_OUTPUT_DIR, "EDIT", "", text_box, 0, 14, 57, 180, 12},
    ControlTemplate{IDC_PROP_BROWSE, "BUTTON", "...", push_button, 0, 199, 56, 25, 14},
    ControlTemplate{IDC_STATIC, "STATIC", "Warn when disk space less than", label, 0, 14, 85, 110,
                    8},
    ControlTemplate{IDC_PROP_DISK_WARNING, "EDIT", "", number_box, 0, 126, 83, 30, 12},
    ControlTemplate{IDC_STATIC, "STATIC", "%", label, 0, 160, 85, 10, 8},
    ControlTemplate{IDC_STATIC, "BUTTON", "Scene name", group_box, 0, 7, 101, 224, 32},
    ControlTemplate{IDC_PROP_SCENE_NAME, "EDIT", "", text_box, 0, 14, 113, 210, 12},
    ControlTemplate{IDC_STATIC, "BUTTON", "WDM Capture", group_box, 0, 7, 139, 224, 115},
    ControlTemplate{IDC_STATIC, "STATIC", "Audio Capture Source", label, 0, 14, 151, 210, 8},
    ControlTemplate{IDC_PROP_AUDIO_DEVICE, "COMBOBOX", "", drop_list, 0, 14, 161, 210, 80},
    ControlTemplate{IDC_STATIC, "STATIC", "Video Codec", label, 0, 14, 178, 210, 8},
    ControlTemplate{IDC_PROP_VIDEO_CODEC, "COMBOBOX", "", drop_list, 0, 14, 188, 210, 80},
    ControlTemplate{IDC_STATIC, "STATIC", "Audio Codec", label, 0, 14, 205, 210, 8},
    ControlTemplate{IDC_PROP_AUDIO_CODEC, "COMBOBOX", "", drop_list, 0, 14, 215, 210, 80},
    ControlTemplate{IDC_PROP_WDM_PAGES, "BUTTON", "WDM Capture properties", push_button, 0, 14, 233,
                    100, 14},
    ControlTemplate{IDC_STATIC, "BUTTON", "DV Capture", group_box, 0, 7, 260, 224, 93},
    ControlTemplate{IDC_PROP_DV_TYPE1, "BUTTON", "Type 1 (Interleaved Audio/Video)",
                    WS_CHILD | WS_VISIBLE | WS_GROUP | WS_TABSTOP | BS_AUTORADIOBUTTON, 0, 14, 272,
                    210, 10},
    ControlTemplate{IDC_PROP_DV_TYPE2, "BUTTON", "Type 2 (Seperate Audio/Video)",
                    WS_CHILD | WS_VISIBLE | BS_AUTORADIOBUTTON, 0, 14, 284, 210, 10},
    ControlTemplate{IDC_STATIC, "STATIC", "Preroll", label | WS_GROUP, 0, 14, 300, 30, 8},
    ControlTemplate{IDC_PROP_PREROLL, "EDIT", "", number_box, 0, 48, 298, 40, 12},
    ControlTemplate{IDC_PROP_SCENE_DETECTION, "BUTTON", "Automatic Scene detection",
                    WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_AUTOCHECKBOX, 0, 14, 316, 210, 10},
    ControlTemplate{IDC_PROP_DV_PAGES, "BUTTON", "DV Capture properties", push_button, 0, 14, 332,
                    100, 14},
    ControlTemplate{1, "BUTTON", "Ok", default_button, 0, 181, 370, 50, 14},
};

// --- 400: scene list editor -----------------------------------------------------------
constexpr std::array scene_list_controls{
    ControlTemplate{IDC_LIST_VIEW, "SysListView32", "",
                    WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP | LVS_REPORT | LVS_EDITLABELS, 0,
                    7, 7, 307, 150},
    ControlTemplate{IDC_LIST_RECORD, "BUTTON", "Record", push_button, 0, 7, 165, 50, 14},
    ControlTemplate{IDC_LIST_PROPERTIES, "BUTTON", "Properties", push_button, 0, 62, 165, 50, 14},
    ControlTemplate{IDC_LIST_DELETE, "BUTTON", "Delete", push_button, 0, 117, 165, 50, 14},
    ControlTemplate{1, "BUTTON", "OK", default_button, 0, 264, 165, 50, 14},
};

// --- 504: task ------------------------------------------------------------------------
constexpr std::array task_controls{
    ControlTemplate{IDC_STATIC, "STATIC", "Name", label, 0, 7, 9, 30, 8},
    ControlTemplate{IDC_TASK_NAME, "EDIT", "", text_box, 0, 40, 7, 133, 12},
    ControlTemplate{IDC_STATIC, "STATIC", "Start", label, 0, 7, 27, 30, 8},
    ControlTemplate{IDC_TASK_START, "EDIT", "", number_box, 0, 40, 25, 60, 12},
    ControlTemplate{IDC_STATIC, "STATIC", "End", label, 0, 7, 45, 30, 8},
    ControlTemplate{IDC_TASK_END, "EDIT", "", number_box, 0, 40, 43, 60, 12},
    ControlTemplate{IDC_STATIC, "STATIC", "", separator, 0, 7, 92, 166, 1},
    ControlTemplate{1, "BUTTON", "OK", default_button, 0, 69, 100, 50, 14},
    ControlTemplate{2, "BUTTON", "Cancel", push_button, 0, 123, 100, 50, 14},
};

// --- 600: batch progress --------------------------------------------------------------
constexpr std::array batch_controls{
    ControlTemplate{IDC_PREVIEW, "BUTTON", "", picture_pane, 0, 37, 7, 106, 86},
    ControlTemplate{IDC_BATCH_PROGRESS, "msctls_progress32", "", WS_CHILD | WS_VISIBLE | WS_BORDER,
                    0, 7, 100, 166, 10},
    ControlTemplate{2, "BUTTON", "Abort", push_button, 0, 65, 118, 50, 14},
};

// --- 700: seek ------------------------------------------------------------------------
constexpr std::array seek_controls{
    ControlTemplate{IDC_STATIC, "STATIC", "Seek to:", label, 0, 7, 9, 30, 8},
    ControlTemplate{IDC_SEEK_TRACK, "EDIT", "", number_box, 0, 40, 7, 152, 12},
    ControlTemplate{1, "BUTTON", "Ok", default_button, 0, 88, 37, 50, 14},
    ControlTemplate{2, "BUTTON", "Cancel", push_button, 0, 142, 37, 50, 14},
};

// --- 701: scene-detection progress ----------------------------------------------------
constexpr std::uint32_t read_only_field = text_box | ES_READONLY;
constexpr std::array scene_detect_controls{
    ControlTemplate{IDC_PREVIEW, "BUTTON", "", picture_pane, 0, 37, 7, 106, 86},
    ControlTemplate{IDC_STATIC, "STATIC", "Timecode:", label, 0, 7, 101, 34, 8},
    ControlTemplate{IDC_SCENE_TIMECODE, "EDIT", "", read_only_field, 0, 44, 99, 129, 12},
    ControlTemplate{IDC_STATIC, "STATIC", "File:", label, 0, 7, 117, 34, 8},
    ControlTemplate{IDC_SCENE_FILE, "EDIT", "", read_only_field, 0, 44, 115, 129, 12},
    ControlTemplate{2, "BUTTON", "Stop", push_button, 0, 65, 135, 50, 14},
};

// The main window's template is an extended template in English (United Kingdom); the
// language only matters to a host that loads native resources, not to this data.
constexpr std::array templates{
    DialogTemplate{IDD_MAIN, "Kestrel Capture",
                   WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | DS_SETFONT, 0, 6, 18, 445, 370,
                   dialog_font, dialog_font_points, main_controls},
    DialogTemplate{error_dialog_id, "Error", modal_dialog, 0, 0, 0, 273, 151, dialog_font,
                   dialog_font_points, error_controls},
    DialogTemplate{message_dialog_id, "Kestrel Capture", modal_dialog, 0, 0, 0, 233, 77,
                   dialog_font, dialog_font_points, message_controls},
    DialogTemplate{IDD_PROPERTIES, "Properties", modal_dialog, 0, 0, 0, 238, 394, dialog_font,
                   dialog_font_points, properties_controls},
    DialogTemplate{IDD_SCENE_LIST, "Batch Capture", modal_dialog, 0, 0, 0, 321, 188, dialog_font,
                   dialog_font_points, scene_list_controls},
    DialogTemplate{IDD_TASK, "Task Properties", modal_dialog, 0, 0, 0, 180, 121, dialog_font,
                   dialog_font_points, task_controls},
    DialogTemplate{IDD_BATCH, "Batch Progress", modal_dialog, 0, 0, 0, 180, 139, dialog_font,
                   dialog_font_points, batch_controls},
    DialogTemplate{IDD_SEEK, "Seek", modal_dialog, 0, 0, 0, 199, 58, dialog_font,
                   dialog_font_points, seek_controls},
    DialogTemplate{IDD_SCENE_DETECT, "Scene Detect Progress", modal_dialog, 0, 0, 0, 180, 156,
                   dialog_font, dialog_font_points, scene_detect_controls},
};

}  // namespace

const DialogTemplate* find_dialog_template(int id) {
    for (const DialogTemplate& t : templates) {
        if (t.id == id) {
            return &t;
        }
    }
    return nullptr;
}
