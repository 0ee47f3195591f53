#include "morvane/engine/text/text_clip_style.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace morvane::engine {

TextClipStyle TextClipStyle::forPreset(TextStylePreset preset) {
    TextClipStyle s;
    s.preset = preset;
    switch (preset) {
        case TextStylePreset::title:
            break;  // the member defaults are the title preset
        case TextStylePreset::lowerThird:
            s.fontSize = 42;
            s.backgroundRed = 0, s.backgroundGreen = 0, s.backgroundBlue = 0, s.backgroundAlpha = 0.55;
            s.horizontalAlign = TextHorizontalAlign::left;
            s.verticalPosition = TextVerticalPosition::bottom;
            s.margin = 32;
            s.shadowOffsetY = 1, s.shadowBlur = 4, s.shadowAlpha = 0.35;
            break;
        case TextStylePreset::caption:
            s.fontSize = 36;
            s.backgroundRed = 0, s.backgroundGreen = 0, s.backgroundBlue = 0, s.backgroundAlpha = 0.65;
            s.verticalPosition = TextVerticalPosition::bottom;
            s.margin = 28;
            s.shadowOffsetY = 0, s.shadowBlur = 0, s.shadowAlpha = 0;
            s.highlightGreen = 1, s.highlightBlue = 1;
            break;
        case TextStylePreset::karaoke:
            s.fontSize = 40;
            s.textRed = 0.85, s.textGreen = 0.85, s.textBlue = 0.85;
            s.backgroundRed = 0, s.backgroundGreen = 0, s.backgroundBlue = 0, s.backgroundAlpha = 0.55;
            s.verticalPosition = TextVerticalPosition::bottom;
            s.margin = 28;
            s.strokeWidth = 1.5, s.strokeAlpha = 0.9;
            s.shadowOffsetY = 1, s.shadowBlur = 3, s.shadowAlpha = 0.35;
            s.highlightBlue = 0.15;
            break;
    }
    return s;
}

TextClipStyle TextClipStyle::scaled(double factor) const {
    TextClipStyle style = *this;
    style.fontSize = std::max(std::round(fontSize * factor), 1.0);
    style.margin = std::max(std::round(margin * factor), 0.0);
    style.strokeWidth = std::max(strokeWidth * factor, 0.0);
    style.shadowOffsetX = shadowOffsetX * factor;
    style.shadowOffsetY = shadowOffsetY * factor;
    style.shadowBlur = shadowBlur * factor;
    return style;
}

TextClipStyle TextClipStyle::applyingPreset(TextStylePreset newPreset) const {
    TextClipStyle s = forPreset(newPreset);
    s.fontName = fontName;
    return s;
}

void to_json(Json& json, const TextClipStyle& s) {
    json = Json::object();
    json["preset"] = kTextStylePresetNames.text(s.preset);
    json["fontSize"] = s.fontSize;
    json["fontName"] = s.fontName;
    json["textRed"] = s.textRed;
    json["textGreen"] = s.textGreen;
    json["textBlue"] = s.textBlue;
    json["textAlpha"] = s.textAlpha;
    if (s.backgroundRed) json["backgroundRed"] = *s.backgroundRed;
    if (s.backgroundGreen) json["backgroundGreen"] = *s.backgroundGreen;
    if (s.backgroundBlue) json["backgroundBlue"] = *s.backgroundBlue;
    if (s.backgroundAlpha) json["backgroundAlpha"] = *s.backgroundAlpha;
    json["horizontalAlign"] = kTextHorizontalAlignNames.text(s.horizontalAlign);
    json["verticalPosition"] = kTextVerticalPositionNames.text(s.verticalPosition);
    json["margin"] = s.margin;
    json["strokeWidth"] = s.strokeWidth;
    json["strokeRed"] = s.strokeRed;
    json["strokeGreen"] = s.strokeGreen;
    json["strokeBlue"] = s.strokeBlue;
    json["strokeAlpha"] = s.strokeAlpha;
    json["shadowOffsetX"] = s.shadowOffsetX;
    json["shadowOffsetY"] = s.shadowOffsetY;
    json["shadowBlur"] = s.shadowBlur;
    json["shadowRed"] = s.shadowRed;
    json["shadowGreen"] = s.shadowGreen;
    json["shadowBlue"] = s.shadowBlue;
    json["shadowAlpha"] = s.shadowAlpha;
    json["highlightRed"] = s.highlightRed;
    json["highlightGreen"] = s.highlightGreen;
    json["highlightBlue"] = s.highlightBlue;
    json["highlightAlpha"] = s.highlightAlpha;
}

void fromJson(const JsonReader& r, TextClipStyle& s) {
    s.preset = readCase(r["preset"], kTextStylePresetNames);
    s.fontSize = r["fontSize"].get<double>();
    s.fontName = r["fontName"].get<std::string>();
    s.textRed = r["textRed"].get<double>();
    s.textGreen = r["textGreen"].get<double>();
    s.textBlue = r["textBlue"].get<double>();
    s.textAlpha = r["textAlpha"].get<double>();
    s.backgroundRed = r.optional<double>("backgroundRed");
    s.backgroundGreen = r.optional<double>("backgroundGreen");
    s.backgroundBlue = r.optional<double>("backgroundBlue");
    s.backgroundAlpha = r.optional<double>("backgroundAlpha");
    s.horizontalAlign = readCase(r["horizontalAlign"], kTextHorizontalAlignNames);
    s.verticalPosition = readCase(r["verticalPosition"], kTextVerticalPositionNames);
    s.margin = r["margin"].get<double>();
    s.strokeWidth = r["strokeWidth"].get<double>();
    s.strokeRed = r["strokeRed"].get<double>();
    s.strokeGreen = r["strokeGreen"].get<double>();
    s.strokeBlue = r["strokeBlue"].get<double>();
    s.strokeAlpha = r["strokeAlpha"].get<double>();
    s.shadowOffsetX = r["shadowOffsetX"].get<double>();
    s.shadowOffsetY = r["shadowOffsetY"].get<double>();
    s.shadowBlur = r["shadowBlur"].get<double>();
    s.shadowRed = r["shadowRed"].get<double>();
    s.shadowGreen = r["shadowGreen"].get<double>();
    s.shadowBlue = r["shadowBlue"].get<double>();
    s.shadowAlpha = r["shadowAlpha"].get<double>();
    s.highlightRed = r["highlightRed"].get<double>();
    s.highlightGreen = r["highlightGreen"].get<double>();
    s.highlightBlue = r["highlightBlue"].get<double>();
    s.highlightAlpha = r["highlightAlpha"].get<double>();
}

}  // namespace morvane::engine
