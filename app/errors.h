// Errors of platform calls, the application's message table, and how both are shown.
#pragma once

#include <string>

#include "platform/result.h"
#include "ui/capdlg.h"

// Indexes into error_texts: the step that failed.
enum ErrorCode : int {
    ERR_NONE = 0,
    ERR_PUT_OWNER = 1,
    ERR_PUT_WINDOW_STYLE = 2,
    ERR_PUT_VISIBLE = 3,
    ERR_VIDEO_WINDOW_IF = 4,
    ERR_MEDIA_CONTROL_IF = 5,
    ERR_MEDIA_EVENT_IF = 6,
    ERR_MEDIA_SEEKING_IF = 7,
    ERR_RUN_MEDIA_CONTROL = 8,
    ERR_STOP_MEDIA_CONTROL = 9,
    ERR_PROPERTY_PAGES_IF = 10,
    ERR_PROPERTY_FRAME = 11,
    ERR_RUNNING_OBJECT_TABLE = 12,
    ERR_ROT_REGISTER = 13,
    ERR_ITEM_MONIKER = 14,
    ERR_SET_DV_MODE = 15,
    ERR_TRANSPORT_IF = 16,
    ERR_TIMECODE_READER_IF = 17,
    ERR_NOTIFY_WINDOW = 18,
    ERR_CREATE_GRAPH = 19,
    ERR_CREATE_CAPTURE_BUILDER = 20,
    ERR_CREATE_DEVICE_ENUM = 21,
    ERR_CREATE_CLASS_ENUM = 22,
    ERR_MISSING_PROPERTY = 23,
    ERR_NOT_A_FILTER = 24,
    ERR_INDEX_NOT_IN_ENUM = 25,
    ERR_BIND_PROPERTY_SET = 26,
    ERR_ADD_FILTER = 27,
    ERR_QUERY_FILTER = 28,
    ERR_ENUM_PINS = 29,
    ERR_QUERY_PIN = 30,
    ERR_CONNECT_GRAPH = 31,
    ERR_CREATE_DV_SPLITTER = 32,
    ERR_INTERLEAVING_IF = 33,
    ERR_SET_OUTPUT_FILE = 34,
    ERR_MEDIA_FILTER_IF = 35,
    ERR_ATTACH_GRAPH = 36,
    ERR_FIND_FILTER = 37,
    ERR_DV_SEEK = 38,
    ERR_DEVICE_IF = 39,
    ERR_DV_CAPABILITY = 40,
    ERR_READ_REGISTRY = 41,
    ERR_DROPPED_FRAMES_IF = 42,
    ERR_TIME_FORMAT = 43,
};
inline constexpr int error_text_count = 44;
extern const char* const error_texts[error_text_count];

// Indexes into app_messages.
enum AppMessage : int {
    MSG_COM_INIT = 0,
    MSG_DIRECTSHOW = 1,
    MSG_NO_START_POINT = 2,
    MSG_NO_TIMECODE = 3,
    MSG_SELECT_ENTRY = 4,
    MSG_NO_OUTPUT_DIRECTORY = 5,
    MSG_NO_SCENE_NAME = 6,
    MSG_BATCH_COMPLETE = 7,
    MSG_CAMERA_NOT_DETECTED = 8,
    MSG_CAMERA_DISCONNECTED = 9,
    MSG_LOW_DISK_SPACE = 10,
    MSG_NO_MANUAL = 11,
    MSG_INVALID_OUTPUT_DIRECTORY = 12,
};
inline constexpr int app_message_count = 13;
extern const char* const app_messages[app_message_count];

// The exception of every failed platform call. Created with new, thrown as a pointer,
// deleted by the handler that shows it.
struct ComError {
    ComError(HRESULT hr, int code);

    // The system's text for hr up to its last carriage return; `out` is left alone
    // when hr is not negative or the system has no text.
    void system_text(std::string& out) const;

    HRESULT hr;
    std::string text;
    int code;
};

// Throws new ComError(hr, code) when hr is negative.
void throw_if_failed(HRESULT hr, int code);

// Shows the error (error dialog for a failure code, message dialog otherwise) and
// deletes it.
void show_error(ComError* e);
// Shows app_messages[n] followed by " (n)" in the message dialog.
void show_message(int n);
// As show_message, then ends the process with exit code -1.
[[noreturn]] void fatal_message(int n);
// The start-up failure: the camera-not-detected text with the error's text and code.
// Deletes e; the caller ends the process.
void show_startup_failure(ComError* e);

// The error dialog (template 101) and the message dialog (template 102).
class CapErrorDialog : public CapDialog {
  public:
    std::string message;
    std::string system_message;
    bool message_only = true;

  protected:
    void on_init_dialog() override;
    void on_command(WParam wparam, LParam lparam) override;
    void on_close() override;
};

// Dialog template and control ids of the error and message dialogs.
inline constexpr int IDD_ERROR = 101;
inline constexpr int IDD_MESSAGE = 102;
inline constexpr int IDC_ERROR_SYSTEM_TEXT = 1006;
inline constexpr int IDC_ERROR_MESSAGE = 1007;
