#include "morvane/app/support/launch_log.hpp"

#include <chrono>
#include <fstream>
#include <mutex>
#include <string>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/iso_date.hpp"

namespace morvane::app {

std::filesystem::path LaunchLog::path() {
    return dataDirectory() / "launch.log";
}

void LaunchLog::append(std::string_view line) noexcept {
    static std::mutex mutex;
    try {
        std::string text = formatISO8601(std::chrono::system_clock::now()) + " ";
        for (const char c : line)
            text += (c == '\n' || c == '\r') ? ' ' : c;
        text += '\n';
        const std::scoped_lock lock(mutex);
        const auto file = path();
        std::error_code error;
        std::filesystem::create_directories(file.parent_path(), error);
        std::ofstream out(file, std::ios::app | std::ios::binary);
        out << text;
    } catch (...) {
        // Nothing to report a failing report to.
    }
}

}  // namespace morvane::app
