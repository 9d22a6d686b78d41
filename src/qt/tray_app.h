#pragma once
// `velmora` with no sub-command: the tray application. A second launch asks the running one to
// open its settings window and exits 0.

namespace velmora {

int runTray(int argc, char** argv);

}  // namespace velmora
