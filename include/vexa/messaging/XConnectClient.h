#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "vexa/Export.h"
#include "vexa/messaging/Message.h"

namespace vexa {

class XSocketServer;

// One accepted connection of the agent's server, with a receiving thread of its own.
//
// The peer becomes findable by identity once it has sent "ConnectCommand". Frame writes are
// serialized per connection, so any thread may send. The receiving thread owns the socket and
// closes it when it ends; closeConnect() makes it end.
class VEXA_EXPORT XConnectClient : public std::enable_shared_from_this<XConnectClient> {
 public:
  // A connection over the socket; nothing is read (nor the socket closed) before
  // startReceiving().
  static std::shared_ptr<XConnectClient> create(int connectFD,
                                                std::weak_ptr<XSocketServer> delegate);
  // Starts the thread that reads the peer's messages; it keeps the connection alive until the
  // peer goes. Once.
  void startReceiving();
  ~XConnectClient();
  XConnectClient(const XConnectClient&) = delete;
  XConnectClient& operator=(const XConnectClient&) = delete;

  // The socket; 0 once closed.
  int connectFD() const { return connectFD_.load(); }
  bool isRecv() const { return isRecv_.load(); }
  std::string identity() const;

  // Writes one frame; false when the connection is closed or the frame could not go.
  bool sendData(const Message& message);
  void handleMessage(const std::string& text);
  void closeConnect();

 private:
  XConnectClient(int fd, std::weak_ptr<XSocketServer> delegate);
  void recvData();

  const int fd_;
  std::atomic<int> connectFD_;
  std::atomic<bool> isRecv_{true};
  std::weak_ptr<XSocketServer> delegate_;
  std::mutex sendMutex_;  // also guards the socket's closing
  mutable std::mutex identityMutex_;
  std::string identity_;
};

}  // namespace vexa
