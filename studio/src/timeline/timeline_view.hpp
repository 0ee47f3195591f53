#pragma once

/// The timeline: a ruler, the five tracks with their clips (each media clip over its sound's waveform, once
/// the session has it), the selection and the playhead. A click on a
/// clip selects it (Shift adds), a click elsewhere moves the playhead, a drag on a clip's edge trims it,
/// Ctrl and the wheel zoom. The view only shows and reports; the window turns gestures into edits.

#include <QAbstractScrollArea>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/engine/audio/waveform_generator.hpp"

namespace morvane::app {
class ProjectSession;
}

class QPainter;

namespace morvane::studio {

/// A clip as drawn: its track, its program span in seconds, its text, and the part of its source it plays.
struct TimelineViewClip {
    std::string id;
    std::string trackID;
    std::string label;
    double startSeconds = 0.0;
    double endSeconds = 0.0;
    bool isText = false;
    std::string sourceID;
    /// The source seconds played, in order: one range, or the pieces of a packed cut.
    std::vector<std::pair<double, double>> sourceRanges;
    friend bool operator==(const TimelineViewClip&, const TimelineViewClip&) = default;
};

class TimelineView final : public QAbstractScrollArea {
  public:
    struct Actions {
        std::function<void(const std::string& clipID, bool additive)> select;
        std::function<void()> clearSelection;
        std::function<void(double programSeconds)> seek;
        /// A drag on an edge: begins (once; Shift ripples, Ctrl rolls), moves to `programSeconds` (many
        /// times), ends.
        std::function<void(const std::string& clipID, app::TrimEdge edge, app::TrimDragMode mode)> trimBegan;
        std::function<void(const std::string& clipID, app::TrimEdge edge, double programSeconds)> trimMoved;
        std::function<void()> trimEnded;
        std::function<void(double pixelsPerSecond)> zoomChanged;
    };

    static constexpr int headerWidth = 96;
    static constexpr int rulerHeight = 22;
    static constexpr int trackHeight = 34;
    static constexpr int edgeGrip = 6;  ///< pixels of a clip's edge that start a trim

    TimelineView(Actions actions, QWidget* parent);

    /// Shows the session's timeline, selection and playhead.
    void sync(const app::ProjectSession& session);
    void setZoom(double pixelsPerSecond);
    [[nodiscard]] double zoom() const noexcept { return zoom_; }

    [[nodiscard]] const std::vector<TimelineViewClip>& clips() const noexcept { return clips_; }
    /// The box of a clip in viewport coordinates (scrolled into view first), or an empty box.
    [[nodiscard]] QRect clipBox(const std::string& clipID);
    /// The viewport x of program time `seconds`.
    [[nodiscard]] int xOf(double seconds) const;
    /// The program time under viewport x.
    [[nodiscard]] double secondsAt(int x) const;
    [[nodiscard]] const std::set<std::string>& selection() const noexcept { return selected_; }
    /// What is under viewport point `point`: a clip, and its edge when the point is on a trim handle.
    [[nodiscard]] std::optional<app::TimelineClipHit> hitTest(QPoint point) const;
    /// The waveforms drawn, by source id.
    [[nodiscard]] const std::map<std::string, engine::WaveformEnvelope>& waveforms() const noexcept {
        return waveforms_;
    }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

  private:
    [[nodiscard]] int rowOf(const std::string& trackID) const;
    void updateScrollBar();
    /// Takes the session's envelopes that changed since the last sync; true when any did.
    bool syncWaveforms(const app::ProjectSession& session);
    void paintWaveform(QPainter& painter, const TimelineViewClip& clip, const QRect& box) const;

    Actions actions_;
    std::vector<std::pair<std::string, std::string>> tracks_;  // id, name, in display order
    std::vector<TimelineViewClip> clips_;
    std::set<std::string> selected_;
    std::map<std::string, engine::WaveformEnvelope> waveforms_;
    double playhead_ = 0.0;
    double duration_ = 0.0;
    double zoom_ = 24.0;
    std::optional<app::TimelineClipHit> trimming_;
    bool scrubbing_ = false;
};

}  // namespace morvane::studio
