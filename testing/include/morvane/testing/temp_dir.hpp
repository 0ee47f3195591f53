#pragma once

#include <filesystem>
#include <string_view>

namespace morvane::testing {

/// A fresh folder under the system's temporary directory, removed with everything in it on destruction.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    /// Writes `contents` to `name` inside the folder and returns its path.
    std::filesystem::path write(std::string_view name, std::string_view contents) const;

  private:
    std::filesystem::path path_;
};

/// The project's source tree and build tree, for fixtures and built programs.
std::filesystem::path sourceDir();
std::filesystem::path binaryDir();

}  // namespace morvane::testing
