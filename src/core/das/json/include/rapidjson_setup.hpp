// Every library source that uses RapidJSON includes this header first, so that
// RapidJSON's own assertions report through the library's assertion service (and return)
// instead of aborting the host process. The library never drives a RapidJSON writer or
// reader into a state where one of them fires; a report means a bug of ours.
#pragma once

#include <quillon2/core/assert.hpp>

#ifdef RAPIDJSON_ASSERT
#error "RapidJSON was included before core/das/json/include/rapidjson_setup.hpp"
#endif
#define RAPIDJSON_ASSERT(x) QUILLON_ASSERT(x)

#include <rapidjson/error/error.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include <quillon2/das/json_rapidjson.hpp>
