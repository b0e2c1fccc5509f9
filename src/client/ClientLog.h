// Log front of the request client. The conversions and builders are MavoClient's helpers
// kept in files of their own; their lines carry MavoClient's tag and name so the log
// reads the same whichever file a line comes from:
//   |MavoClient|MavoClient::convertSlotIdToProto:57 Request received on UNKNOWN SlotId type
#pragma once

#include "log/SdkLog.h"

namespace rux::client {

inline constexpr int kLogLevel = 3;
inline constexpr const char* kLogTag = "MavoClient";
inline constexpr const char* kLogSource = "src/client/MavoClient.cpp";

}  // namespace rux::client

#define MAVO_LOG(...)                                                      \
    ::rux::SdkLog::print(::rux::client::kLogLevel, ::rux::client::kLogTag, \
                         ::rux::client::kLogSource, __func__, __LINE__, __VA_ARGS__)
