#pragma once

/// The look of a text clip: font, colours, placement, stroke, shadow and the karaoke highlight. Four
/// presets give every new text clip its values. All numbers are doubles; colours run from 0 to 1.
///
///     auto style = TextClipStyle::forPreset(TextStylePreset::lowerThird);
///     style.fontSize = 48;
///     auto caption = style.applyingPreset(TextStylePreset::caption);   // back to the caption values

#include <optional>
#include <string>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

enum class TextStylePreset { title, lowerThird, caption, karaoke };
inline constexpr auto kTextStylePresetNames = makeEnumTable<TextStylePreset>({
    {TextStylePreset::title, "title"},
    {TextStylePreset::lowerThird, "lowerThird"},
    {TextStylePreset::caption, "caption"},
    {TextStylePreset::karaoke, "karaoke"},
});

enum class TextHorizontalAlign { left, center, right };
inline constexpr auto kTextHorizontalAlignNames = makeEnumTable<TextHorizontalAlign>({
    {TextHorizontalAlign::left, "left"},
    {TextHorizontalAlign::center, "center"},
    {TextHorizontalAlign::right, "right"},
});

enum class TextVerticalPosition { top, center, bottom };
inline constexpr auto kTextVerticalPositionNames = makeEnumTable<TextVerticalPosition>({
    {TextVerticalPosition::top, "top"},
    {TextVerticalPosition::center, "center"},
    {TextVerticalPosition::bottom, "bottom"},
});

struct TextClipStyle {
    TextStylePreset preset = TextStylePreset::title;
    double fontSize = 64;
    std::string fontName = "Helvetica-Bold";
    double textRed = 1, textGreen = 1, textBlue = 1, textAlpha = 1;
    /// The box behind the text; drawn only when all four are present.
    std::optional<double> backgroundRed, backgroundGreen, backgroundBlue, backgroundAlpha;
    TextHorizontalAlign horizontalAlign = TextHorizontalAlign::center;
    TextVerticalPosition verticalPosition = TextVerticalPosition::center;
    double margin = 48;
    double strokeWidth = 0;
    double strokeRed = 0, strokeGreen = 0, strokeBlue = 0, strokeAlpha = 1;
    double shadowOffsetX = 0, shadowOffsetY = 2, shadowBlur = 8;
    double shadowRed = 0, shadowGreen = 0, shadowBlue = 0, shadowAlpha = 0.45;
    double highlightRed = 1, highlightGreen = 0.85, highlightBlue = 0.2, highlightAlpha = 1;

    /// The values of `preset`, in "Helvetica-Bold".
    [[nodiscard]] static TextClipStyle forPreset(TextStylePreset preset);
    /// The style with every value of `preset` applied, the font name kept.
    [[nodiscard]] TextClipStyle applyingPreset(TextStylePreset preset) const;
    /// The style at `factor` of its size, for another canvas: font size (at least 1) and margin (at least
    /// 0) rounded, stroke width (at least 0) and shadow offsets and blur multiplied.
    [[nodiscard]] TextClipStyle scaled(double factor) const;
    /// Whether the background box is drawn.
    [[nodiscard]] bool hasBackground() const noexcept {
        return backgroundRed && backgroundGreen && backgroundBlue && backgroundAlpha;
    }

    friend bool operator==(const TextClipStyle&, const TextClipStyle&) = default;
};

/// JSON keys are the field names; the background channels are omitted when absent.
void to_json(Json& json, const TextClipStyle& style);
void fromJson(const JsonReader& reader, TextClipStyle& style);

}  // namespace morvane::engine
