// A fresh folder under the system's temporary directory for one test, removed with all
// its content afterwards.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

class TempDir {
  public:
    TempDir() {
        // create_directory fails when the name is taken, so a name that another test (or
        // process) made first is never shared; a new one is drawn instead.
        std::random_device seed;
        std::mt19937_64 draw(seed());
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            const auto candidate = base / ("kc_test_" + std::to_string(draw() % 1000000000u));
            std::error_code error;
            if (std::filesystem::create_directory(candidate, error)) {
                path_ = candidate.string();
            }
        }
        if (path_.empty()) {
            ADD_FAILURE() << "no temporary folder";
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void touch(const std::string& name, const std::string& content = "") const {
        std::ofstream(file(name), std::ios::binary) << content;
    }

  private:
    std::string path_;
};
