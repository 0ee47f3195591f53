#pragma once

/// A clip keyed against a matte, and what shows where the matte removes the picture.
///
///     auto green = ClipMatte::chroma({0, 1, 0, 1}, 0.4, 0.1, ClipMatteFill::timeline());  // key out green
///     auto person = ClipMatte::person(ClipMatteFill::image("src3"));        // a picture behind the speaker
///     person.fill.inspectorLabel();                                          // "Image"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "morvane/engine/presentation/background_color.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// What the matte is computed from.
enum class ClipMatteKind { chroma, person, object };

/// The stored texts of `ClipMatteKind`.
inline constexpr auto kClipMatteKindNames = makeEnumTable<ClipMatteKind>({
    {ClipMatteKind::chroma, "chroma"},
    {ClipMatteKind::person, "person"},
    {ClipMatteKind::object, "object"},
});

/// What shows through where the matte removes the picture. Stored as a single-key object naming the case,
/// like `ClipBackgroundFill`: {"solid":{"_0":colour}}, {"gradient":{...}}, {"image":{"sourceID":id}},
/// {"timeline":{}}, {"original":{}}.
struct ClipMatteFill {
    enum class Case { solid, gradient, image, timeline, original };
    /// The clips below on the timeline: the keyed pixels stay transparent.
    struct Timeline {
        friend bool operator==(const Timeline&, const Timeline&) = default;
    };
    /// The clip itself, with the subject cut out.
    struct Original {
        friend bool operator==(const Original&, const Original&) = default;
    };

    /// The alternatives follow the order of `Case`.
    std::variant<SolidFill, GradientFill, ImageFill, Timeline, Original> value;

    [[nodiscard]] static ClipMatteFill solid(BackgroundColor color) { return {SolidFill{color}}; }
    [[nodiscard]] static ClipMatteFill gradient(BackgroundColor top, BackgroundColor bottom) {
        return {GradientFill{top, bottom}};
    }
    [[nodiscard]] static ClipMatteFill image(std::string sourceID) {
        return {ImageFill{std::move(sourceID)}};
    }
    [[nodiscard]] static ClipMatteFill timeline() { return {Timeline{}}; }
    [[nodiscard]] static ClipMatteFill original() { return {Original{}}; }

    [[nodiscard]] Case kind() const noexcept { return static_cast<Case>(value.index()); }

    /// The fill's name in the inspector: "Solid color", "Gradient", "Image", "Over clip below", "Keep scene".
    [[nodiscard]] std::string_view inspectorLabel() const noexcept;

    /// A cache key for rendered previews, equal for fills that look alike: "solid:" and the colour's
    /// fingerprint, "gradient:" and both colours' joined by "|", "image:" and the source id, "timeline",
    /// "original".
    [[nodiscard]] std::string previewFingerprint() const;

    friend bool operator==(const ClipMatteFill&, const ClipMatteFill&) = default;
};

/// The case names, which are also the JSON keys.
inline constexpr auto kClipMatteFillCaseNames = makeEnumTable<ClipMatteFill::Case>({
    {ClipMatteFill::Case::solid, "solid"},
    {ClipMatteFill::Case::gradient, "gradient"},
    {ClipMatteFill::Case::image, "image"},
    {ClipMatteFill::Case::timeline, "timeline"},
    {ClipMatteFill::Case::original, "original"},
});

/// A matte on a clip: a chroma key, a person cut-out, or an object mask stored as an asset.
struct ClipMatte {
    ClipMatteKind kind = ClipMatteKind::chroma;
    ClipMatteFill fill = ClipMatteFill::timeline();
    std::optional<BackgroundColor> chromaKey;  ///< the colour keyed out; chroma mattes only
    double chromaSimilarity = 0.0;             ///< chroma distance that is fully removed
    double chromaSmoothness = 0.0;             ///< width of the soft edge beyond it
    std::optional<double> objectSeedX;         ///< where the user picked the object, 0.0–1.0 across
    std::optional<double> objectSeedY;         ///< 0.0–1.0 down
    std::optional<std::string> matteAssetID;   ///< the stored mask of an object matte

    /// A chroma key of `key`, with no object seed and no asset.
    [[nodiscard]] static ClipMatte chroma(BackgroundColor key, double similarity, double smoothness,
                                          ClipMatteFill fill);
    /// A person cut-out: no key colour, similarity and smoothness zero.
    [[nodiscard]] static ClipMatte person(ClipMatteFill fill);

    friend bool operator==(const ClipMatte&, const ClipMatte&) = default;
};

void to_json(Json& json, const ClipMatteFill& fill);
/// Throws `JsonDecodeError` "Invalid number of keys found, expected one." unless exactly one case key is set.
void fromJson(const JsonReader& reader, ClipMatteFill& fill);
/// Snake-case keys: "kind", "fill", "chroma_similarity" and "chroma_smoothness" are required; "chroma_key",
/// "object_seed_x", "object_seed_y" and "matte_asset_id" are optional and written only when set.
void to_json(Json& json, const ClipMatte& matte);
void fromJson(const JsonReader& reader, ClipMatte& matte);

}  // namespace morvane::engine
