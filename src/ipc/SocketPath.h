#pragma once

#include <string>

namespace rux::ipc {

constexpr const char* kServiceSocketPath = "/dev/socket/rux";

// The service's socket: "/dev/socket/rux". Host builds take RUX_SOCKET_PATH instead
// when it is set and not empty; device builds ignore it.
std::string socketPath();

}  // namespace rux::ipc
