// Log front of the SDK core: SdkLog lines with the tag "RuxSdk", e.g.
//   |RuxSdk|SdkClientBase::handleEvent:97 Reconnect client
#pragma once

#include "log/SdkLog.h"

#define RUXSDK_LOG(...) SDK_LOG(3, "RuxSdk", __VA_ARGS__)
