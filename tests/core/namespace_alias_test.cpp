// The library's short name stays inside its namespace unless a client asks for it
// everywhere: a client's own global ql2 then compiles beside the umbrella header.
#undef QUILLON2_GLOBAL_ALIAS

#include <type_traits>

#include <gtest/gtest.h>

#include <quillon2/quillon2.hpp>

namespace ql2 {
int const clients_own = 7;
}  // namespace ql2

namespace {

TEST(NamespaceAlias, StaysInsideTheLibrarysNamespace) {
  EXPECT_EQ(7, ql2::clients_own);
  EXPECT_TRUE((std::is_same_v<quillon2::ql2::variant_t, quillon2::variant_t>));
}

}  // namespace
