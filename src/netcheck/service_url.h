#pragma once
// The base URL of Velmora's service (answers /v1/ip and /v1/ping): fixed at build time, and
// overridable through the environment variable VELMORA_SERVICE_URL (tests point it at loopback).

#include <string>

namespace velmora {

// No trailing slash.
std::string serviceBaseURL();

}  // namespace velmora
