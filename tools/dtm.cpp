// The command-line host of the terrain-model library.

#include <dtm/dtm.h>

#include <cstdio>
#include <cstring>

namespace {

int Usage() {
    std::fprintf(stderr, "usage: dtm demo\n");
    return 2;
}

int RunDemo() {
    std::printf("dtm demo: library %s\n", "0.1.0");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    if (std::strcmp(argv[1], "demo") == 0) return RunDemo();
    return Usage();
}
