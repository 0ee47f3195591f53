#include "morvane/testing/temp_dir.hpp"

#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

namespace morvane::testing {

TempDir::TempDir() {
    std::random_device entropy;
    const auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = base / ("morvane-test-" + std::to_string(entropy()));
        if (std::filesystem::create_directory(candidate)) {
            path_ = std::move(candidate);
            return;
        }
    }
    throw std::runtime_error("could not create a temporary folder");
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path TempDir::write(std::string_view name, std::string_view contents) const {
    auto file = path_ / name;
    std::ofstream out(file, std::ios::binary);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out) throw std::runtime_error("could not write " + file.string());
    return file;
}

std::filesystem::path sourceDir() {
    return MORVANE_SOURCE_DIR;
}
std::filesystem::path binaryDir() {
    return MORVANE_BINARY_DIR;
}

}  // namespace morvane::testing
