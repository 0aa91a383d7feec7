// sample_index ROWS FILE: an attachment index of that many rows as an ADTG file.
#include "sample_index.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    const int rows = argc == 3 ? std::atoi(argv[1]) : 0;
    if (rows <= 0) {
        std::fprintf(stderr, "usage: sample_index ROWS FILE\n");
        return 2;
    }
    const trevix::Status saved =
        trevix::benchmarks::IndexOf(rows)->Save(argv[2], trevix::kPersistAdtg);
    if (saved.ok()) return 0;
    std::fprintf(stderr, "sample_index: %s\n", saved.error().description.c_str());
    return 1;
}
