// The whole exported interface of quillon2 in one include.
#pragma once

#include <quillon2/export.hpp>
