// Every constant the project declares that the Windows headers (windows.h, commctrl.h,
// dshow.h, edevdefs.h) also define, as X(namespace, name); an empty namespace is the
// global one. Left out: IDC_HELP, a control id here and the help cursor there.
#pragma once

// clang-format off
#define KC_SHARED_NAMES(X) \
    /* Results (result.h) */ \
    X(, S_OK) \
    X(, S_FALSE) \
    X(, E_NOTIMPL) \
    X(, E_NOINTERFACE) \
    X(, E_POINTER) \
    X(, E_ABORT) \
    X(, E_FAIL) \
    X(, E_UNEXPECTED) \
    X(, E_ACCESSDENIED) \
    X(, E_OUTOFMEMORY) \
    X(, E_INVALIDARG) \
    /* Window messages' companions (window.h) */ \
    X(, IDOK) \
    X(, IDCANCEL) \
    X(, CBN_SELCHANGE) \
    X(, EN_CHANGE) \
    X(, NM_DBLCLK) \
    X(, WA_INACTIVE) \
    X(, WA_ACTIVE) \
    X(, WA_CLICKACTIVE) \
    X(, ODS_SELECTED) \
    X(, MB_ICONHAND) \
    /* Graph events and the video window (media.h) */ \
    X(media, EC_COMPLETE) \
    X(media, EC_USERABORT) \
    X(media, EC_ERRORABORT) \
    X(media, EC_DEVICE_LOST) \
    X(media, OATRUE) \
    X(media, OAFALSE) \
    X(media, WS_CHILD) \
    X(media, WS_CLIPCHILDREN) \
    /* DV device control (media.h) */ \
    X(media, ED_DEVCAP_DEVICE_TYPE) \
    X(media, ED_DEVTYPE_VCR) \
    X(media, ED_DEVCAP_NORMAL_RATE) \
    X(media, ED_RATE_30) \
    X(media, ED_RATE_25) \
    X(media, ED_RATE_2997) \
    X(media, ED_DEVCAP_TIMECODE_READ) \
    X(media, ED_MODE) \
    X(media, ED_MODE_PLAY) \
    X(media, ED_MODE_STOP) \
    X(media, ED_MODE_FREEZE) \
    X(media, ED_MODE_THAW) \
    X(media, ED_MODE_FF) \
    X(media, ED_MODE_REW) \
    X(media, ED_MODE_RECORD) \
    X(media, ED_MODE_RECORD_STROBE) \
    X(media, ED_MODE_STEP_FWD) \
    X(media, ED_MODE_STEP_REV) \
    /* Dialog template styles (dialog_template.h) */ \
    X(style, WS_POPUP) \
    X(style, WS_CHILD) \
    X(style, WS_VISIBLE) \
    X(style, WS_DISABLED) \
    X(style, WS_CLIPCHILDREN) \
    X(style, WS_CAPTION) \
    X(style, WS_BORDER) \
    X(style, WS_VSCROLL) \
    X(style, WS_SYSMENU) \
    X(style, WS_GROUP) \
    X(style, WS_TABSTOP) \
    X(style, DS_SETFONT) \
    X(style, DS_MODALFRAME) \
    X(style, WS_EX_DLGMODALFRAME) \
    X(style, WS_EX_TRANSPARENT) \
    X(style, WS_EX_CLIENTEDGE) \
    X(style, WS_EX_STATICEDGE) \
    X(style, BS_PUSHBUTTON) \
    X(style, BS_DEFPUSHBUTTON) \
    X(style, BS_AUTOCHECKBOX) \
    X(style, BS_AUTORADIOBUTTON) \
    X(style, BS_GROUPBOX) \
    X(style, BS_OWNERDRAW) \
    X(style, BS_FLAT) \
    X(style, ES_LEFT) \
    X(style, ES_CENTER) \
    X(style, ES_MULTILINE) \
    X(style, ES_AUTOVSCROLL) \
    X(style, ES_AUTOHSCROLL) \
    X(style, ES_READONLY) \
    X(style, ES_NUMBER) \
    X(style, SS_LEFT) \
    X(style, SS_RIGHT) \
    X(style, SS_BITMAP) \
    X(style, SS_ETCHEDHORZ) \
    X(style, SS_ETCHEDFRAME) \
    X(style, CBS_DROPDOWNLIST) \
    X(style, LVS_REPORT) \
    X(style, LVS_EDITLABELS) \
    /* end */
// clang-format on
