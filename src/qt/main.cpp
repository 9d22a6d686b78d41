#include "app/cli.h"
#include "qt/headless.h"
#include "qt/tray_app.h"

#include <cstring>

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--headless") == 0) return velmora::runHeadless(argc, argv);
    if (auto status = velmora::runCommandLine(argc, argv)) return *status;
    return velmora::runTray(argc, argv);
}
