#pragma once

// Symbols are hidden by default; everything a host may call carries this mark.
#if defined(__GNUC__)
#define VEXA_EXPORT __attribute__((visibility("default")))
#else
#define VEXA_EXPORT
#endif
