// default_content_stream_factory_t and its stream over one string.
#include <algorithm>
#include <string>

#include <quillon2/das/das_transformation.hpp>

namespace quillon2 {

namespace {

// The library's content stream on a string: gives the bytes in order, then 0.
class stream_t final : public content_stream_factory_t::content_stream_t {
 public:
  explicit stream_t(std::string content) : m_content(std::move(content)) {}

  int read(char* buffer, int size) override {
    if (buffer == nullptr || size <= 0) return 0;
    std::size_t const left = m_content.size() - static_cast<std::size_t>(m_position);
    std::size_t const count = std::min(left, static_cast<std::size_t>(size));
    m_content.copy(buffer, count, static_cast<std::size_t>(m_position));
    m_position += static_cast<int>(count);
    return static_cast<int>(count);
  }
  void close() override { delete this; }

 private:
  std::string m_content;
  int m_position = 0;
};

}  // namespace

content_stream_factory_t::content_stream_t* default_content_stream_factory_t::create_stream(
    char const* uri) {
  return new stream_t(read_content(uri));
}

}  // namespace quillon2
