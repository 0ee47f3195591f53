#pragma once

/// Reading and writing edit plan files.
///
///     EditPlan plan = EditPlanCoding::decode(readFile("cut.json"), "cut.json");
///     // a bad file throws JsonDecodeError: "cut.json: /operations/3/start: required key is missing"
///     plan = EditPlanCoding::resolveSourceURLs(plan, "/home/me/talk");   // "media/a.mov" ->
///     "file:///home/..." std::string bytes = EditPlanCoding::encode(plan);                  // sorted keys,
///     the same bytes every time

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "morvane/engine/plan/edit_plan.hpp"

namespace morvane::engine {

/// A plan that JSON cannot hold: a number that is not finite, or a string that is not UTF-8.
/// `what()` names the JSON path: "/operations/2/playback_rate: cannot write a number that is not finite".
class EditPlanEncodeError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The plan file format: JSON, snake-case keys.
namespace EditPlanCoding {

/// The plan as pretty-printed JSON (two-space indent) with every object's keys sorted by byte value, so
/// that equal plans give equal bytes. Throws `EditPlanEncodeError` for a NaN or infinite number or a string
/// that is not valid UTF-8.
[[nodiscard]] std::string encode(const EditPlan& plan);

/// Reads a plan. Unknown keys are ignored; any version is accepted. Throws `JsonDecodeError` naming
/// `document` and the JSON path for text that is not JSON, a missing required key, a value of the wrong
/// type, or a number too large for a double.
[[nodiscard]] EditPlan decode(std::string_view bytes, std::string_view document = {});

/// The plan with each source's `url` made absolute. A url beginning with "file://" or "/" stays as it is;
/// any other text, whatever it looks like ("https://..." included), is a path relative to `directory`:
/// appended to it, with "." and ".." resolved, and written as a "file://" URL with reserved characters
/// percent-encoded. A relative `directory` is taken from the current working directory.
[[nodiscard]] EditPlan resolveSourceURLs(EditPlan plan, const std::filesystem::path& directory);

}  // namespace EditPlanCoding

}  // namespace morvane::engine
