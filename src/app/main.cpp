#include "app/cli.h"
#include "app/headless.h"

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--headless") == 0) return velmora::runHeadless(argc, argv);
    if (auto status = velmora::runCommandLine(argc, argv)) return *status;
    std::fputs("velmora: the menu-bar application is not part of this build yet; try \"velmora help\"\n", stderr);
    return 2;
}
