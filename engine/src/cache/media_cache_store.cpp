#include "morvane/engine/cache/media_cache_store.hpp"

#include <fmt/core.h>
#include <nettle/sha2.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <vector>

#include "morvane/engine/support/files.hpp"

namespace morvane::engine::MediaCacheStore {

namespace fs = std::filesystem;

namespace {

std::string sha256Hex(std::string_view text) {
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
    sha256_digest(&context, digest.size(), digest.data());
    std::string hex;
    hex.reserve(digest.size() * 2);
    for (const std::uint8_t byte : digest)
        hex += fmt::format("{:02x}", byte);
    return hex;
}

// Bytes the file takes on disk: what a sparse or compressed file really costs, not its length.
std::uintmax_t allocatedBytes(const fs::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return 0;
    return static_cast<std::uintmax_t>(info.st_blocks) * 512u;
}

struct CacheFolder {
    fs::path path;
    fs::file_time_type used;
    std::uintmax_t bytes = 0;
};

}  // namespace

fs::path root() {
    return cacheDirectory() / "MediaCache";
}

std::optional<std::string> fingerprint(const fs::path& file) {
    std::error_code error;
    const fs::path absolute = fs::absolute(file, error);
    if (error) return std::nullopt;
    const fs::path standardized = absolute.lexically_normal();
    struct stat info {};
    if (::stat(standardized.c_str(), &info) != 0) return std::nullopt;
    return sha256Hex(fmt::format("{}|{}|{}", standardized.string(), static_cast<long long>(info.st_size),
                                 static_cast<long long>(info.st_mtim.tv_sec)));
}

fs::path directory(const std::string& fingerprint) {
    const fs::path folder = root() / fingerprint;
    fs::create_directories(folder);
    return folder;
}

void markUsed(const std::string& fingerprint) noexcept {
    std::error_code ignored;
    fs::last_write_time(root() / fingerprint, fs::file_time_type::clock::now(), ignored);
}

std::size_t evictIfNeeded(std::uintmax_t budgetBytes) noexcept {
    try {
        std::vector<CacheFolder> folders;
        std::uintmax_t total = 0;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root(), error)) {
            std::error_code entryError;
            if (!entry.is_directory(entryError) || entry.is_symlink(entryError)) continue;
            CacheFolder folder{.path = entry.path(), .used = entry.last_write_time(entryError)};
            if (entryError) continue;
            folder.bytes = allocatedBytes(folder.path);
            for (fs::recursive_directory_iterator it(folder.path, error), end; !error && it != end;
                 it.increment(error))
                folder.bytes += allocatedBytes(it->path());
            total += folder.bytes;
            folders.push_back(std::move(folder));
        }
        std::sort(folders.begin(), folders.end(),
                  [](const CacheFolder& a, const CacheFolder& b) { return a.used < b.used; });
        std::size_t removed = 0;
        for (const auto& folder : folders) {
            if (total <= budgetBytes) break;
            std::error_code removeError;
            fs::remove_all(folder.path, removeError);
            if (removeError) continue;  // in use or not ours to remove: the next one goes instead
            total -= folder.bytes;
            ++removed;
        }
        return removed;
    } catch (...) {
        // Out of memory while listing: eviction waits for the next launch.
        return 0;
    }
}

}  // namespace morvane::engine::MediaCacheStore
