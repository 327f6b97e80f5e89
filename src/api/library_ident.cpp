// Identification string of the shared library, readable with `strings`.
#include "ZyBodyTracking.h"

namespace {
[[maybe_unused]] __attribute__((used)) const char kLibraryIdent[] = "libZyBodyTracking 1.0.3";
}
