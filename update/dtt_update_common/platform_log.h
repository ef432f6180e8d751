// A line of the device's log, written under the name of the calling function.
#ifndef UPDATE_DTT_UPDATE_COMMON_PLATFORM_LOG_H
#define UPDATE_DTT_UPDATE_COMMON_PLATFORM_LOG_H

#include "platform/platform.h"

#define PLATFORM_LOG(...) PLATFORM_LOG_AS(__func__, __VA_ARGS__)

// For a file whose lines all name one operation, which it defines as OPERATION.
#define OPERATION_LOG(...) PLATFORM_LOG_AS(OPERATION, __VA_ARGS__)

// For code that two engines share and that logs in the name of the one that runs.
#define PLATFORM_LOG_AS(func, ...) aplog_printf(0, "imgdeploy", func, __VA_ARGS__)

#endif
