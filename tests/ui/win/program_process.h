// The real program started as a Windows user starts it: a process of its own, with the
// arguments after its name; both handles are the caller's to close. What it prints goes
// to `output` (an inheritable file handle) when one is given, else where the caller's
// goes. False when it could not be started.
#pragma once

#include <string>

#include "platform/win/win32.h"

inline bool start_program(const std::string& arguments, PROCESS_INFORMATION& process,
                          HANDLE output = nullptr) {
    std::string command = "\"" KC_PROGRAM "\"" + (arguments.empty() ? "" : " " + arguments);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    if (output != nullptr) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = output;
        startup.hStdError = output;
    }
    process = PROCESS_INFORMATION{};
    return CreateProcessA(nullptr, command.data(), nullptr, nullptr, output != nullptr, 0, nullptr,
                          nullptr, &startup, &process) != FALSE;
}
