#pragma once

/// The preview: the program picture, fitted to the panel on black, with its transport under it (play and
/// pause, the time, a scrubber, the volume). Files dropped on it are handed to `onDropFiles`.

#include <QWidget>

#include <filesystem>
#include <functional>
#include <vector>
#include "file_drop.hpp"

class QLabel;
class QPushButton;
class QSlider;

namespace morvane::studio {

class PreviewPlayer;

/// Paints the player's picture and takes dropped files.
class PreviewCanvas final : public QWidget {
  public:
    PreviewCanvas(PreviewPlayer& player, QWidget* parent);
    FilesHandler onDropFiles;
    /// The text shown when there is no picture.
    void setPlaceholder(const QString& text);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    PreviewPlayer& player_;
    QString placeholder_;
};

class PreviewMonitor final : public QWidget {
  public:
    PreviewMonitor(PreviewPlayer& player, QWidget* parent);

    /// Redraws the picture and moves the transport to the player's position.
    void refresh();
    [[nodiscard]] PreviewCanvas* canvas() const noexcept { return canvas_; }
    [[nodiscard]] QPushButton* playButton() const noexcept { return play_; }
    [[nodiscard]] QSlider* scrubber() const noexcept { return scrubber_; }
    [[nodiscard]] QSlider* volumeSlider() const noexcept { return volume_; }
    [[nodiscard]] QLabel* timeLabel() const noexcept { return time_; }
    /// Called with 0 to 1 when the user moves the volume.
    std::function<void(double)> onVolumeChanged;

  private:
    PreviewPlayer& player_;
    PreviewCanvas* canvas_;
    QPushButton* play_;
    QLabel* time_;
    QSlider* scrubber_;
    QSlider* volume_;
    bool scrubbing_ = false;
};

/// "1:02.4": program seconds as the transport shows them, to the tenth, never with a locale's comma.
[[nodiscard]] QString formatTransportTime(double seconds);

}  // namespace morvane::studio
