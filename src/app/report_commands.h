#pragma once
// `velmora diagnostics` and `velmora test-connection`: the two reports of the status menu, printed
// for the current state by a separate process.

namespace velmora {

// The diagnostics report on standard output, unredacted only where the menu's copy is too.
int printDiagnostics();

// The connection test's report for the current state on standard output.
int printConnectionTest();

// Whether a Velmora server of this user runs: a process whose executable ends with the installed
// server's suffix. Nothing is signalled.
bool serverProcessRunning();

}  // namespace velmora
