#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace morvane::testing {

/// Sets environment variables for one scope and puts back what was there.
///
///     ScopedEnvironment env;
///     env.set("XDG_CONFIG_HOME", dir.path().c_str());   // nullptr unsets
class ScopedEnvironment {
  public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            if (it->second) {
                setenv(it->first.c_str(), it->second->c_str(), 1);
            } else {
                unsetenv(it->first.c_str());
            }
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void set(const std::string& name, const char* value) {
        const char* old = std::getenv(name.c_str());
        saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        if (value) {
            setenv(name.c_str(), value, 1);
        } else {
            unsetenv(name.c_str());
        }
    }

  private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace morvane::testing
