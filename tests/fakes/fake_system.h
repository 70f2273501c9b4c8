// Scripted process, file and disk services for unit tests.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/system.h"

class FakeSystem : public SystemServices {
  public:
    HRESULT initialize_result = S_OK;
    std::map<HRESULT, std::string> texts;
    std::map<std::string, std::vector<std::string>> folders;
    std::set<std::string> existing_paths;
    bool disk_ok = true;
    std::uint64_t available = 0, total = 0, total_free = 0;
    std::string module_path = "/opt/kestrel/bin/kestrel-capture";
    int shell_result = 42;
    char separator = '/';
    std::string videos = "/home/user/Videos";
    std::vector<std::string> calls;

    HRESULT initialize() override {
        calls.push_back("initialize");
        return initialize_result;
    }
    void uninitialize() override { calls.push_back("uninitialize"); }
    bool system_text(HRESULT hr, std::string& out) override {
        auto it = texts.find(hr);
        if (it == texts.end()) {
            return false;
        }
        out = it->second;
        return true;
    }
    std::vector<std::string> find_files(const std::string& folder, const std::string&) override {
        auto it = folders.find(folder);
        return it == folders.end() ? std::vector<std::string>{} : it->second;
    }
    bool path_exists(const std::string& path) override { return existing_paths.count(path) != 0; }
    bool disk_free_space(const std::string&, std::uint64_t& a, std::uint64_t& t,
                         std::uint64_t& f) override {
        if (!disk_ok) {
            return false;
        }
        a = available;
        t = total;
        f = total_free;
        return true;
    }
    bool delete_file(const std::string& path) override {
        calls.push_back("delete_file(" + path + ")");
        return existing_paths.erase(path) != 0;
    }
    std::string module_file_name() override { return module_path; }
    int shell_open(const std::string& path) override {
        calls.push_back("shell_open(" + path + ")");
        return shell_result;
    }
    std::string default_output_directory() override { return videos; }
    char folder_separator() override { return separator; }
};
