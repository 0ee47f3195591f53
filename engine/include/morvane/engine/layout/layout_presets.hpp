#pragma once

/// The fixed catalogue of multi-picture layouts: where each slot's picture sits on the canvas.
///
///     const auto* pip = LayoutPresets::definition("pip");
///     pip->slot("webcam")->rect;                          // {0.66, 0.05, 0.3, 0.3}, above "main"
///     LayoutPresets::canonicalSlot("bottom")->rect;       // the "stacked" layout's lower half

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/plan/edit_plan_rect.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// One place for a picture in a layout, normalised to the canvas.
struct LayoutSlotDefinition {
    std::string id;
    EditPlanRect rect;
    int zIndex = 0;             ///< higher slots draw over lower ones
    double cornerRadius = 0.0;  ///< fraction of the output's shorter side

    friend bool operator==(const LayoutSlotDefinition&, const LayoutSlotDefinition&) = default;
};

/// A named arrangement of slots.
struct LayoutDefinition {
    std::string id;
    std::string name;  ///< what the user reads
    std::vector<LayoutSlotDefinition> slots;

    /// The first slot whose id is `slotID`; nothing when there is none or `slotID` is absent.
    [[nodiscard]] const LayoutSlotDefinition* slot(std::optional<std::string_view> slotID) const noexcept;

    friend bool operator==(const LayoutDefinition&, const LayoutDefinition&) = default;
};

/// The catalogue itself.
namespace LayoutPresets {

/// The slot a clip without a slot of its own takes.
inline constexpr std::string_view defaultSlotID = "main";
/// The layout that applies where no layout region does.
inline constexpr std::string_view fullFrameID = "full_frame";
/// The layout whose slots stand in for slots a layout lacks (a webcam keeps its corner everywhere).
inline constexpr std::string_view pipID = "pip";

/// "full_frame", "pip", "split", "stacked", "title_card", in that order. The two "stacked" slots overlap
/// between 0.45 and 0.55 of the height on purpose.
[[nodiscard]] const std::vector<LayoutDefinition>& catalog();

/// The catalogue's layout `id`, or nothing.
[[nodiscard]] const LayoutDefinition* definition(std::string_view id) noexcept;

/// The first slot with `id` in catalogue order, or nothing.
[[nodiscard]] const LayoutSlotDefinition* canonicalSlot(std::string_view id) noexcept;

}  // namespace LayoutPresets

/// Keys "id", "rect", "zIndex", "cornerRadius", all required.
void to_json(Json& json, const LayoutSlotDefinition& slot);
void fromJson(const JsonReader& reader, LayoutSlotDefinition& slot);
/// Keys "id", "name", "slots", all required.
void to_json(Json& json, const LayoutDefinition& layout);
void fromJson(const JsonReader& reader, LayoutDefinition& layout);

}  // namespace morvane::engine
