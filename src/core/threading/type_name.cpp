// Cache of readable class names.
#include "core/threading/include/type_name.hpp"

#include <typeindex>
#include <unordered_map>

#include <quillon2/core/threading/spin_lock.hpp>

#include "core/threading/include/platform.hpp"

namespace quillon2::internal {

namespace {

struct name_cache_t {
  threading::spin_lock_t lock;
  std::unordered_map<std::type_index, std::string> names;
};

// Never destroyed: tasks may be named while the process exits.
name_cache_t& name_cache() {
  static name_cache_t* const cache = new name_cache_t;
  return *cache;
}

}  // namespace

std::string type_display_name(std::type_info const& type) {
  name_cache_t& cache = name_cache();
  std::type_index const key(type);
  {
    threading::spin_guard_t guard(cache.lock);
    auto it = cache.names.find(key);
    if (it != cache.names.end()) return it->second;
  }
  std::string name = demangle_type_name(type.name());
  static std::string const word = "class ";
  for (std::size_t at = name.find(word); at != std::string::npos; at = name.find(word, at)) {
    name.erase(at, word.size());
  }
  threading::spin_guard_t guard(cache.lock);
  cache.names.emplace(key, name);
  return name;
}

}  // namespace quillon2::internal
