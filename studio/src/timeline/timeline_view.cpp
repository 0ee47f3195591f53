#include "timeline/timeline_view.hpp"

#include <fmt/core.h>

#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "studio_preferences.hpp"

namespace morvane::studio {

namespace {

QColor clipColor(const std::string& trackID) {
    if (trackID == app::TimelineTrackIDs::source) return {70, 120, 190};
    if (trackID == app::TimelineTrackIDs::program) return {214, 150, 40};
    if (trackID == app::TimelineTrackIDs::overlay) return {120, 90, 180};
    if (trackID == app::TimelineTrackIDs::audio) return {60, 150, 110};
    return {170, 90, 120};
}

// A ruler step that leaves at least 70 pixels between labels.
double rulerStep(double pixelsPerSecond) {
    for (const double step : {0.5, 1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 1800.0}) {
        if (step * pixelsPerSecond >= 70.0) return step;
    }
    return 3600.0;
}

}  // namespace

TimelineView::TimelineView(Actions actions, QWidget* parent)
    : QAbstractScrollArea(parent), actions_(std::move(actions)) {
    setFocusPolicy(Qt::StrongFocus);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMinimumHeight(rulerHeight + 5 * trackHeight + 20);
    viewport()->setMouseTracking(true);
    QObject::connect(horizontalScrollBar(), &QScrollBar::valueChanged, viewport(),
                     qOverload<>(&QWidget::update));
}

void TimelineView::sync(const app::ProjectSession& session) {
    std::vector<std::pair<std::string, std::string>> tracks;
    std::vector<TimelineViewClip> clips;
    if (session.timeline) {
        for (const auto& track : session.timeline->tracks) {
            tracks.emplace_back(track.id, track.displayName());
            for (const auto& clip : track.clips) {
                const double start = clip.timelineStart.seconds();
                const double length = app::TimelinePlanBridge::programDuration(clip).seconds();
                std::vector<std::pair<double, double>> ranges;
                if (clip.assemblyRanges && !clip.assemblyRanges->empty()) {
                    for (const auto& range : *clip.assemblyRanges)
                        ranges.emplace_back(range.sourceIn.seconds(), range.sourceOut.seconds());
                } else {
                    ranges.emplace_back(clip.sourceIn.seconds(), clip.sourceOut.seconds());
                }
                clips.push_back({clip.id, track.id, clip.timelineBadgeLabel(), start, start + length,
                                 clip.isTextLike(), clip.sourceID, std::move(ranges)});
            }
        }
    }
    const double playhead =
        session.playheadCompositionSeconds.value_or(session.playheadSeconds.value_or(0.0));
    const double duration = session.timeline ? app::TimelinePlanBridge::timelineAxisDuration(session) : 0.0;
    const bool newWaveforms = syncWaveforms(session);
    const bool changed = tracks != tracks_ || clips != clips_ || session.selectedClipIDs != selected_ ||
                         playhead != playhead_ || duration != duration_ || newWaveforms;
    tracks_ = std::move(tracks);
    clips_ = std::move(clips);
    selected_ = session.selectedClipIDs;
    playhead_ = playhead;
    duration_ = duration;
    if (changed) {
        updateScrollBar();
        // Keep the playhead in sight while it moves past the right edge.
        const int x = xOf(playhead_);
        if (!scrubbing_ && !trimming_ && (x > viewport()->width() - 20 || x < headerWidth)) {
            horizontalScrollBar()->setValue(
                std::max(static_cast<int>(playhead_ * zoom_) - (viewport()->width() - headerWidth) / 4, 0));
        }
        viewport()->update();
    }
}

bool TimelineView::syncWaveforms(const app::ProjectSession& session) {
    std::map<std::string, const engine::WaveformEnvelope*> wanted;
    for (const auto& [sourceID, envelope] : session.auxiliaryWaveforms)
        wanted.emplace(sourceID, &envelope);
    if (session.waveformEnvelope) wanted[session.primarySourceID] = &*session.waveformEnvelope;
    bool changed =
        std::erase_if(waveforms_, [&](const auto& kept) { return !wanted.contains(kept.first); }) > 0;
    for (const auto& [sourceID, envelope] : wanted) {
        // Compared, not copied: an envelope is copied once when it arrives, not at every refresh.
        const auto kept = waveforms_.find(sourceID);
        if (kept != waveforms_.end() && kept->second == *envelope) continue;
        waveforms_[sourceID] = *envelope;
        changed = true;
    }
    return changed;
}

void TimelineView::paintWaveform(QPainter& painter, const TimelineViewClip& clip, const QRect& box) const {
    const auto found = waveforms_.find(clip.sourceID);
    if (found == waveforms_.end()) return;
    const engine::WaveformEnvelope& envelope = found->second;
    const std::size_t bins = std::min(envelope.mins.size(), envelope.maxs.size());
    const double programLength = clip.endSeconds - clip.startSeconds;
    double sourceLength = 0.0;
    for (const auto& [from, to] : clip.sourceRanges)
        sourceLength += std::max(to - from, 0.0);
    if (bins == 0 || !(envelope.durationSeconds > 0.0) || !(programLength > 0.0) || !(sourceLength > 0.0))
        return;
    // Source seconds per program second: a clip at another speed spreads or squeezes its sound.
    const double rate = sourceLength / programLength;
    const double binsPerSecond = static_cast<double>(bins) / envelope.durationSeconds;
    // Columns are asked for left to right, so the range a column falls in only moves forward.
    std::size_t range = 0;
    double rangeOffset = 0.0;  // played seconds before `range`
    const auto binAt = [&](int x) {
        const double played = std::clamp((secondsAt(x) - clip.startSeconds) * rate, 0.0, sourceLength);
        while (range + 1 < clip.sourceRanges.size() &&
               played >= rangeOffset + (clip.sourceRanges[range].second - clip.sourceRanges[range].first)) {
            rangeOffset += clip.sourceRanges[range].second - clip.sourceRanges[range].first;
            ++range;
        }
        const double source = clip.sourceRanges[range].first + (played - rangeOffset);
        return static_cast<std::ptrdiff_t>(std::floor(source * binsPerSecond));
    };
    const int middle = box.center().y();
    const double half = box.height() / 2.0 - 2.0;
    painter.setPen(QColor(255, 255, 255, 110));
    const int first = std::max(box.left(), headerWidth);
    const int last = std::min(box.right(), viewport()->width());
    for (int x = first; x < last; ++x) {
        const std::ptrdiff_t from = std::max<std::ptrdiff_t>(binAt(x), 0);
        const std::ptrdiff_t to =
            std::min<std::ptrdiff_t>(std::max(binAt(x + 1), from + 1), static_cast<std::ptrdiff_t>(bins));
        if (from >= to) continue;
        float low = 0.0f;
        float high = 0.0f;
        for (std::ptrdiff_t bin = from; bin < to; ++bin) {
            low = std::min(low, envelope.mins[static_cast<std::size_t>(bin)]);
            high = std::max(high, envelope.maxs[static_cast<std::size_t>(bin)]);
        }
        painter.drawLine(x, middle - static_cast<int>(std::lround(high * half)), x,
                         middle - static_cast<int>(std::lround(low * half)));
    }
}

void TimelineView::setZoom(double pixelsPerSecond) {
    zoom_ = std::clamp(pixelsPerSecond, StudioPreferences::minimumZoom, StudioPreferences::maximumZoom);
    updateScrollBar();
    viewport()->update();
}

void TimelineView::updateScrollBar() {
    const int content = static_cast<int>(std::ceil(duration_ * zoom_)) + 40;
    const int visible = std::max(viewport()->width() - headerWidth, 1);
    horizontalScrollBar()->setRange(0, std::max(content - visible, 0));
    horizontalScrollBar()->setPageStep(visible);
}

void TimelineView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    updateScrollBar();
}

int TimelineView::xOf(double seconds) const {
    return headerWidth + static_cast<int>(std::lround(seconds * zoom_)) - horizontalScrollBar()->value();
}

double TimelineView::secondsAt(int x) const {
    return std::max((x - headerWidth + horizontalScrollBar()->value()) / zoom_, 0.0);
}

int TimelineView::rowOf(const std::string& trackID) const {
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        if (tracks_[i].first == trackID) return static_cast<int>(i);
    }
    return -1;
}

QRect TimelineView::clipBox(const std::string& clipID) {
    const auto it = std::find_if(clips_.begin(), clips_.end(), [&](const auto& c) { return c.id == clipID; });
    if (it == clips_.end()) return {};
    if (xOf(it->startSeconds) < headerWidth || xOf(it->startSeconds) > viewport()->width()) {
        horizontalScrollBar()->setValue(std::max(static_cast<int>(it->startSeconds * zoom_) - 20, 0));
    }
    const int row = rowOf(it->trackID);
    const int left = xOf(it->startSeconds);
    const int right = xOf(it->endSeconds);
    return {left, rulerHeight + row * trackHeight + 3, std::max(right - left, 2), trackHeight - 6};
}

std::optional<app::TimelineClipHit> TimelineView::hitTest(QPoint point) const {
    if (point.x() < headerWidth || point.y() < rulerHeight) return std::nullopt;
    const int row = (point.y() - rulerHeight) / trackHeight;
    if (row < 0 || row >= static_cast<int>(tracks_.size())) return std::nullopt;
    const std::string& trackID = tracks_[static_cast<std::size_t>(row)].first;
    for (const auto& clip : clips_) {
        if (clip.trackID != trackID) continue;
        const int left = xOf(clip.startSeconds);
        const int right = xOf(clip.endSeconds);
        if (point.x() < left - edgeGrip / 2 || point.x() > right + edgeGrip / 2) continue;
        app::TimelineClipHit hit{clip.id, clip.trackID, std::nullopt};
        if (right - left > 3 * edgeGrip) {
            if (point.x() <= left + edgeGrip) hit.edge = app::TrimEdge::leading;
            if (point.x() >= right - edgeGrip) hit.edge = app::TrimEdge::trailing;
        }
        return hit;
    }
    return std::nullopt;
}

void TimelineView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(viewport());
    const QPalette& pal = palette();
    const int width = viewport()->width();
    painter.fillRect(viewport()->rect(), pal.base());

    // Ruler.
    painter.fillRect(QRect(0, 0, width, rulerHeight), pal.window());
    painter.setPen(pal.color(QPalette::Mid));
    painter.drawLine(0, rulerHeight - 1, width, rulerHeight - 1);
    const double step = rulerStep(zoom_);
    const double first = std::floor(secondsAt(headerWidth) / step) * step;
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    painter.setFont(small);
    for (double t = first; xOf(t) < width; t += step) {
        const int x = xOf(t);
        if (x < headerWidth) continue;
        painter.setPen(pal.color(QPalette::Mid));
        painter.drawLine(x, rulerHeight - 7, x, rulerHeight - 1);
        painter.setPen(pal.color(QPalette::WindowText));
        const auto whole = static_cast<long long>(std::lround(t * 10));
        const std::string label =
            whole % 10 == 0 ? fmt::format("{}:{:02}", whole / 600, (whole / 10) % 60)
                            : fmt::format("{}:{:02}.{}", whole / 600, (whole / 10) % 60, whole % 10);
        painter.drawText(x + 3, rulerHeight - 8, QString::fromStdString(label));
    }

    // Tracks and clips.
    painter.setFont(font());
    for (std::size_t row = 0; row < tracks_.size(); ++row) {
        const int top = rulerHeight + static_cast<int>(row) * trackHeight;
        painter.fillRect(QRect(headerWidth, top, width - headerWidth, trackHeight),
                         row % 2 ? pal.base() : pal.alternateBase());
        painter.setPen(pal.color(QPalette::Midlight));
        painter.drawLine(0, top + trackHeight - 1, width, top + trackHeight - 1);
    }
    painter.setClipRect(QRect(headerWidth, rulerHeight, width - headerWidth, viewport()->height()));
    for (const auto& clip : clips_) {
        const int row = rowOf(clip.trackID);
        if (row < 0) continue;
        const int left = xOf(clip.startSeconds);
        const int right = xOf(clip.endSeconds);
        if (right < headerWidth || left > width) continue;
        const QRect box(left, rulerHeight + row * trackHeight + 3, std::max(right - left, 2),
                        trackHeight - 6);
        const bool selected = selected_.contains(clip.id);
        painter.setPen(selected ? QPen(QColor(255, 255, 255), 2)
                                : QPen(clipColor(clip.trackID).darker(140), 1));
        painter.setBrush(selected ? clipColor(clip.trackID).lighter(125) : clipColor(clip.trackID));
        painter.drawRoundedRect(box.adjusted(0, 0, -1, -1), 4, 4);
        if (!clip.isText) paintWaveform(painter, clip, box);
        painter.setPen(Qt::white);
        painter.drawText(box.adjusted(6, 0, -4, 0), Qt::AlignVCenter | Qt::AlignLeft,
                         painter.fontMetrics().elidedText(QString::fromStdString(clip.label), Qt::ElideRight,
                                                          std::max(box.width() - 10, 0)));
    }
    painter.setClipping(false);

    // Track names, over anything scrolled under them.
    painter.fillRect(QRect(0, rulerHeight, headerWidth, viewport()->height()), pal.window());
    painter.setPen(pal.color(QPalette::WindowText));
    for (std::size_t row = 0; row < tracks_.size(); ++row) {
        const int top = rulerHeight + static_cast<int>(row) * trackHeight;
        painter.drawText(QRect(8, top, headerWidth - 12, trackHeight), Qt::AlignVCenter | Qt::AlignLeft,
                         QString::fromStdString(tracks_[row].second));
    }

    // Playhead.
    const int x = xOf(playhead_);
    if (x >= headerWidth && x <= width) {
        painter.setPen(QPen(QColor(230, 50, 50), 2));
        painter.drawLine(x, 0, x, viewport()->height());
    }
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    setFocus(Qt::MouseFocusReason);
    const QPoint point = event->position().toPoint();
    const auto hit = hitTest(point);
    if (hit && hit->edge) {
        trimming_ = hit;
        const app::TrimDragMode mode = (event->modifiers() & Qt::ShiftModifier) ? app::TrimDragMode::ripple
                                       : (event->modifiers() & Qt::ControlModifier)
                                           ? app::TrimDragMode::roll
                                           : app::TrimDragMode::normal;
        if (actions_.select) actions_.select(hit->clipID, false);
        if (actions_.trimBegan) actions_.trimBegan(hit->clipID, *hit->edge, mode);
        return;
    }
    if (hit) {
        if (actions_.select) actions_.select(hit->clipID, (event->modifiers() & Qt::ShiftModifier) != 0);
        return;
    }
    if (point.x() < headerWidth) return;
    if (point.y() >= rulerHeight && actions_.clearSelection) actions_.clearSelection();
    scrubbing_ = true;
    if (actions_.seek) actions_.seek(secondsAt(point.x()));
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint point = event->position().toPoint();
    if (trimming_) {
        if (actions_.trimMoved) actions_.trimMoved(trimming_->clipID, *trimming_->edge, secondsAt(point.x()));
        return;
    }
    if (scrubbing_) {
        if (actions_.seek) actions_.seek(secondsAt(std::max(point.x(), headerWidth)));
        return;
    }
    const auto hit = hitTest(point);
    viewport()->setCursor(hit && hit->edge ? Qt::SizeHorCursor : Qt::ArrowCursor);
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    scrubbing_ = false;
    if (trimming_) {
        trimming_.reset();
        if (actions_.trimEnded) actions_.trimEnded();
    }
}

void TimelineView::wheelEvent(QWheelEvent* event) {
    if (!(event->modifiers() & Qt::ControlModifier)) {
        QAbstractScrollArea::wheelEvent(event);
        return;
    }
    // Zoom about the pointer: the time under it stays under it.
    const int x = static_cast<int>(event->position().x());
    const double anchor = secondsAt(x);
    setZoom(zoom_ * std::pow(1.0015, event->angleDelta().y()));
    horizontalScrollBar()->setValue(std::max(static_cast<int>(anchor * zoom_) - (x - headerWidth), 0));
    if (actions_.zoomChanged) actions_.zoomChanged(zoom_);
}

}  // namespace morvane::studio
