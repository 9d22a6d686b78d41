#pragma once
// `velmora --headless`: the tray application's start-up and server supervision without any window,
// on a QCoreApplication. State changes are printed on standard error; problems that would open a
// window are printed and logged instead. SIGTERM, SIGINT and SIGHUP stop the server, then quit.

#include <string>

namespace velmora {

int runHeadless(int argc, char** argv);

// "Velmora is already running (pid N)", for a second launch.
std::string alreadyRunningText();

// Says why the runtime folder cannot hold the lock (`problem` names the path); the exit status.
int refuseRuntimeFolder(const std::string& problem);

}  // namespace velmora
