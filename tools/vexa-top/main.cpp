// vexa-top: the screens of processes ProcessStatusEx reads (see vexa/status/TopProgram.h).
#include "vexa/status/TopProgram.h"

int main(int argc, char** argv) { return vexatop_run(argc, argv); }
