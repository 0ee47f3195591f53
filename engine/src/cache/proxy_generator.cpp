#include "morvane/engine/cache/proxy_generator.hpp"

#include <array>

#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/export/mp4_exporter.hpp"

namespace morvane::engine::ProxyGenerator {

namespace fs = std::filesystem;

namespace {

// Fast to make and light to decode; the proxy only stands in while editing.
constexpr ExportEncoderSettings kProxySettings{.codec = ExportVideoCodec::h264,
                                               .maxSize = proxyMaxSize,
                                               .quality = 23,
                                               .speed = "veryfast",
                                               .fileType = ExportFileType::quickTimeMovie};
// The frame rate of the proxy's picture: the preview shows it at the program's rate anyway.
constexpr RationalTime kProxyFrameDuration{1, 30};

// The whole of `url`, picture and sound, as a composition that plays it as it stands.
CompositionBuildResult wholeSource(const fs::path& url, const std::stop_token& stop) {
    const EditPlanSource source{.id = "proxy", .url = url.string()};
    const std::map<std::string, const EditPlanSource*> sources{{source.id, &source}};
    const std::array<std::string, 1> ids{source.id};
    const CompositionSourceInfo info =
        CompositionBuilder::loadSourceMetadata(sources, ids, {}, stop).at(source.id);
    // A turned picture (a phone held upright) plays from its original: the proxy's frames would lose the
    // turn.
    if (!info.hasVideo || info.isStill || !(info.videoDuration > RationalTime::zero) ||
        !(info.preferredTransform == AffineTransform::identity()))
        throw EngineError::exportFailed("Source is not compatible with the proxy preset");
    CompositionBuildResult build;
    build.renderSize = {static_cast<int>(info.naturalSize.width), static_cast<int>(info.naturalSize.height)};
    build.frameDuration = kProxyFrameDuration;
    Composition& composition = build.composition;
    CompositionTrack& video =
        *composition.mutableTrack(composition.addMutableTrack(CompositionMediaType::video));
    video.insertTimeRange({RationalTime::zero, info.videoDuration}, CompositionSource::media(info.path),
                          RationalTime::zero);
    if (info.hasAudio && info.audioDuration > RationalTime::zero) {
        CompositionTrack& audio =
            *composition.mutableTrack(composition.addMutableTrack(CompositionMediaType::audio));
        audio.insertTimeRange({RationalTime::zero, info.audioDuration}, CompositionSource::media(info.path),
                              RationalTime::zero);
    }
    return build;
}

}  // namespace

void generate(const fs::path& url, const fs::path& to, const ProgressCallback& progress,
              std::stop_token stop) {
    std::error_code error;
    fs::remove(to, error);
    fs::create_directories(to.parent_path(), error);
    if (error || fs::exists(to)) throw EngineError::exportFailed("Could not create proxy export session");
    CompositionBuildResult build;
    try {
        build = wholeSource(url, stop);
    } catch (const EngineError& e) {
        if (e.kind() == EngineError::Kind::exportFailed || e.kind() == EngineError::Kind::missingFile) throw;
        throw EngineError::exportFailed("Source is not compatible with the proxy preset");
    }
    try {
        MP4Exporter::exportComposition(build, to, {.encoderOverride = kProxySettings}, progress,
                                       std::move(stop));
    } catch (const EngineError& e) {
        throw EngineError::exportFailed(std::string("Proxy generation failed: ") + e.what());
    }
}

}  // namespace morvane::engine::ProxyGenerator
