// Stand-in (see objc/NSObject.h): the process path call the hook uses.
#pragma once
#include <stdint.h>
#include <sys/types.h>

#define PROC_PIDPATHINFO_MAXSIZE (4 * 1024)
extern "C" int proc_pidpath(int pid, void* buffer, uint32_t buffersize);
