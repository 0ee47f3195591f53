#include "file_drop.hpp"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>

namespace morvane::studio {

std::vector<std::filesystem::path> localFiles(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> files;
    for (const QUrl& url : urls) {
        if (url.isLocalFile()) files.emplace_back(url.toLocalFile().toStdString());
    }
    return files;
}

void acceptFileDrag(QDragEnterEvent* event) {
    if (!localFiles(event->mimeData()->urls()).empty()) event->acceptProposedAction();
}

void takeFileDrop(QDropEvent* event, const FilesHandler& handler) {
    const auto files = localFiles(event->mimeData()->urls());
    if (files.empty()) return;
    event->acceptProposedAction();
    if (handler) handler(files);
}

}  // namespace morvane::studio
