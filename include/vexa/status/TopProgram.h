#pragma once

#include "vexa/Export.h"

// The body of the bundled vexa-top program, which ProcessStatusEx keeps running: it prints the
// invoking user's processes as screens of columns, one screen per interval, each with a single
// write() so that a reader on a pipe receives whole screens.
//
//   vexa-top -stats pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power [-s SECONDS] [-l SCREENS]
//            [-pid PID]...
//
// -s is the interval (1 second by default, fractions allowed), -l the number of screens (0, the
// default, runs until killed), -pid limits the screens to the given processes. Answers the
// program's exit status: 0, 1 when its output is closed, 2 for a bad command line.

#ifdef __cplusplus
extern "C" {
#endif

VEXA_EXPORT int vexatop_run(int argc, char** argv);

#ifdef __cplusplus
}
#endif
