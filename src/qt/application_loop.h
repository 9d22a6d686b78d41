#pragma once
// What the tray and --headless share once their application object and views exist: the signal
// watch, the socket a second launch speaks to, the start-up, the event loop and the orderly end.

#include "app/app_delegate.h"

#include <memory>

namespace velmora {

// Creates the application object into `delegate` (which the caller's views may already refer to),
// runs it until quit and stops the server; the exit status.
int runApplication(AppView& view, Desktop& desktop, std::shared_ptr<AppDelegate>& delegate);

}  // namespace velmora
