#pragma once

/// One word of a caption with its program times, kept on a caption's text clip for word highlighting.

#include <string>

#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

struct CaptionWordTiming {
    std::string text;
    RationalTime start;  ///< program time
    RationalTime end;    ///< program time
    friend bool operator==(const CaptionWordTiming&, const CaptionWordTiming&) = default;
};

/// JSON keys are the field names; times in their record form.
void to_json(Json& json, const CaptionWordTiming& word);
void fromJson(const JsonReader& reader, CaptionWordTiming& word);

}  // namespace morvane::engine
