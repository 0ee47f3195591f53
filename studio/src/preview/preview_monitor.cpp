#include "preview/preview_monitor.hpp"

#include <fmt/core.h>

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QVBoxLayout>
#include <cmath>

#include "file_drop.hpp"
#include "preview/preview_player.hpp"

namespace morvane::studio {

QString formatTransportTime(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) seconds = 0;
    const auto tenths = static_cast<long long>(std::floor(seconds * 10.0 + 1e-6));
    const long long minutes = tenths / 600;
    const long long rest = tenths % 600;
    const std::string text =
        minutes >= 60 ? fmt::format("{}:{:02}:{:02}.{}", minutes / 60, minutes % 60, rest / 10, rest % 10)
                      : fmt::format("{}:{:02}.{}", minutes, rest / 10, rest % 10);
    return QString::fromStdString(text);
}

PreviewCanvas::PreviewCanvas(PreviewPlayer& player, QWidget* parent) : QWidget(parent), player_(player) {
    setAcceptDrops(true);
    setMinimumSize(320, 180);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void PreviewCanvas::setPlaceholder(const QString& text) {
    placeholder_ = text;
    update();
}

void PreviewCanvas::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    const QImage& image = player_.currentImage();
    if (image.isNull()) {
        painter.setPen(QColor(200, 200, 200));
        painter.drawText(rect().adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap, placeholder_);
        return;
    }
    // The worker already scaled the picture to fit; only a resize since then needs scaling here.
    QSize size = image.size();
    size.scale(this->size() * devicePixelRatioF(), Qt::KeepAspectRatio);
    size /= devicePixelRatioF();
    const QRect target(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, target.size() != image.size());
    painter.drawImage(target, image);
}

void PreviewCanvas::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    player_.setDisplaySize(size() * devicePixelRatioF());
}

void PreviewCanvas::dragEnterEvent(QDragEnterEvent* event) {
    acceptFileDrag(event);
}

void PreviewCanvas::dropEvent(QDropEvent* event) {
    takeFileDrop(event, onDropFiles);
}

PreviewMonitor::PreviewMonitor(PreviewPlayer& player, QWidget* parent)
    : QWidget(parent),
      player_(player),
      canvas_(new PreviewCanvas(player, this)),
      play_(new QPushButton(this)),
      time_(new QLabel(this)),
      scrubber_(new QSlider(Qt::Horizontal, this)),
      volume_(new QSlider(Qt::Horizontal, this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(canvas_, 1);

    auto* transport = new QHBoxLayout();
    transport->setContentsMargins(6, 0, 6, 4);
    play_->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    play_->setToolTip(QStringLiteral("Play or pause (Space); J, K, L shuttle; ← → step a frame"));
    play_->setFocusPolicy(Qt::NoFocus);
    time_->setMinimumWidth(130);
    scrubber_->setRange(0, 0);
    scrubber_->setFocusPolicy(Qt::NoFocus);
    volume_->setRange(0, 100);
    volume_->setMaximumWidth(90);
    volume_->setToolTip(QStringLiteral("Preview volume"));
    volume_->setFocusPolicy(Qt::NoFocus);
    transport->addWidget(play_);
    transport->addWidget(time_);
    transport->addWidget(scrubber_, 1);
    transport->addWidget(new QLabel(QStringLiteral("Vol"), this));
    transport->addWidget(volume_);
    layout->addLayout(transport);

    QObject::connect(play_, &QPushButton::clicked, [this] { player_.togglePlay(); });
    QObject::connect(scrubber_, &QSlider::sliderPressed, [this] { scrubbing_ = true; });
    QObject::connect(scrubber_, &QSlider::sliderReleased, [this] { scrubbing_ = false; });
    QObject::connect(scrubber_, &QSlider::valueChanged, [this](int value) {
        if (scrubbing_ || scrubber_->isSliderDown()) player_.seek(value / 1000.0);
    });
    QObject::connect(volume_, &QSlider::valueChanged, [this](int value) {
        player_.setVolume(value / 100.0);
        if (onVolumeChanged) onVolumeChanged(value / 100.0);
    });
    refresh();
}

void PreviewMonitor::refresh() {
    canvas_->update();
    play_->setIcon(style()->standardIcon(player_.isPlaying() ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    const double position = player_.position();
    time_->setText(formatTransportTime(position) + QStringLiteral(" / ") +
                   formatTransportTime(player_.duration()));
    if (!scrubber_->isSliderDown()) {
        const QSignalBlocker block(scrubber_);
        scrubber_->setRange(0, static_cast<int>(std::lround(player_.duration() * 1000.0)));
        scrubber_->setValue(static_cast<int>(std::lround(position * 1000.0)));
    }
}

}  // namespace morvane::studio
