// vexa-host: the host application's side of the channel, for people and tests. Connects to an
// agent, identifies itself with "ConnectCommand", prints every message it receives as one line
// of compact JSON, and sends each JSON line read from standard input as a frame. Exits 0 when the
// agent says "quit" or closes the connection.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "vexa/messaging/HostChannel.h"
#include "vexa/messaging/Json2Model.h"
#include "vexa/messaging/XSocketServer.h"

namespace {

int usage() {
  std::fprintf(
      stderr,
      "usage: vexa-host [--host ADDR] [--port N] [--identity ID] [--install-path DIR]...\n");
  return 2;
}

int run(int argc, char** argv) {
  std::string host = "127.0.0.1";
  long port = 13145;
  std::string identity = vexa::XSocketServer::kHostIdentity;
  nlohmann::json installPaths = nlohmann::json::array();
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (i + 1 >= argc) return usage();
    if (arg == "--host") {
      host = argv[++i];
    } else if (arg == "--port") {
      char* end = nullptr;
      port = std::strtol(argv[++i], &end, 10);
      if (*end != 0 || port < 1 || port > 65535) return usage();
    } else if (arg == "--identity") {
      identity = argv[++i];
    } else if (arg == "--install-path") {
      installPaths.push_back(argv[++i]);
    } else {
      return usage();
    }
  }

  auto channel = vexa::HostChannel::connect(host, static_cast<uint16_t>(port));
  if (!channel) {
    std::fprintf(stderr, "vexa-host: cannot connect to %s:%ld\n", host.c_str(), port);
    return 1;
  }
  channel->send(
      vexa::Message("ConnectCommand", {{"Identity", identity}, {"InstallPaths", installPaths}}));

  // Standard input: one JSON message per line, sent as it comes.
  std::thread([&channel] {
    std::string line;
    while (std::getline(std::cin, line)) {
      auto message = vexa::Message::fromJSON(line);
      if (!message) {
        std::fprintf(stderr, "vexa-host: not a message: %s\n", line.c_str());
        continue;
      }
      channel->send(*message);
    }
  }).detach();

  for (;;) {
    std::string text;
    const auto received = channel->receive(text);
    if (received == vexa::HostChannel::Received::Closed) break;
    if (received == vexa::HostChannel::Received::Rejected) return 1;
    auto parsed = vexa::JSONObject(text);
    const std::string line = parsed ? vexa::JSONString(*parsed).value_or(text) : text;
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    if (parsed && parsed->is_object() && parsed->value("name", nlohmann::json()) == "quit") break;
  }
  channel->shutdown();
  std::_Exit(0);  // the reader of standard input may still be blocked
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {  // out of memory, say: said, not a crash
    std::fprintf(stderr, "vexa-host: %s\n", e.what());
    return 1;
  }
}
