// Process, file and disk services the logic calls. The POSIX implementation uses
// std::filesystem and statvfs; the tests use a fake with scripted answers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/result.h"

class SystemServices {
  public:
    virtual ~SystemServices() = default;

    // Prepares the platform for the user-interface thread (media framework, toolkit).
    virtual HRESULT initialize() = 0;
    virtual void uninitialize() = 0;

    // The system's own description of a failure code; false when it has none.
    virtual bool system_text(HRESULT hr, std::string& out) = 0;

    // Names (not paths) of the files in `folder` whose name ends in `extension`,
    // compared without regard to case, in listing order. A folder that cannot be
    // listed gives none.
    virtual std::vector<std::string> find_files(const std::string& folder,
                                                const std::string& extension) = 0;
    virtual bool path_exists(const std::string& path) = 0;
    // Bytes available to this user, total bytes and total free bytes of the disk
    // holding `path`; false when the disk cannot be asked.
    virtual bool disk_free_space(const std::string& path, std::uint64_t& available,
                                 std::uint64_t& total, std::uint64_t& total_free) = 0;
    virtual bool delete_file(const std::string& path) = 0;
    // Full path of the running program.
    virtual std::string module_file_name() = 0;
    // Opens a document with the desktop's handler; a result of 32 or less is failure.
    virtual int shell_open(const std::string& path) = 0;
    // Where captures go until the user picks a folder: the platform's usual place
    // for the user's videos.
    virtual std::string default_output_directory() = 0;
    // The character that joins folder and file names.
    virtual char folder_separator() = 0;
};
