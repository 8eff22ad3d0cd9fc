#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vexa/Export.h"
#include "vexa/messaging/Message.h"

namespace vexa {

// The connecting end of the agent's channel. Connects on the first send, writes frames, and
// keeps a receiving thread that closes the connection when the server closes its end. The
// receiving thread only waits for data and drops what it reads, parsing a frame only when its
// wait is interrupted: a client that wants to read the server's messages reads the socket
// itself. Safe from any thread.
class VEXA_EXPORT XSocketClient {
 public:
  static XSocketClient& shared();
  // Host "0.0.0.0", port 13145, ready to receive.
  XSocketClient();
  // The given host and port, with both flags cleared.
  XSocketClient(std::string host, uint16_t port);
  ~XSocketClient();
  XSocketClient(const XSocketClient&) = delete;
  XSocketClient& operator=(const XSocketClient&) = delete;

  // Connects to the host (127.0.0.1 when empty; "0.0.0.0" reaches this machine) and starts the
  // receiving thread. Answers isConnect().
  bool connectServer();
  // Connects first when needed; false when the message could not be sent.
  bool sendData(const Message& message);
  void handleMessage(const std::string& text);
  void closeConnect();

  bool isConnect() const;
  void setIsConnect(bool connected);
  int socketFD() const;

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the receiving thread
};

}  // namespace vexa
