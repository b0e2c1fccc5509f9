// Identities and kinds shared by both ends of the IPC transport.
#pragma once

#include <cstdint>

namespace rux::ipc {

// Process identities carried in every frame header. The service is 1; the SDK client
// types map to 101..108 (108 is the fall-back for a type without a process of its own).
enum ProcessId : unsigned long {
    PROCESS_ID_SERVICE = 1,
    PROCESS_ID_CLIENT_101 = 101,  // the request client
    PROCESS_ID_CLIENT_102 = 102,
    PROCESS_ID_CLIENT_104 = 104,
    PROCESS_ID_CLIENT_105 = 105,
    PROCESS_ID_CLIENT_106 = 106,
    PROCESS_ID_CLIENT_107 = 107,
    PROCESS_ID_CLIENT_DEFAULT = 108,
};

// Client kind as carried in a SendBlobMessage: 0 (none) and 4..9 are meaningful; the
// request client is 4. Any 32-bit value travels unchanged.
enum RuxSdkType : uint32_t {
    RUX_SDK_TYPE_NONE = 0,
    RUX_SDK_TYPE_REQUEST_CLIENT = 4,
};

}  // namespace rux::ipc
