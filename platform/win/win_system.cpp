#include "platform/win/win_system.h"

namespace {
// A shell folder's path, or empty when the system has none.
std::string shell_folder(int csidl) {
    char path[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathA(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, path))) {
        return {};
    }
    return path;
}
}  // namespace

HRESULT WinSystemServices::initialize() {
    InitCommonControls();
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    // Every successful call, S_FALSE (already initialised) included, needs its own
    // CoUninitialize.
    com_initialized = SUCCEEDED(hr);
    return hr;
}

void WinSystemServices::uninitialize() {
    if (com_initialized) {
        com_initialized = false;
        CoUninitialize();
    }
}

bool WinSystemServices::system_text(HRESULT hr, std::string& out) {
    char* buffer = nullptr;
    // Inserts such as %1 are left as they are: there are no arguments to fill them with,
    // and without this flag the call would read arguments that were never passed.
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(hr), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
        reinterpret_cast<char*>(&buffer), 0, nullptr);
    if (length == 0 || buffer == nullptr) {
        return false;
    }
    out.assign(buffer, length);
    LocalFree(buffer);
    return true;
}

std::vector<std::string> WinSystemServices::find_files(const std::string& folder,
                                                       const std::string& extension) {
    std::vector<std::string> names;
    const std::string pattern = folder + "\\*" + extension;
    WIN32_FIND_DATAA found{};
    HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        names.emplace_back(found.cFileName);
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return names;
}

bool WinSystemServices::path_exists(const std::string& path) {
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool WinSystemServices::disk_free_space(const std::string& path, std::uint64_t& available,
                                        std::uint64_t& total, std::uint64_t& total_free) {
    ULARGE_INTEGER caller_free{}, all{}, all_free{};
    if (!GetDiskFreeSpaceExA(path.c_str(), &caller_free, &all, &all_free)) {
        return false;
    }
    available = caller_free.QuadPart;
    total = all.QuadPart;
    total_free = all_free.QuadPart;
    return true;
}

bool WinSystemServices::delete_file(const std::string& path) {
    return DeleteFileA(path.c_str()) != 0;
}

std::string WinSystemServices::module_file_name() {
    char path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    // A path cut short by the buffer fills it exactly; it names no file, so none is given.
    if (length == 0 || length >= MAX_PATH) {
        return {};
    }
    return std::string(path, length);
}

int WinSystemServices::shell_open(const std::string& path) {
    const HINSTANCE result =
        ShellExecuteA(nullptr, "open", path.c_str(), nullptr, nullptr, SW_HIDE);
    // The result is a number dressed as a handle, for compatibility with 16-bit Windows.
    return static_cast<int>(reinterpret_cast<INT_PTR>(result));
}

std::string WinSystemServices::default_output_directory() {
    if (std::string videos = shell_folder(CSIDL_MYVIDEO | CSIDL_FLAG_CREATE); !videos.empty()) {
        return videos;
    }
    return shell_folder(CSIDL_PROFILE);
}

char WinSystemServices::folder_separator() {
    return '\\';
}
