#include "morvane/engine/composition/composition.hpp"

#include <algorithm>

namespace morvane::engine {

bool CompositionSegment::isScaled() const noexcept {
    return sourceRange.duration().compare(target.duration()) != 0;
}

double CompositionSegment::rate() const noexcept {
    const double length = target.duration().seconds();
    return length > 0.0 ? sourceRange.duration().seconds() / length : 1.0;
}

RationalTime CompositionSegment::sourceTime(RationalTime compositionTime) const {
    const RationalTime offset = compositionTime.subtracting(target.start);
    if (!isScaled()) return sourceRange.start.adding(offset);
    return sourceRange.start.adding(offset.multipliedBy(rate()));
}

RationalTime CompositionTrack::duration() const noexcept {
    return segments.empty() ? RationalTime::zero : segments.back().target.end;
}

const CompositionSegment* CompositionTrack::segment(RationalTime time) const noexcept {
    // The last segment that starts at or before `time`.
    auto it =
        std::upper_bound(segments.begin(), segments.end(), time,
                         [](RationalTime t, const CompositionSegment& s) { return t < s.target.start; });
    if (it == segments.begin()) return nullptr;
    --it;
    return time < it->target.end ? &*it : nullptr;
}

void CompositionTrack::splitAt(RationalTime time) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
        CompositionSegment& s = segments[i];
        if (!(s.target.start < time && time < s.target.end)) continue;
        CompositionSegment tail = s;
        const bool held = s.source.kind == CompositionSource::Kind::still ||
                          s.source.kind == CompositionSource::Kind::solidColor;
        const RationalTime sourceSplit = held ? s.sourceRange.end : s.sourceTime(time);
        s.target.end = time;
        tail.target.start = time;
        if (!held) {
            s.sourceRange.end = sourceSplit;
            tail.sourceRange.start = sourceSplit;
        }
        segments.insert(segments.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(tail));
        return;
    }
}

void CompositionTrack::insertTimeRange(TimeSpan sourceRange, const CompositionSource& source,
                                       RationalTime at) {
    const RationalTime length = sourceRange.duration();
    if (length <= RationalTime::zero) return;
    const RationalTime end = duration();
    if (at >= end) {
        if (at > end)
            segments.push_back({CompositionSource{}, {RationalTime::zero, at.subtracting(end)}, {end, at}});
        segments.push_back({source, sourceRange, {at, at.adding(length)}});
        return;
    }
    splitAt(at);
    std::size_t insertAt = segments.size();
    for (std::size_t i = 0; i < segments.size(); ++i) {
        CompositionSegment& s = segments[i];
        if (s.target.start < at) continue;
        insertAt = std::min(insertAt, i);
        s.target.start = s.target.start.adding(length);
        s.target.end = s.target.end.adding(length);
    }
    segments.insert(segments.begin() + static_cast<std::ptrdiff_t>(insertAt),
                    CompositionSegment{source, sourceRange, {at, at.adding(length)}});
}

void CompositionTrack::scaleTimeRange(TimeSpan range, RationalTime duration) {
    const RationalTime length = range.duration();
    if (length <= RationalTime::zero || duration <= RationalTime::zero) return;
    splitAt(range.start);
    splitAt(range.end);
    const double factor = duration.seconds() / length.seconds();
    const RationalTime delta = duration.subtracting(length);
    const RationalTime newEnd = range.start.adding(duration);
    const auto scaled = [&](RationalTime t) {
        if (t.compare(range.end) == 0) return newEnd;
        return range.start.adding(t.subtracting(range.start).multipliedBy(factor));
    };
    for (auto& s : segments) {
        if (s.target.start >= range.end) {
            s.target.start = s.target.start.adding(delta);
            s.target.end = s.target.end.adding(delta);
        } else if (s.target.start >= range.start) {
            s.target.start = scaled(s.target.start);
            s.target.end = scaled(s.target.end);
        }
    }
}

std::int32_t Composition::addMutableTrack(CompositionMediaType mediaType,
                                          std::optional<std::int32_t> preferredTrackID) {
    std::int32_t id = preferredTrackID.value_or(0);
    if (id < 1 || track(id) != nullptr) {
        id = 1;
        while (track(id) != nullptr)
            ++id;
    }
    tracks.push_back({.trackID = id, .mediaType = mediaType});
    return id;
}

CompositionTrack* Composition::mutableTrack(std::int32_t trackID) noexcept {
    for (auto& t : tracks)
        if (t.trackID == trackID) return &t;
    return nullptr;
}

const CompositionTrack* Composition::track(std::int32_t trackID) const noexcept {
    for (const auto& t : tracks)
        if (t.trackID == trackID) return &t;
    return nullptr;
}

std::vector<const CompositionTrack*> Composition::tracksWithMediaType(CompositionMediaType mediaType) const {
    std::vector<const CompositionTrack*> out;
    for (const auto& t : tracks)
        if (t.mediaType == mediaType) out.push_back(&t);
    std::sort(out.begin(), out.end(), [](const auto* a, const auto* b) { return a->trackID < b->trackID; });
    return out;
}

RationalTime Composition::duration() const noexcept {
    RationalTime longest = RationalTime::zero;
    for (const auto& t : tracks)
        longest = std::max(longest, t.duration());
    return longest;
}

}  // namespace morvane::engine
