// Process, file and disk services on Linux, with plain POSIX calls.
#pragma once

#include "platform/system.h"

class PosixSystemServices : public SystemServices {
  public:
    // Nothing to prepare at this level: the media framework and the toolkit have their
    // own services. Always succeeds.
    HRESULT initialize() override;
    void uninitialize() override;

    // strerror's text for a failure code that carries an errno; none for others.
    bool system_text(HRESULT hr, std::string& out) override;
    std::vector<std::string> find_files(const std::string& folder,
                                        const std::string& extension) override;
    bool path_exists(const std::string& path) override;
    // statvfs: blocks available to unprivileged users, all blocks, all free blocks.
    bool disk_free_space(const std::string& path, std::uint64_t& available, std::uint64_t& total,
                         std::uint64_t& total_free) override;
    bool delete_file(const std::string& path) override;
    // /proc/self/exe.
    std::string module_file_name() override;
    // Starts xdg-open on `path` without waiting for it. 2 when the file does not exist,
    // 31 when no opener can be started, 42 once it has been started.
    int shell_open(const std::string& path) override;
    // XDG_VIDEOS_DIR of user-dirs.dirs when that folder exists, else ~/Videos when it
    // exists, else the home folder.
    std::string default_output_directory() override;
    char folder_separator() override;
};
