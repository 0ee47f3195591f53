#pragma once

// How GoogleTest prints Morvane's values in failure messages.

#include <ostream>

#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

inline void PrintTo(const RationalTime& time, std::ostream* out) {
    *out << time.formatted() << " (" << time.seconds() << " s)";
}

}  // namespace morvane::engine
