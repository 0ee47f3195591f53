#pragma once

#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// A rectangle normalised to a canvas or a source frame: 0.0–1.0 on both axes, origin top left.
struct EditPlanRect {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    friend bool operator==(const EditPlanRect&, const EditPlanRect&) = default;
};

/// {"x", "y", "width", "height"}, all required numbers.
void to_json(Json& json, const EditPlanRect& rect);
void fromJson(const JsonReader& reader, EditPlanRect& rect);

}  // namespace morvane::engine
