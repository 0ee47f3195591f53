#pragma once

/// A composition: the timeline of media tracks that a renderer plays. Each track is a list of segments in
/// composition time, each playing a range of one source, a still picture, a plate of one colour, or
/// nothing. Inserting and scaling behave like an editor's: an insertion inside a track pushes what
/// follows later, and scaling a range stretches what it holds and moves what follows.
///
///     Composition composition;
///     auto id = composition.addMutableTrack(CompositionMediaType::video);
///     auto& track = *composition.mutableTrack(id);
///     track.insertTimeRange({s(10), s(13)}, CompositionSource::media("talk.mp4"), s(0));   // 3 s at 0
///     track.scaleTimeRange({s(0), s(3)}, s(6));          // played at half speed: 6 s long
///     track.segment(s(4))->sourceTime(s(4));             // 12 s into talk.mp4

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "morvane/engine/presentation/background_color.hpp"
#include "morvane/engine/render/affine_transform.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// The kind of material a track carries.
enum class CompositionMediaType { video, audio };

/// What a segment plays.
struct CompositionSource {
    /// What kind of material.
    enum class Kind {
        empty,       ///< nothing: the background shows, silence plays
        media,       ///< a range of a file's first track of the track's type
        still,       ///< one picture, held
        solidColor,  ///< a plate of one colour
    };
    Kind kind = Kind::empty;
    std::string path;       ///< the file, for `media` and `still`
    std::string sourceID;   ///< the plan's source id, when it came from one
    BackgroundColor color;  ///< for `solidColor`

    /// A range of a file's track.
    [[nodiscard]] static CompositionSource media(std::string path, std::string sourceID = {}) {
        return {Kind::media, std::move(path), std::move(sourceID), {}};
    }
    /// One picture of a file, held.
    [[nodiscard]] static CompositionSource still(std::string path, std::string sourceID = {}) {
        return {Kind::still, std::move(path), std::move(sourceID), {}};
    }
    /// A plate of `color`.
    [[nodiscard]] static CompositionSource solidColor(BackgroundColor color) {
        return {Kind::solidColor, {}, {}, color};
    }

    friend bool operator==(const CompositionSource&, const CompositionSource&) = default;
};

/// A piece of a track: `source` plays its range `sourceRange` over `target`, stretched when the two differ
/// in length.
struct CompositionSegment {
    CompositionSource source;
    TimeSpan sourceRange;  ///< in the source's own time
    TimeSpan target;       ///< in composition time

    /// Whether nothing plays here.
    [[nodiscard]] bool isEmpty() const noexcept { return source.kind == CompositionSource::Kind::empty; }
    /// Whether the source plays at another speed than its own.
    [[nodiscard]] bool isScaled() const noexcept;
    /// The source time that plays at `compositionTime`: exact when unscaled, else through the ratio of the
    /// two lengths, rounded to timescale 60000.
    [[nodiscard]] RationalTime sourceTime(RationalTime compositionTime) const;
    /// The speed: source length over target length (1.0 for an empty target).
    [[nodiscard]] double rate() const noexcept;

    friend bool operator==(const CompositionSegment&, const CompositionSegment&) = default;
};

/// One track of a composition. Segments are in time order and never overlap.
struct CompositionTrack {
    std::int32_t trackID = 0;
    CompositionMediaType mediaType = CompositionMediaType::video;
    /// How the source's picture is turned to show upright; set by the first clip placed.
    AffineTransform preferredTransform;
    std::vector<CompositionSegment> segments;

    /// Inserts `sourceRange` of `source` at `at`. At or past the end, a gap up to `at` is left empty;
    /// inside the track, what lies from `at` on moves later by the range's length.
    void insertTimeRange(TimeSpan sourceRange, const CompositionSource& source, RationalTime at);
    /// Stretches what plays over `range` to last `duration`; what follows moves by the difference.
    void scaleTimeRange(TimeSpan range, RationalTime duration);
    /// The segment playing at `time`, or nothing outside the track.
    [[nodiscard]] const CompositionSegment* segment(RationalTime time) const noexcept;
    /// The end of the last segment (zero for an empty track).
    [[nodiscard]] RationalTime duration() const noexcept;

    friend bool operator==(const CompositionTrack&, const CompositionTrack&) = default;

  private:
    void splitAt(RationalTime time);
};

/// A set of tracks.
struct Composition {
    std::vector<CompositionTrack> tracks;

    /// Adds an empty track and returns its id: `preferredTrackID` when given and free, else the lowest free
    /// id from 1.
    std::int32_t addMutableTrack(CompositionMediaType mediaType,
                                 std::optional<std::int32_t> preferredTrackID = {});
    /// The track `trackID`, to edit; null when there is none.
    [[nodiscard]] CompositionTrack* mutableTrack(std::int32_t trackID) noexcept;
    /// The track `trackID`; null when there is none.
    [[nodiscard]] const CompositionTrack* track(std::int32_t trackID) const noexcept;
    /// The tracks of `mediaType`, in id order.
    [[nodiscard]] std::vector<const CompositionTrack*> tracksWithMediaType(
        CompositionMediaType mediaType) const;
    /// The end of the longest track.
    [[nodiscard]] RationalTime duration() const noexcept;

    friend bool operator==(const Composition&, const Composition&) = default;
};

}  // namespace morvane::engine
