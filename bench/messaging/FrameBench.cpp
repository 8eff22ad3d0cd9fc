// One typical 300-byte message through the wire form, against raw zlib over a plain
// length-prefixed socket pair (the floor), and from the agent's server to a host over loopback.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "messaging/Frame.h"
#include "messaging/SocketChannel.h"
#include "support/RawClient.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"

namespace {

vexa::Message typical() {
  return vexa::Message(
      "InstallCommand",
      {{"AppFile",
        {{"appName", "Example Editor"},
         {"appPath", "/home/user/.local/share/applications/org.example.Editor.desktop"},
         {"appVersion", "4.2.1"},
         {"appBundleIdentifer", "org.example.Editor"},
         {"appSize", 184320512},
         {"isSupportPlatform", true},
         {"needForceRemove", false}}}});
}

void FrameRoundTrip_library(benchmark::State& state) {
  int pair[2];
  socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair);
  vexa::SocketChannel out(pair[0]), in(pair[1]);
  const vexa::Message message = typical();
  for (auto _ : state) {
    vexa::Frame::write(out, message);
    auto frame = vexa::Frame::read(in);
    benchmark::DoNotOptimize(vexa::Message::fromJSON(frame.text));
  }
  close(pair[0]);
  close(pair[1]);
}

void FrameRoundTrip_floor(benchmark::State& state) {
  int pair[2];
  socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair);
  const std::string text = *typical().JSONText();
  z_stream d{}, i{};
  deflateInit2(&d, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  inflateInit2(&i, 47);
  std::vector<uint8_t> packed(deflateBound(&d, text.size()) + 4), plain(text.size() * 2);
  for (auto _ : state) {
    deflateReset(&d);
    d.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    d.avail_in = static_cast<uInt>(text.size());
    d.next_out = packed.data() + 4;
    d.avail_out = static_cast<uInt>(packed.size() - 4);
    deflate(&d, Z_FINISH);
    const auto length = static_cast<uint32_t>(d.total_out);
    std::memcpy(packed.data(), &length, 4);
    send(pair[0], packed.data(), 4, 0);
    send(pair[0], packed.data() + 4, length, 0);
    uint32_t got;
    recv(pair[1], &got, 4, MSG_WAITALL);
    std::vector<uint8_t> payload(got);
    recv(pair[1], payload.data(), got, MSG_WAITALL);
    inflateReset(&i);
    i.next_in = payload.data();
    i.avail_in = got;
    i.next_out = plain.data();
    i.avail_out = static_cast<uInt>(plain.size());
    inflate(&i, Z_FINISH);
    benchmark::DoNotOptimize(plain.data());
  }
  deflateEnd(&d);
  inflateEnd(&i);
  close(pair[0]);
  close(pair[1]);
}

// The server sends to the identified host; the host reads each frame as it arrives.
void AgentToHost(benchmark::State& state) {
  auto server = vexa::XSocketServer::create("127.0.0.1", 0);
  server->startListen();
  std::thread acceptor([&] { server->acceptConnect(); });
  vexa::test::RawClient host(server->port());
  host.receive();  // greeting
  host.send(vexa::Message("ConnectCommand", {{"Identity", vexa::XSocketServer::kHostIdentity}}));
  std::shared_ptr<vexa::XConnectClient> connection;
  while (!(connection = server->getConnetClientByIdentity(vexa::XSocketServer::kHostIdentity))) {
    std::this_thread::yield();
  }
  const vexa::Message message = typical();
  std::vector<double> latencies;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    connection->sendData(message);
    host.receive();
    latencies.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(latencies.begin(), latencies.end());
  if (!latencies.empty()) {
    state.counters["p50_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] = latencies[latencies.size() * 99 / 100];
  }
  state.counters["msgs_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  server->stopListen();
  acceptor.join();
}

}  // namespace

BENCHMARK(FrameRoundTrip_library)->Name("FrameRoundTrip300/library");
BENCHMARK(FrameRoundTrip_floor)->Name("FrameRoundTrip300/floor");
BENCHMARK(AgentToHost)->Name("AgentToHostLoopback")->UseRealTime();
