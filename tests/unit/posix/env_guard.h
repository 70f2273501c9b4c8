// Sets an environment variable for one test and puts the old value back afterwards.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

class EnvGuard {
  public:
    EnvGuard(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = getenv(name)) {
            old_ = old;
        }
        set(value);
    }
    ~EnvGuard() { set(old_); }
    EnvGuard(const EnvGuard&) = delete;
    EnvGuard& operator=(const EnvGuard&) = delete;

  private:
    void set(const std::optional<std::string>& value) {
        if (value) {
            setenv(name_, value->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }
    const char* name_;
    std::optional<std::string> old_;
};
