// A tour of quillon2's main roads: each section shows one capability as a client
// would use it.
#include <iostream>

#include <quillon2/quillon2.hpp>

int main() {
  std::cout << "quillon2 demo\n";
  return 0;
}
