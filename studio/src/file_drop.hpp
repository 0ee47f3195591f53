#pragma once

/// Files dropped on the window: what the preview and the welcome page both take.

#include <QList>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <vector>

class QDragEnterEvent;
class QDropEvent;

namespace morvane::studio {

using FilesHandler = std::function<void(const std::vector<std::filesystem::path>&)>;

/// The local files among dropped or pasted URLs.
[[nodiscard]] std::vector<std::filesystem::path> localFiles(const QList<QUrl>& urls);
/// Lets a drag of local files in.
void acceptFileDrag(QDragEnterEvent* event);
/// Hands the local files of a drop to `handler`.
void takeFileDrop(QDropEvent* event, const FilesHandler& handler);

}  // namespace morvane::studio
