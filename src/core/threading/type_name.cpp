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

// Never destroyed, and no entry is ever removed: tasks may be named while the process
// exits, and the names are handed out by reference.
name_cache_t& name_cache() {
  static name_cache_t* const cache = new name_cache_t;
  return *cache;
}

}  // namespace

std::string const& type_display_name(std::type_info const& type) {
  // A thread mostly asks for the type it asked for last: a pool worker names itself
  // after the same kind of task job after job.
  thread_local std::type_info const* t_last_type = nullptr;
  thread_local std::string const* t_last_name = nullptr;
  if (t_last_type == &type) return *t_last_name;

  name_cache_t& cache = name_cache();
  std::type_index const key(type);
  std::string const* found = nullptr;
  {
    threading::spin_guard_t guard(cache.lock);
    auto it = cache.names.find(key);
    if (it != cache.names.end()) found = &it->second;
  }
  if (found == nullptr) {
    std::string name = demangle_type_name(type.name());
    static std::string const word = "class ";
    for (std::size_t at = name.find(word); at != std::string::npos; at = name.find(word, at)) {
      name.erase(at, word.size());
    }
    threading::spin_guard_t guard(cache.lock);
    // Another thread may have entered the same type meanwhile; its entry stays.
    found = &cache.names.emplace(key, std::move(name)).first->second;
  }
  t_last_type = &type;
  t_last_name = found;
  return *found;
}

}  // namespace quillon2::internal
