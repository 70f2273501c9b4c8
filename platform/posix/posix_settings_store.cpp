#include "platform/posix/posix_settings_store.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {
// The store's key paths are relative to the current user, as the registry's are under
// its per-user root; the file names the root so that it reads like an export.
const std::string user_root = "HKEY_CURRENT_USER\\";

std::string home_directory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') {
        return home;
    }
    if (const passwd* pw = getpwuid(getuid()); pw != nullptr && pw->pw_dir != nullptr) {
        return pw->pw_dir;
    }
    return "/";
}

// mkdir -p with private permissions for what it creates.
bool make_directories(const std::string& path) {
    if (path.empty()) {
        return true;
    }
    std::string partial;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t slash = path.find('/', start);
        if (slash == std::string::npos) {
            slash = path.size();
        }
        partial = path.substr(0, slash);
        if (!partial.empty() && mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
            return false;
        }
        start = slash + 1;
    }
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string folder_of(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : (slash == 0 ? "/" : file.substr(0, slash));
}
}  // namespace

PosixSettingsStore::PosixSettingsStore(std::string file) : file_(std::move(file)) {}

PosixSettingsStore::~PosixSettingsStore() {
    for (Handle* h : handles) {
        delete h;
    }
}

std::string PosixSettingsStore::default_file() {
    std::string config;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && xdg[0] == '/') {
        config = xdg;
    } else {
        config = home_directory() + "/.config";
    }
    return config + "/larkspur/kestrel_cap.reg";
}

void PosixSettingsStore::load() {
    if (loaded) {
        return;
    }
    loaded = true;
    // A file that is missing or cannot be read is a first run: every value absent.
    std::ifstream in(file_, std::ios::binary);
    if (!in) {
        return;
    }
    std::ostringstream text;
    text << in.rdbuf();
    document = parse_reg_text(text.str());
}

HRESULT PosixSettingsStore::create_key(const std::string& path, StoreKey* out) {
    if (out == nullptr || path.empty()) {
        return E_INVALIDARG;
    }
    load();
    if (document.find_key(user_root + path) == nullptr) {
        document.add_key(user_root + path);
        dirty = true;
    }
    auto* handle = new Handle{user_root + path};
    handles.insert(handle);
    *out = reinterpret_cast<StoreKey>(handle);
    return S_OK;
}

RegTextKey* PosixSettingsStore::key_of(StoreKey key) {
    auto* handle = reinterpret_cast<Handle*>(key);
    if (handles.count(handle) == 0) {
        return nullptr;
    }
    return document.find_key(handle->path);
}

HRESULT PosixSettingsStore::query_value(StoreKey key, const std::string& name, void* data,
                                        std::uint32_t* size) {
    RegTextKey* k = key_of(key);
    if (k == nullptr || size == nullptr) {
        return E_INVALIDARG;
    }
    const RegTextValue* value = find_value(*k, name);
    if (value == nullptr) {
        return STORE_E_NOT_FOUND;
    }
    if (value->bytes.size() > *size) {
        *size = static_cast<std::uint32_t>(value->bytes.size());
        return STORE_E_MORE_DATA;
    }
    if (!value->bytes.empty()) {
        std::memcpy(data, value->bytes.data(), value->bytes.size());
    }
    *size = static_cast<std::uint32_t>(value->bytes.size());
    return S_OK;
}

HRESULT PosixSettingsStore::set_value(StoreKey key, const std::string& name, RegType type,
                                      const void* data, std::uint32_t size) {
    RegTextKey* k = key_of(key);
    if (k == nullptr || (data == nullptr && size != 0)) {
        return E_INVALIDARG;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    RegTextValue value{name, type, std::vector<std::uint8_t>(bytes, bytes + size)};
    if (RegTextValue* existing = find_value(*k, name)) {
        *existing = std::move(value);
    } else {
        k->values.push_back(std::move(value));
    }
    dirty = true;
    return S_OK;
}

void PosixSettingsStore::close_key(StoreKey key) {
    auto* handle = reinterpret_cast<Handle*>(key);
    if (handles.erase(handle) == 0) {
        return;
    }
    delete handle;
    // The last binding has written its value: this is the exit, save once.
    if (handles.empty() && dirty) {
        save();
    }
}

bool PosixSettingsStore::write_all(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (n == 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool PosixSettingsStore::save() {
    const std::string folder = folder_of(file_);
    if (!make_directories(folder)) {
        return false;
    }
    std::string temp = file_ + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) {
        return false;
    }
    // Flushed to the disk before the rename, so that the new name never points at a
    // file whose data is not there yet.
    const bool written = write_all(fd, format_reg_text(document)) && fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || std::rename(temp.c_str(), file_.c_str()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    // The rename itself reaches the disk with the folder's entry.
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        (void)fsync(dir);
        ::close(dir);
    }
    dirty = false;
    return true;
}
