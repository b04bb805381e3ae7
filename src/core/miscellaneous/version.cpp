// The library's version, for clients that check what they loaded.
#include <quillon2/export.hpp>

extern "C" QUILLON2_API const char* quillon2_version() { return "2.0.0"; }
