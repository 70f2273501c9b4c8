#include <gtest/gtest.h>

#include "app/errors.h"
#include "tests/unit/foundation/test_platform.h"

namespace {
// Runs `show` with a script that reads the error dialog's texts and presses OK.
struct Shown {
    int template_id = 0;
    std::string message;
    std::string system_message;
    bool system_set = false;
};

template <class F>
Shown capture_dialog(FoundationPlatform& fakes, int template_id, F show) {
    Shown shown;
    fakes.host.script(template_id, [&](FakeDialogHost& host, WindowHandle dlg) {
        shown.template_id = template_id;
        shown.message = host.text(dlg, IDC_ERROR_MESSAGE);
        shown.system_message = host.text(dlg, IDC_ERROR_SYSTEM_TEXT);
        shown.system_set = host.count("set_dlg_item_text(1006") != 0;
        host.command(dlg, IDOK);
    });
    show();
    return shown;
}
}  // namespace

TEST(ErrorTables, TextsAndIndexesAreFixed) {
    EXPECT_STREQ(error_texts[0], "No error");
    EXPECT_STREQ(error_texts[ERR_SET_DV_MODE], "Unable to set DV mode");
    EXPECT_STREQ(error_texts[21], "Error creating system device enumerater");
    EXPECT_STREQ(error_texts[25], "Filter index not in enum");
    EXPECT_STREQ(error_texts[31], "Unable to connect filter graph");
    EXPECT_STREQ(error_texts[37], "Failed to find filter");
    EXPECT_STREQ(error_texts[38], "DV Seek failed");
    EXPECT_STREQ(error_texts[40], "Failed to query DV capabilty");
    EXPECT_STREQ(error_texts[43], "Device time format is not NTSC or PAL");
    EXPECT_STREQ(app_messages[0], "Unable to initialize COM");
    EXPECT_STREQ(app_messages[7], "Batch complete!");
    EXPECT_STREQ(app_messages[11], "Unable to launch ..\\Manual\\CManualIndex.htm");
    EXPECT_STREQ(app_messages[12], "The selected output directory is invalid");
    EXPECT_EQ(std::string(app_messages[8]).substr(0, 44),
              "Kestrel capture was unable to detect your ca");
}

TEST(ThrowIfFailed, OnlyNegativeResultsThrow) {
    FoundationPlatform fakes;
    EXPECT_NO_THROW(throw_if_failed(0, 5));
    EXPECT_NO_THROW(throw_if_failed(1, 5));
    try {
        throw_if_failed(-1, 31);
        FAIL() << "no throw";
    } catch (ComError* e) {
        EXPECT_EQ(e->hr, -1);
        EXPECT_EQ(e->code, 31);
        EXPECT_EQ(e->text, "Unable to connect filter graph");
        delete e;
    }
}

// The system's text is cut at its last carriage return; the code follows as a signed decimal.
TEST(ShowError, FailureCodeShowsBothTextsInTheErrorDialog) {
    FoundationPlatform fakes;
    fakes.system.texts[E_FAIL] = "Unspecified error\r\n";
    fakes.system.texts[-5] = "line one\r\nline two\r\n";
    fakes.system.texts[-6] = "no return at all";
    const std::pair<HRESULT, std::string> cases[] = {
        {E_FAIL, "Unspecified error (-2147467259)"},
        {-5, "line one\r\nline two (-5)"},
        {-6, "no return at all (-6)"},
        {-7, " (-7)"},  // no system text: only the code
    };
    for (const auto& [hr, system_message] : cases) {
        const Shown shown =
            capture_dialog(fakes, IDD_ERROR, [hr = hr] { show_error(new ComError(hr, 31)); });
        EXPECT_EQ(shown.template_id, IDD_ERROR);
        EXPECT_EQ(shown.message, "Unable to connect filter graph");
        EXPECT_EQ(shown.system_message, system_message);
    }
}

TEST(ShowError, NonNegativeCodeShowsTheMessageDialogWithTheTextCode) {
    FoundationPlatform fakes;
    Shown shown = capture_dialog(fakes, IDD_MESSAGE, [] { show_error(new ComError(0, 37)); });
    EXPECT_EQ(shown.template_id, IDD_MESSAGE);
    EXPECT_EQ(shown.message, "Failed to find filter (37)");
    EXPECT_FALSE(shown.system_set);
}

TEST(ShowMessage, TextIsFollowedByItsNumberAndTheParentIsTheMainWindow) {
    FoundationPlatform fakes;
    EXPECT_EQ(capture_dialog(fakes, IDD_MESSAGE, [] { show_message(12); }).message,
              "The selected output directory is invalid (12)");
    EXPECT_EQ(capture_dialog(fakes, IDD_MESSAGE, [] { show_message(7); }).message,
              "Batch complete! (7)");
    EXPECT_TRUE(fakes.host.called("dialog_box(102,null)"));
}

TEST(StartupFailure, CameraTextThenErrorTextThenCode) {
    FoundationPlatform fakes;
    fakes.system.texts[-3] = "No such device\r\n";
    Shown shown =
        capture_dialog(fakes, IDD_ERROR, [] { show_startup_failure(new ComError(-3, 25)); });
    EXPECT_EQ(shown.message,
              std::string(app_messages[8]) + " (8)\r\nFilter index not in enum (25)\r\n");
    EXPECT_EQ(shown.system_message, "No such device (-3)");
}

TEST(FatalMessageDeathTest, ShowsThenExitsWithMinusOne) {
    FoundationPlatform fakes;
    // exit(-1) as the platform reports it: the low byte, 255, where a process's status is
    // a byte (POSIX); the whole code, -1, on Windows. Neither platform reports the other's.
    const auto minus_one = [](int status) {
        return testing::ExitedWithCode(255)(status) || testing::ExitedWithCode(-1)(status);
    };
    EXPECT_EXIT(fatal_message(0), minus_one, "");
}

TEST(ErrorDialog, OkAndCloseBoxEndWithOneEscDoesNothing) {
    FoundationPlatform fakes;
    CapErrorDialog dialog;
    dialog.message = "m";
    dialog.system_message = "s";
    dialog.message_only = false;
    WindowHandle dlg = open_dialog(fakes.host, dialog, IDD_ERROR);
    EXPECT_EQ(fakes.host.text(dlg, IDC_ERROR_MESSAGE), "m");
    EXPECT_EQ(fakes.host.text(dlg, IDC_ERROR_SYSTEM_TEXT), "s");

    fakes.host.command(dlg, IDCANCEL);
    fakes.host.pump();
    EXPECT_FALSE(fakes.host.ended(dlg));

    fakes.host.command(dlg, IDOK);  // posts the close, which ends the dialog
    EXPECT_FALSE(fakes.host.ended(dlg));
    fakes.host.pump();
    EXPECT_TRUE(fakes.host.ended(dlg));
    EXPECT_EQ(fakes.host.end_code(dlg), 1);

    CapErrorDialog other;
    WindowHandle dlg2 = open_dialog(fakes.host, other, IDD_MESSAGE);
    fakes.host.send(dlg2, wm::close);
    EXPECT_EQ(fakes.host.end_code(dlg2), 1);
    EXPECT_EQ(fakes.host.count("set_dlg_item_text(1006"), 1u);  // only the error dialog's
}
