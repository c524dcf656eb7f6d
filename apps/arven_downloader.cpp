// The separate downloader program: fetches the item named in the per-user
// settings and installs it. Filled in with the update mechanism.
#include <cstdio>

int main() {
  std::puts("arven-downloader: nothing to download");
  return 0;
}
