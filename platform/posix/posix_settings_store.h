// The per-user settings store on Linux: one text file in the XDG config directory that
// stands in for the registry of the current user (see reg_text.h for its notation).
//
// The file is read once, at the first create_key, and written once, when the last open
// key is closed after a change, so the settings are read at start and written at exit.
// The write is atomic (a temporary file in the same folder, flushed to disk, renamed
// over the old one): a crash or a full disk during the write leaves the previous file.
// A damaged file never stops the program: what cannot be read is absent, as a missing
// registry value is. Single-threaded, as the settings binding is.
#pragma once

#include <set>
#include <string>

#include "platform/posix/reg_text.h"
#include "platform/settings_store.h"

class PosixSettingsStore : public SettingsStore {
  public:
    // `file`: the settings file; its folder is created when the file is written.
    explicit PosixSettingsStore(std::string file);
    PosixSettingsStore(const PosixSettingsStore&) = delete;
    PosixSettingsStore& operator=(const PosixSettingsStore&) = delete;
    // Saves nothing: the last close_key is the moment of saving, and keys left open mean
    // the settings were never written back.
    ~PosixSettingsStore() override;

    // $XDG_CONFIG_HOME (when absolute), else ~/.config, + "/larkspur/kestrel_cap.reg".
    static std::string default_file();

    HRESULT create_key(const std::string& path, StoreKey* out) override;
    HRESULT query_value(StoreKey key, const std::string& name, void* data,
                        std::uint32_t* size) override;
    HRESULT set_value(StoreKey key, const std::string& name, RegType type, const void* data,
                      std::uint32_t size) override;
    void close_key(StoreKey key) override;

    const std::string& file() const { return file_; }
    // Writes the document now, atomically; false (old file untouched) on any failure.
    bool save();

  protected:
    // Writes all of `data` to `fd`; false on a failed or short write. A seam for tests
    // that simulate a disk filling up in the middle of the write.
    virtual bool write_all(int fd, const std::string& data);

  private:
    struct Handle {
        std::string path;
    };
    void load();
    RegTextKey* key_of(StoreKey key);

    std::string file_;
    bool loaded = false;
    bool dirty = false;
    RegTextDocument document;
    std::set<Handle*> handles;
};
