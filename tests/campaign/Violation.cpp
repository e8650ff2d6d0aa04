#include "tests/campaign/Violation.h"

namespace ostrel::campaign {
namespace {

constexpr std::string_view kNames[] = {"none",        "no crash",    "right value",   "not stale",     "no hang",    "accounted",
                                       "write once",  "tag once",    "no short lock", "no leak",       "recovers",   "right records",
                                       "not too early", "fair share", "log once",     "same trace"};
static_assert(std::size(kNames) == static_cast<std::size_t>(Invariant::Count));

}  // namespace

std::string_view NameOf(Invariant invariant) { return kNames[static_cast<std::size_t>(invariant)]; }

}  // namespace ostrel::campaign
