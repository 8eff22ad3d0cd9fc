#pragma once

#include <stddef.h>
#include <stdint.h>

#include "vexa/Export.h"

// The memory-cleaning engine: plain functions with process-wide state. A cleaning fills memory
// in a child process (vexa-memclean, which the kernel's OOM killer picks first), so that a pass
// that goes too far costs the child, never the host. Each pass touches at most
// min(MemFree, MemAvailable − reserve, cgroup headroom − reserve) in 256 MiB chunks, where the
// reserve is max(5 % of MemTotal, 256 MiB), and ends early under memory pressure. A cleaning
// lasts at most ten seconds, measured on the monotonic clock: no signal and no interval timer
// of the host's is touched.

#ifdef __cplusplus
extern "C" {
#endif

// Bytes: total = free + active + inactive + wired, used = active + inactive + wired.
typedef struct memory_info {
  uint64_t total;
  uint64_t free;
  uint64_t used;
  uint64_t active;
  uint64_t wired;
  uint64_t inactive;
} memory_info;

// A chain of blocks; the head carries no data.
typedef struct memory_block {
  void* data;
  struct memory_block* next;
} memory_block;

// Fills `info` from /proc/meminfo: 0, or 0xFFFFFFFF when info is null or the read fails.
VEXA_EXPORT uint32_t get_memory_info(memory_info* info);

// The cleaning: unless *flag is non-zero at entry, runs the child for up to ten seconds and
// stops it (SIGTERM) as soon as *flag becomes 1; then waits one second and calls completion
// (which may be null). Blocks the calling thread throughout.
VEXA_EXPORT void clear_memory(void (*completion)(void), int oldSystem, int32_t* flag);
// One pass's chain: 11 blocks of 1 KiB then the budget's chunks (17 blocks of 1 KiB only when
// oldSystem is 1). Null when nothing could be allocated.
VEXA_EXPORT memory_block* auto_calloc(int32_t* flag, int oldSystem);
VEXA_EXPORT void auto_free(memory_block* head);
// Appends count + 1 blocks of `size` bytes filled with 0x01, stopping when *flag is 1 or an
// allocation fails; answers the last node (null for a null node).
VEXA_EXPORT memory_block* add_memory_block(memory_block* node, size_t size, int32_t count,
                                           int32_t* flag);
// Appends the budget's 256 MiB chunks after `tail`, touching each.
VEXA_EXPORT void add_memory_block_ex(memory_block* tail);

// Kept for callers of the older engine; the library itself uses none of them. signal_handler
// sets the stop flag; int_timer and uninit_time do nothing (no interval timer is armed).
VEXA_EXPORT void signal_handler(int signal);
VEXA_EXPORT void int_timer(void);
VEXA_EXPORT void uninit_time(void);
// Sends clearMemoryCompleted to the shared MemoryStatus's delegate.
VEXA_EXPORT void cleanmemorycomplete(void);
// Every version check of the older system answers as on a current one: true.
VEXA_EXPORT int SystemVersionCompare(int32_t gestalt, int32_t minor);

// The child's work (vexa-memclean): passes until ten seconds have gone by or a pass has no
// budget. `root` is where /proc and /sys are read ("/" normally).
VEXA_EXPORT int memclean_run(const char* root, int oldSystem);

#ifdef __cplusplus
}
#endif
