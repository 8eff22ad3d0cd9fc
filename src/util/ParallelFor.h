#pragma once

#include <cstddef>
#include <functional>

namespace vexa {

class DispatchQueue;

// Calls body(i) once for every i in [0, count): on the calling thread and on up to
// (processors - 1) workers of `queue`, one worker for every `perWorker` items, and returns when
// every call has returned. An exception thrown by one call is caught and logged; the other
// items still run and the wait always ends. `queue` must be concurrent (a serial queue would
// leave the helpers to run one after another, which is correct but pointless).
void parallelFor(DispatchQueue& queue, std::size_t count,
                 const std::function<void(std::size_t)>& body, std::size_t perWorker = 32);

}  // namespace vexa
