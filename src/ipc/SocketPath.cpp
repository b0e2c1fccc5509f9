#include "ipc/SocketPath.h"

#include <cstdlib>

namespace rux::ipc {

std::string socketPath() {
#if defined(RUX_PLATFORM_HOST) && RUX_PLATFORM_HOST
    const char* path = std::getenv("RUX_SOCKET_PATH");
    if (path != nullptr && path[0] != '\0') return path;
#endif
    return kServiceSocketPath;
}

}  // namespace rux::ipc
