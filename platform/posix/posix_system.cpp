#include "platform/posix/posix_system.h"

#include <dirent.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

extern char** environ;

namespace {
// Results in the manner of a shell open: 32 or less is failure.
constexpr int open_file_not_found = 2;
constexpr int open_no_handler = 31;
constexpr int open_started = 42;

bool ends_with_ignoring_case(const std::string& name, const std::string& ending) {
    if (name.size() < ending.size()) {
        return false;
    }
    const std::size_t offset = name.size() - ending.size();
    for (std::size_t i = 0; i < ending.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(name[offset + i])) !=
            std::tolower(static_cast<unsigned char>(ending[i]))) {
            return false;
        }
    }
    return true;
}

std::string home_directory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') {
        return home;
    }
    if (const passwd* pw = getpwuid(getuid()); pw != nullptr && pw->pw_dir != nullptr) {
        return pw->pw_dir;
    }
    return "/";
}

bool is_directory(const std::string& path) {
    struct stat st {};
    return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// XDG_VIDEOS_DIR="$HOME/Videos" from user-dirs.dirs; empty when not configured.
std::string xdg_videos_dir(const std::string& home) {
    std::string config;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && xdg[0] == '/') {
        config = xdg;
    } else {
        config = home + "/.config";
    }
    std::ifstream in(config + "/user-dirs.dirs");
    std::string line;
    std::string found;
    while (std::getline(in, line)) {
        const std::string key = "XDG_VIDEOS_DIR=";
        std::size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size(), key) != 0) {
            continue;
        }
        std::string value = line.substr(start + key.size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        // Only "$HOME/..." and absolute paths are valid in that file.
        if (value.rfind("$HOME", 0) == 0) {
            value = home + value.substr(5);
        } else if (value.empty() || value[0] != '/') {
            continue;
        }
        // A videos folder set to the home folder itself means "none" for user-dirs.
        while (value.size() > 1 && value.back() == '/') {
            value.pop_back();
        }
        found = value == home ? std::string() : value;  // the last assignment wins
    }
    return found;
}

// Whether `program` is an executable file in one of the folders of $PATH.
bool on_path(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string folders = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= folders.size()) {
        std::size_t colon = folders.find(':', start);
        if (colon == std::string::npos) {
            colon = folders.size();
        }
        const std::string folder = folders.substr(start, colon - start);
        const std::string candidate = (folder.empty() ? "." : folder) + "/" + program;
        if (access(candidate.c_str(), X_OK) == 0) {
            return true;
        }
        start = colon + 1;
    }
    return false;
}
}  // namespace

HRESULT PosixSystemServices::initialize() {
    return S_OK;
}

void PosixSystemServices::uninitialize() {}

bool PosixSystemServices::system_text(HRESULT hr, std::string& out) {
    const auto code = static_cast<std::uint32_t>(hr);
    if ((code & 0xFFFF0000u) != 0x80070000u || (code & 0xFFFFu) == 0) {
        return false;
    }
    char buffer[256];
    // The GNU strerror_r: the text may come back in `buffer` or from a static table.
    const char* text = strerror_r(static_cast<int>(code & 0xFFFFu), buffer, sizeof buffer);
    if (text == nullptr || text[0] == '\0') {
        return false;
    }
    out = text;
    return true;
}

std::vector<std::string> PosixSystemServices::find_files(const std::string& folder,
                                                         const std::string& extension) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.empty() ? "." : folder.c_str());
    if (dir == nullptr) {
        return names;
    }
    // The ending matches without regard to case, as a wildcard match on a
    // case-preserving file system does: "CLIP 004.AVI" counts like "clip 004.avi".
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (ends_with_ignoring_case(name, extension)) {
            names.push_back(name);
        }
    }
    closedir(dir);
    return names;
}

bool PosixSystemServices::path_exists(const std::string& path) {
    struct stat st {};
    return !path.empty() && stat(path.c_str(), &st) == 0;
}

bool PosixSystemServices::disk_free_space(const std::string& path, std::uint64_t& available,
                                          std::uint64_t& total, std::uint64_t& total_free) {
    struct statvfs fs {};
    if (path.empty() || statvfs(path.c_str(), &fs) != 0) {
        return false;
    }
    const std::uint64_t unit = fs.f_frsize != 0 ? fs.f_frsize : fs.f_bsize;
    available = static_cast<std::uint64_t>(fs.f_bavail) * unit;
    total = static_cast<std::uint64_t>(fs.f_blocks) * unit;
    total_free = static_cast<std::uint64_t>(fs.f_bfree) * unit;
    return true;
}

bool PosixSystemServices::delete_file(const std::string& path) {
    return !path.empty() && unlink(path.c_str()) == 0;
}

std::string PosixSystemServices::module_file_name() {
    std::string buffer(4096, '\0');
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= buffer.size()) {
        return {};
    }
    buffer.resize(static_cast<std::size_t>(n));
    return buffer;
}

int PosixSystemServices::shell_open(const std::string& path) {
    if (!path_exists(path)) {
        return open_file_not_found;
    }
    if (!on_path("xdg-open")) {
        return open_no_handler;
    }
    // A short-lived shell puts the opener in the background and exits at once; it is
    // reaped here, and the opener, left to init, never becomes our zombie nor keeps the
    // user interface waiting.
    const char* argv[] = {"/bin/sh", "-c",         "xdg-open \"$1\" >/dev/null 2>&1 </dev/null &",
                          "sh",      path.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) !=
        0) {
        return open_no_handler;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? open_started : open_no_handler;
}

std::string PosixSystemServices::default_output_directory() {
    const std::string home = home_directory();
    if (const std::string videos = xdg_videos_dir(home); is_directory(videos)) {
        return videos;
    }
    if (is_directory(home + "/Videos")) {
        return home + "/Videos";
    }
    return home;
}

char PosixSystemServices::folder_separator() {
    return '/';
}
