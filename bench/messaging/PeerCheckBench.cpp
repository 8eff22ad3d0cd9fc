// What the agent's peer check adds to accepting a connection: one loopback connection made and
// accepted per iteration, with and without asking the kernel who owns the peer.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "messaging/TcpConnector.h"
#include "util/UniqueFd.h"
#include "vexa/messaging/PeerPolicy.h"

namespace {

vexa::UniqueFd loopbackListener(uint16_t& port) {
  vexa::UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::listen(fd.get(), 64);
  socklen_t length = sizeof address;
  ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length);
  port = ntohs(address.sin_port);
  return fd;
}

void acceptLoopback(benchmark::State& state, bool check) {
  uint16_t port = 0;
  const vexa::UniqueFd listener = loopbackListener(port);
  const auto policy = vexa::PeerPolicy::sameUser();
  for (auto _ : state) {
    vexa::UniqueFd client = vexa::TcpConnector::connect("127.0.0.1", port);
    vexa::UniqueFd accepted(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (check && policy->refusal(accepted.get())) state.SkipWithError("own connection refused");
  }
}

void BM_AcceptLoopback(benchmark::State& state) { acceptLoopback(state, false); }
void BM_AcceptLoopbackWithPeerCheck(benchmark::State& state) { acceptLoopback(state, true); }

}  // namespace

BENCHMARK(BM_AcceptLoopback)->Iterations(1000)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_AcceptLoopbackWithPeerCheck)
    ->Iterations(1000)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
