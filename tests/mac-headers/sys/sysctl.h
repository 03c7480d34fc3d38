// Stand-in (see objc/NSObject.h): the kernel process queries the hook makes. Only the
// fields it reads are declared; the real structures are larger.
#pragma once
#include <stddef.h>
#include <sys/types.h>

#define CTL_KERN 1
#define KERN_ARGMAX 8
#define KERN_PROC 14
#define KERN_PROC_PID 1
#define KERN_PROCARGS2 49
#define MAXCOMLEN 16

struct extern_proc {
    char p_comm[MAXCOMLEN + 1];
};
struct eproc {
    pid_t e_ppid;
};
struct kinfo_proc {
    struct extern_proc kp_proc;
    struct eproc kp_eproc;
};

extern "C" int sysctl(int* name, unsigned int namelen, void* oldp, size_t* oldlenp, void* newp, size_t newlen);
