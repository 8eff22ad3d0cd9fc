// Arbitrary bytes as the kernel's answers: an inotify read buffer, and a socket-diagnostics
// reply to the agent's question about a peer. Both readers must stay within the bytes, whatever
// lengths the records claim.
#include <cstdint>
#include <span>

#include "events/linux/InotifyRecord.h"
#include "messaging/linux/InetDiag.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const auto& record : vexa::InotifyRecord::parse(reinterpret_cast<const char*>(data), size)) {
    if (record.name.size() > size) __builtin_trap();
  }
  vexa::SocketTuple tuple;
  tuple.localAddress = {127, 0, 0, 1};
  tuple.remoteAddress = {127, 0, 0, 1};
  tuple.localPort = 40133;
  tuple.remotePort = 40134;
  for (uint32_t sequence : {0u, 7u}) {
    vexa::InetDiag::parsePeerReply(std::span<const uint8_t>(data, size), tuple, sequence);
  }
  tuple.family = vexa::SocketTuple::Family::IPv6;
  vexa::InetDiag::parsePeerReply(std::span<const uint8_t>(data, size), tuple, 7);
  return 0;
}
