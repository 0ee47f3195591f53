#include "morvane/engine/support/uuid.hpp"

#include <cstdint>
#include <mutex>
#include <random>

namespace morvane {

std::string makeUUID() {
    static std::mutex mutex;
    static std::mt19937_64 generator{[] {
        std::random_device entropy;
        std::seed_seq seed{entropy(), entropy(), entropy(), entropy(),
                           entropy(), entropy(), entropy(), entropy()};
        return std::mt19937_64(seed);
    }()};
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    {
        const std::lock_guard lock(mutex);
        high = generator();
        low = generator();
    }
    high = (high & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;    // RFC 4122 variant
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (int i = 0; i < 32; ++i) {
        const std::uint64_t word = i < 16 ? high : low;
        const int shift = 60 - 4 * (i % 16);
        if (i == 8 || i == 12 || i == 16 || i == 20) text += '-';
        text += kHex[(word >> shift) & 0xF];
    }
    return text;
}

bool isUUID(std::string_view text) noexcept {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return false;
        } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) {
            return false;
        }
    }
    return true;
}

}  // namespace morvane
