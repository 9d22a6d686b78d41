#include "app/cli.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (auto status = velmora::runCommandLine(argc, argv)) return *status;
    std::fputs("velmora: the menu-bar application is not part of this build yet; try \"velmora help\"\n", stderr);
    return 2;
}
