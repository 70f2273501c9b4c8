// Resource numbers shared by the dialog templates, the skin tables and the dialog logic:
// dialog templates, the controls inside them, skin bitmaps and the icon. The numbers are
// fixed; hosts and the dialog logic find controls by them.
#pragma once

// --- Dialog templates ---------------------------------------------------------------
// 101 (error) and 102 (message) are named in app/errors.h, which owns that dialog.
inline constexpr int IDD_MAIN = 100;
inline constexpr int IDD_PROPERTIES = 200;
inline constexpr int IDD_SCENE_LIST = 400;
inline constexpr int IDD_TASK = 504;
inline constexpr int IDD_BATCH = 600;
inline constexpr int IDD_SEEK = 700;
inline constexpr int IDD_SCENE_DETECT = 701;

// Static decoration that nothing refers to.
inline constexpr int IDC_STATIC = -1;

// --- Main window (100) -----------------------------------------------------------------
// The preview pane; the two capture progress dialogs use the same id for theirs.
inline constexpr int IDC_PREVIEW = 101;
inline constexpr int IDC_PLAY = 102;
inline constexpr int IDC_STOP = 103;
inline constexpr int IDC_FAST_FORWARD = 104;
inline constexpr int IDC_REWIND = 106;
inline constexpr int IDC_RECORD = 108;
inline constexpr int IDC_OPTIONS = 109;
inline constexpr int IDC_TRACK = 114;
inline constexpr int IDC_PAUSE = 115;
inline constexpr int IDC_HELP = 116;
inline constexpr int IDC_QUIT = 117;
inline constexpr int IDC_SET_IN = 118;
inline constexpr int IDC_SET_OUT = 119;
inline constexpr int IDC_EDIT_SCENES = 120;
inline constexpr int IDC_SEEK = 121;
inline constexpr int IDC_TRANSPORT_STATUS = 122;
inline constexpr int IDC_DEVICE_TYPE = 124;
inline constexpr int IDC_DISK_BAR = 1001;
inline constexpr int IDC_DISK_GB = 1003;
inline constexpr int IDC_DROPPED = 1008;
inline constexpr int IDC_TIMECODE = 1010;
inline constexpr int IDC_IN_POINT = 1016;
inline constexpr int IDC_OUT_POINT = 1017;
inline constexpr int IDC_PLAY_IN_OUT = 1018;

// --- Properties (200) ------------------------------------------------------------------
inline constexpr int IDC_PROP_DEVICE = 115;
inline constexpr int IDC_PROP_OUTPUT_DIR = 201;
inline constexpr int IDC_PROP_BROWSE = 202;
inline constexpr int IDC_PROP_VIDEO_CODEC = 203;
inline constexpr int IDC_PROP_AUDIO_CODEC = 204;
inline constexpr int IDC_PROP_DV_TYPE1 = 205;
inline constexpr int IDC_PROP_DV_TYPE2 = 206;
inline constexpr int IDC_PROP_DV_PAGES = 207;
inline constexpr int IDC_PROP_AUDIO_DEVICE = 208;
inline constexpr int IDC_PROP_SCENE_NAME = 209;
inline constexpr int IDC_PROP_PREROLL = 210;
inline constexpr int IDC_PROP_WDM_PAGES = 211;
inline constexpr int IDC_PROP_DISK_WARNING = 1002;
inline constexpr int IDC_PROP_SCENE_DETECTION = 1020;

// --- Scene list editor (400) -----------------------------------------------------------
inline constexpr int IDC_LIST_VIEW = 401;
inline constexpr int IDC_LIST_RECORD = 108;
inline constexpr int IDC_LIST_PROPERTIES = 109;
inline constexpr int IDC_LIST_DELETE = 402;

// --- Task (504) ------------------------------------------------------------------------
inline constexpr int IDC_TASK_START = 501;
inline constexpr int IDC_TASK_END = 502;
inline constexpr int IDC_TASK_NAME = 503;

// --- Batch progress (600) --------------------------------------------------------------
inline constexpr int IDC_BATCH_PROGRESS = 601;

// --- Seek (700) ------------------------------------------------------------------------
inline constexpr int IDC_SEEK_TRACK = 114;

// --- Scene-detection progress (701) ----------------------------------------------------
inline constexpr int IDC_SCENE_TIMECODE = 1021;
inline constexpr int IDC_SCENE_FILE = 1022;

// --- Bitmaps and icon --------------------------------------------------------------------
inline constexpr int IDB_SKIN = 153;
inline constexpr int IDB_ABOUT = 152;
inline constexpr int IDB_INDICATOR = 1023;
inline constexpr int IDI_MAIN = 125;
