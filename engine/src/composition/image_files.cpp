#include "morvane/engine/composition/composition_builder.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

// Kept apart from the builder so that code which only asks "is this a still?" does not link FFmpeg.
namespace morvane::engine::CompositionBuilder {

bool isImageFile(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const std::set<std::string> images{".png", ".jpg",  ".jpeg", ".heic", ".heif",
                                              ".tif", ".tiff", ".bmp",  ".webp", ".gif"};
    return images.contains(extension);
}

}  // namespace morvane::engine::CompositionBuilder
