#include "morvane/engine/support/files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

#include "morvane/engine/engine_error.hpp"

namespace morvane {
namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path) {
    throw std::filesystem::filesystem_error(what, path, std::error_code(errno, std::generic_category()));
}

std::filesystem::path xdgDirectory(const char* variable, const char* fallback, const char* name) {
    if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/') {
        return std::filesystem::path(value) / name;
    }
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home != nullptr && home[0] != '\0' ? home : "/tmp") / fallback / name;
}

bool keptInURLPath(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) != std::string_view::npos;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string fileURL(const std::filesystem::path& absolute) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (const unsigned char c : absolute.generic_string()) {
        if (keptInURLPath(c)) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += kHex[c >> 4];
            url += kHex[c & 0x0F];
        }
    }
    return url;
}

std::optional<std::filesystem::path> pathFromFileURL(std::string_view url) {
    if (url.starts_with('/')) return std::filesystem::path(url);
    if (!url.starts_with("file://")) return std::nullopt;
    url.remove_prefix(7);
    if (url.starts_with("localhost/")) url.remove_prefix(9);
    if (!url.starts_with('/')) return std::nullopt;
    std::string path;
    for (std::size_t i = 0; i < url.size(); ++i) {
        if (url[i] != '%') {
            path += url[i];
            continue;
        }
        if (i + 2 >= url.size()) return std::nullopt;
        const int high = hexValue(url[i + 1]);
        const int low = hexValue(url[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        path += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return std::filesystem::path(path);
}

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents) {
    const auto folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    std::filesystem::create_directories(folder);
    std::random_device entropy;
    const auto temporary = folder / ("morvane-" + std::to_string(entropy()) + ".tmp");
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) fail("cannot create a temporary file", temporary);
    std::size_t written = 0;
    while (written < contents.size()) {
        const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            const int error = errno;
            ::close(fd);
            ::unlink(temporary.c_str());
            errno = error;
            fail("cannot write", temporary);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        fail("cannot flush", temporary);
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        fail("cannot replace", path);
    }
    // Make the rename itself durable.
    if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

std::filesystem::path partialFileBeside(const std::filesystem::path& path) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::random_device entropy;
    std::string name = "morvane-";
    for (std::uint32_t bits = entropy(), i = 0; i < 8; ++i, bits >>= 4)
        name += kHex[bits & 0xF];
    name += ".partial" + path.extension().string();
    return path.has_parent_path() ? path.parent_path() / name : std::filesystem::path(name);
}

std::string readWholeFile(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) throw engine::EngineError::missingFile(path.string());
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot open", path);
    std::ostringstream contents;
    contents << in.rdbuf();
    if (in.bad()) fail("cannot read", path);
    return std::move(contents).str();
}

std::filesystem::path configDirectory() {
    return xdgDirectory("XDG_CONFIG_HOME", ".config", "morvane");
}
std::filesystem::path dataDirectory() {
    return xdgDirectory("XDG_DATA_HOME", ".local/share", "Morvane");
}
std::filesystem::path cacheDirectory() {
    return xdgDirectory("XDG_CACHE_HOME", ".cache", "Morvane");
}

std::filesystem::path documentsDirectory() {
    if (const char* value = std::getenv("XDG_DOCUMENTS_DIR"); value != nullptr && value[0] == '/') {
        return value;
    }
    const char* homeVariable = std::getenv("HOME");
    const std::string home = homeVariable != nullptr && homeVariable[0] != '\0' ? homeVariable : "/tmp";
    // user-dirs.dirs holds shell assignments such as XDG_DOCUMENTS_DIR="$HOME/Dokumente".
    std::ifstream dirs(configDirectory().parent_path() / "user-dirs.dirs");
    std::string line;
    static constexpr std::string_view kPrefix = "XDG_DOCUMENTS_DIR=\"";
    while (std::getline(dirs, line)) {
        if (!line.starts_with(kPrefix) || !line.ends_with('"')) continue;
        std::string value = line.substr(kPrefix.size(), line.size() - kPrefix.size() - 1);
        if (value.starts_with("$HOME")) value = home + value.substr(5);
        if (value.starts_with('/')) return value;
    }
    return std::filesystem::path(home) / "Documents";
}

}  // namespace morvane
