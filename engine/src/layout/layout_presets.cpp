#include "morvane/engine/layout/layout_presets.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

const LayoutSlotDefinition* LayoutDefinition::slot(std::optional<std::string_view> slotID) const noexcept {
    if (!slotID) return nullptr;
    for (const auto& s : slots) {
        if (s.id == *slotID) return &s;
    }
    return nullptr;
}

const std::vector<LayoutDefinition>& LayoutPresets::catalog() {
    static const std::vector<LayoutDefinition> presets{
        {"full_frame", "Full Frame", {{"main", {0.0, 0.0, 1.0, 1.0}, 0, 0.0}}},
        {"pip",
         "Picture in Picture",
         {{"main", {0.0, 0.0, 1.0, 1.0}, 0, 0.0}, {"webcam", {0.66, 0.05, 0.3, 0.3}, 1, 0.08}}},
        {"split",
         "Side by Side",
         {{"left", {0.0, 0.0, 0.5, 1.0}, 0, 0.0}, {"right", {0.5, 0.0, 0.5, 1.0}, 0, 0.0}}},
        {"stacked",
         "Stacked Vertical",
         {{"top", {0.0, 0.0, 1.0, 0.55}, 0, 0.0}, {"bottom", {0.0, 0.45, 1.0, 0.55}, 0, 0.0}}},
        {"title_card",
         "Title Over Background",
         {{"background", {0.0, 0.0, 1.0, 1.0}, 0, 0.0}, {"main", {0.1, 0.15, 0.8, 0.7}, 1, 0.0}}},
    };
    return presets;
}

const LayoutDefinition* LayoutPresets::definition(std::string_view id) noexcept {
    for (const auto& layout : catalog()) {
        if (layout.id == id) return &layout;
    }
    return nullptr;
}

const LayoutSlotDefinition* LayoutPresets::canonicalSlot(std::string_view id) noexcept {
    for (const auto& layout : catalog()) {
        if (const auto* found = layout.slot(id)) return found;
    }
    return nullptr;
}

void to_json(Json& json, const LayoutSlotDefinition& slot) {
    json = Json::object();
    json["id"] = slot.id;
    json["rect"] = slot.rect;
    json["zIndex"] = slot.zIndex;
    json["cornerRadius"] = slot.cornerRadius;
}

void fromJson(const JsonReader& reader, LayoutSlotDefinition& slot) {
    slot.id = reader["id"].get<std::string>();
    slot.rect = reader["rect"].get<EditPlanRect>();
    slot.zIndex = reader["zIndex"].get<int>();
    slot.cornerRadius = reader["cornerRadius"].get<double>();
}

void to_json(Json& json, const LayoutDefinition& layout) {
    json = Json::object();
    json["id"] = layout.id;
    json["name"] = layout.name;
    json["slots"] = layout.slots;
}

void fromJson(const JsonReader& reader, LayoutDefinition& layout) {
    layout.id = reader["id"].get<std::string>();
    layout.name = reader["name"].get<std::string>();
    layout.slots = reader["slots"].get<std::vector<LayoutSlotDefinition>>();
}

}  // namespace morvane::engine
