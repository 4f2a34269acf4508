#include <cstdio>

int main() {
  std::puts("tamlogcheck: the checks follow");
  return 2;
}
