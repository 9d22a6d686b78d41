#pragma once
// `velmora --headless`: the start-up and server supervision of the tray application, without any
// window, on a QCoreApplication. Problems that would open a window are printed on standard error
// and logged instead. SIGTERM and SIGINT stop the server, then quit.

namespace velmora {

int runHeadless(int argc, char** argv);

}  // namespace velmora
