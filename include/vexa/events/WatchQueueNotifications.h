#pragma once

#include <cstdint>

#include "vexa/Export.h"

namespace vexa {

// The event kinds an FSWatchQueue reports, as subscription bits, and the names of the
// notifications it posts for them. One event's names are listed in the order below.
namespace watchqueue {
constexpr uint32_t kRename = 0x20;
constexpr uint32_t kWrite = 0x02;
constexpr uint32_t kDelete = 0x01;
constexpr uint32_t kAttributeChange = 0x08;
constexpr uint32_t kSizeIncrease = 0x04;
constexpr uint32_t kLinkCountChange = 0x10;
constexpr uint32_t kAccessRevocation = 0x40;
constexpr uint32_t kAll = 0x7F;
}  // namespace watchqueue

VEXA_EXPORT extern const char* const WatchQueueRenameNotification;
VEXA_EXPORT extern const char* const WatchQueueWriteNotification;
VEXA_EXPORT extern const char* const WatchQueueDeleteNotification;
VEXA_EXPORT extern const char* const WatchQueueAttributeChangeNotification;
VEXA_EXPORT extern const char* const WatchQueueSizeIncreaseNotification;
VEXA_EXPORT extern const char* const WatchQueueLinkCountChangeNotification;
VEXA_EXPORT extern const char* const WatchQueueAccessRevocationNotification;

}  // namespace vexa
