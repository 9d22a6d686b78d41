#pragma once
// The application's own version text, fixed at build time.

#include <string>

namespace velmora {

std::string appVersion();

}  // namespace velmora
