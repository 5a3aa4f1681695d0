// A shared object that breaks every rule of the library's interface check: it
// exports a name outside the list, needs the C++ runtime and calls the heap
// and the exception machinery.
#include <cstdlib>
#include <stdexcept>

extern "C" __attribute__((visibility("default"))) int *so_probe_table(int n) {
    if (n < 0) throw std::invalid_argument("negative count");
    int *table = new int[static_cast<unsigned>(n) + 1u];
    for (int i = 0; i <= n; ++i) table[i] = i * i;
    return table;
}

extern "C" __attribute__((visibility("default"))) void *so_probe_scratch(unsigned bytes) {
    return std::malloc(bytes);
}
