// Helpers for RapidJSON documents of wide text: printing a value as compact JSON and
// adding a string member whose texts the document owns.
#include "core/das/json/include/rapidjson_setup.hpp"

#include <string>

#include <quillon2/core/assert.hpp>

namespace quillon2::json {

std::wstring rapidJsonValueToString(wide_value_t const& value) {
  using encoding_t = rapidjson::UTF32<wchar_t>;
  rapidjson::GenericStringBuffer<encoding_t> buffer;
  rapidjson::Writer<rapidjson::GenericStringBuffer<encoding_t>, encoding_t, encoding_t> writer(
      buffer);
  value.Accept(writer);
  return std::wstring(buffer.GetString(), buffer.GetSize() / sizeof(wchar_t));
}

wide_value_t& addStringMember(wide_value_t& object, std::wstring const& name,
                              std::wstring const& member_value,
                              rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>& allocator) {
  QUILLON_ASSERT(object.IsObject());
  if (!object.IsObject()) return object;
  wide_value_t key(name.c_str(), static_cast<rapidjson::SizeType>(name.size()), allocator);
  wide_value_t text(member_value.c_str(), static_cast<rapidjson::SizeType>(member_value.size()),
                    allocator);
  object.AddMember(key, text, allocator);
  return object;
}

}  // namespace quillon2::json
