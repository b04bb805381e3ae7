// The export macro of the library. The library is built with hidden visibility, so
// only what is marked QUILLON2_API is part of its binary interface.
#pragma once

#define QUILLON2_API __attribute__((visibility("default")))
#define QUILLON2_LOCAL __attribute__((visibility("hidden")))
