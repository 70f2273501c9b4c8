// The real program started as a Windows user starts it: a process of its own, with the
// arguments after its name; both handles are the caller's to close. False when it could
// not be started.
#pragma once

#include <string>

#include "platform/win/win32.h"

inline bool start_program(const std::string& arguments, PROCESS_INFORMATION& process) {
    std::string command = "\"" KC_PROGRAM "\"" + (arguments.empty() ? "" : " " + arguments);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    process = PROCESS_INFORMATION{};
    return CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process) != FALSE;
}
