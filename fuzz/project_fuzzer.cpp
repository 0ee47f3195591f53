// Fuzzes the project manifest reader and what opening a project does with it: any input must either be
// refused with a JsonDecodeError (or, for a newer format, ProjectBundleError::newerFormat), or give a
// document that writes back to the same bytes and fills a session without crashing. Filling may refuse a
// time that doesn't parse (EngineError::invalidRationalTime), as rebuilding the plan does; anything else
// stops the run.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "fuzz_check.hpp"
#include "morvane/app/project/project_document.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/engine/engine_error.hpp"

namespace {

using namespace morvane;
using namespace morvane::app;

using morvane::fuzz::broken;
using morvane::fuzz::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    ProjectDocument document;
    try {
        document = ProjectDocument::decode(text);
    } catch (const JsonDecodeError&) {
        return 0;
    } catch (const ProjectBundleError& e) {
        check(e.kind() == ProjectBundleError::Kind::newerFormat, "a manifest refused for another reason");
        return 0;
    }

    const std::string bytes = ProjectDocument::encode(document);
    ProjectDocument again;
    try {
        again = ProjectDocument::decode(bytes);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        broken("a written manifest can't be read back");
    }
    check(ProjectDocument::encode(again) == bytes, "writing, reading and writing again changed the manifest");

    ProjectSession session;
    try {
        document.apply(session, std::filesystem::path("/nonexistent/Fuzz.morvane"));
    } catch (const engine::EngineError& e) {
        check(e.kind() == engine::EngineError::Kind::invalidRationalTime,
              "opening failed with another error");
    }
    return 0;
}
