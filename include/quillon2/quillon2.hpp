// The whole exported interface of quillon2 in one include.
#pragma once

#include <quillon2/export.hpp>

// Core runtime: text, logging, assertions, locks, environment, errors, memory, objects.
#include <quillon2/headers/kesmet.hpp>
#include <quillon2/core/assert.hpp>
#include <quillon2/core/log.hpp>
#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/core/environ.hpp>
#include <quillon2/core/error_code.hpp>
#include <quillon2/core/check.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/core/system_info.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/smart_pointer.hpp>
#include <quillon2/headers/iterator.hpp>

// Data model: variants, bags, typed pointers and the registry, paths and bag algebra.
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/path_accessor.hpp>
