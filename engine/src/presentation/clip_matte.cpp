#include "morvane/engine/presentation/clip_matte.hpp"

#include <nlohmann/json.hpp>

#include "support/json_coding.hpp"

namespace morvane::engine {

std::string_view ClipMatteFill::inspectorLabel() const noexcept {
    switch (kind()) {
        case Case::solid:
            return "Solid color";
        case Case::gradient:
            return "Gradient";
        case Case::image:
            return "Image";
        case Case::timeline:
            return "Over clip below";
        case Case::original:
            return "Keep scene";
    }
    return "";
}

std::string ClipMatteFill::previewFingerprint() const {
    std::string name(kClipMatteFillCaseNames.text(kind()));
    if (const auto* solid = std::get_if<SolidFill>(&value))
        return name + ":" + solid->color.previewFingerprint();
    if (const auto* gradient = std::get_if<GradientFill>(&value)) {
        return name + ":" + gradient->top.previewFingerprint() + "|" + gradient->bottom.previewFingerprint();
    }
    if (const auto* image = std::get_if<ImageFill>(&value)) return name + ":" + image->sourceID;
    return name;
}

ClipMatte ClipMatte::chroma(BackgroundColor key, double similarity, double smoothness, ClipMatteFill fill) {
    return {.kind = ClipMatteKind::chroma,
            .fill = std::move(fill),
            .chromaKey = key,
            .chromaSimilarity = similarity,
            .chromaSmoothness = smoothness};
}

ClipMatte ClipMatte::person(ClipMatteFill fill) {
    return {.kind = ClipMatteKind::person, .fill = std::move(fill)};
}

void to_json(Json& json, const ClipMatteFill& fill) {
    json = detail::writeVariantCase(fill.value, kClipMatteFillCaseNames);
}

void fromJson(const JsonReader& reader, ClipMatteFill& fill) {
    fill.value = detail::readVariantCase<decltype(fill.value)>(reader, kClipMatteFillCaseNames);
}

void to_json(Json& json, const ClipMatte& matte) {
    json = Json::object();
    json["kind"] = kClipMatteKindNames.text(matte.kind);
    json["fill"] = matte.fill;
    detail::putIfPresent(json, "chroma_key", matte.chromaKey);
    json["chroma_similarity"] = matte.chromaSimilarity;
    json["chroma_smoothness"] = matte.chromaSmoothness;
    detail::putIfPresent(json, "object_seed_x", matte.objectSeedX);
    detail::putIfPresent(json, "object_seed_y", matte.objectSeedY);
    detail::putIfPresent(json, "matte_asset_id", matte.matteAssetID);
}

void fromJson(const JsonReader& reader, ClipMatte& matte) {
    matte.kind = detail::readEnum(reader["kind"], kClipMatteKindNames);
    matte.fill = reader["fill"].get<ClipMatteFill>();
    matte.chromaKey = reader.optional<BackgroundColor>("chroma_key");
    matte.chromaSimilarity = reader["chroma_similarity"].get<double>();
    matte.chromaSmoothness = reader["chroma_smoothness"].get<double>();
    matte.objectSeedX = reader.optional<double>("object_seed_x");
    matte.objectSeedY = reader.optional<double>("object_seed_y");
    matte.matteAssetID = reader.optional<std::string>("matte_asset_id");
}

}  // namespace morvane::engine
