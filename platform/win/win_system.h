// Process, file and disk services on Windows, each over the Win32 call of the same name.
// Paths and texts are narrow strings in the ANSI code page, as the A calls take them.
#pragma once

#include "platform/win/win32.h"

class WinSystemServices : public SystemServices {
  public:
    // The common controls, then COM as a single-threaded apartment on this thread;
    // CoInitializeEx's result.
    HRESULT initialize() override;
    // Releases COM when initialize had it.
    void uninitialize() override;

    // FormatMessageA's system text for the code, line ends included.
    bool system_text(HRESULT hr, std::string& out) override;
    // FindFirstFileA/FindNextFileA on folder + "\*" + extension: the system's own wildcard
    // match, without regard to case; folders that match are listed too.
    std::vector<std::string> find_files(const std::string& folder,
                                        const std::string& extension) override;
    // GetFileAttributesA.
    bool path_exists(const std::string& path) override;
    // GetDiskFreeSpaceExA.
    bool disk_free_space(const std::string& path, std::uint64_t& available, std::uint64_t& total,
                         std::uint64_t& total_free) override;
    // DeleteFileA.
    bool delete_file(const std::string& path) override;
    // GetModuleFileNameA of the program, in a buffer of MAX_PATH.
    std::string module_file_name() override;
    // ShellExecuteA with the "open" verb, the window hidden, as the manual is opened: the
    // shell's result, which is 32 or less on failure (2: no such file, 31: nothing is
    // registered to open it).
    int shell_open(const std::string& path) override;
    // The user's Videos folder (made when it does not exist yet), else the user's own.
    std::string default_output_directory() override;
    char folder_separator() override;

  private:
    bool com_initialized = false;
};
