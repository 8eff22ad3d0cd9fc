#include "vexa/messaging/XConnectClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "messaging/Frame.h"
#include "messaging/SocketChannel.h"
#include "util/RunGuarded.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

std::shared_ptr<XConnectClient> XConnectClient::create(int connectFD,
                                                       std::weak_ptr<XSocketServer> delegate) {
  return std::shared_ptr<XConnectClient>(new XConnectClient(connectFD, std::move(delegate)));
}

void XConnectClient::startReceiving() {
  // The thread keeps the connection alive until it ends.
  std::thread([client = shared_from_this()] { client->recvData(); }).detach();
}

XConnectClient::XConnectClient(int fd, std::weak_ptr<XSocketServer> delegate)
    : fd_(fd), connectFD_(fd), delegate_(std::move(delegate)) {}

XConnectClient::~XConnectClient() = default;

std::string XConnectClient::identity() const {
  std::lock_guard lock(identityMutex_);
  return identity_;
}

bool XConnectClient::sendData(const Message& message) {
  auto payload = Frame::payloadOf(message);  // compressed before the connection is held
  if (!payload) return false;
  const auto server = delegate_.lock();
  const auto timeout = server ? server->sendTimeout() : XSocketServer::kDefaultSendTimeout;
  std::lock_guard lock(sendMutex_);
  if (connectFD_.load() <= 0) return false;
  SocketChannel channel(fd_, timeout);
  if (Frame::writePayload(channel, *payload)) return true;
  if (channel.timedOut()) {
    // Part of a frame may be out, so the stream cannot carry another: the connection goes,
    // and its receiving thread frees the slot.
    SystemLog::log("a client (\"%s\") read nothing for %lld ms; closing its connection",
                   identity().c_str(), static_cast<long long>(timeout.count()));
    if (connectFD_.exchange(0) > 0) ::shutdown(fd_, SHUT_RDWR);
    isRecv_ = false;
  }
  return false;
}

void XConnectClient::closeConnect() {
  isRecv_ = false;
  std::lock_guard lock(sendMutex_);
  if (connectFD_.exchange(0) > 0) ::shutdown(fd_, SHUT_RDWR);  // wakes the receiving thread
}

void XConnectClient::recvData() {
  runGuarded("connection", [this] {
    try {
      SocketChannel channel(fd_);
      while (isRecv_.load()) {
        const Frame::ReadResult frame = Frame::read(channel);
        if (frame.status == Frame::Status::Closed || frame.status == Frame::Status::Rejected) {
          closeConnect();
          if (auto server = delegate_.lock()) server->clearClient();
          break;
        }
        if (frame.status == Frame::Status::Text) handleMessage(frame.text);
      }
    } catch (...) {
      closeConnect();
    }
  });
  closeConnect();
  std::lock_guard lock(sendMutex_);
  ::close(fd_);
}

void XConnectClient::handleMessage(const std::string& text) {
  if (text.empty()) return;
  auto message = Message::fromJSON(text);
  if (!message) return;
  const std::string name = message->name();
  const nlohmann::json& parms = message->parms();
  auto server = delegate_.lock();
  auto handler = server ? server->commandHandler() : nullptr;
  if (name == "ConnectCommand") {
    std::string identity;
    if (parms.is_object() && parms.contains("Identity") && parms["Identity"].is_string()) {
      identity = parms["Identity"].get<std::string>();
    }
    {
      std::lock_guard lock(identityMutex_);
      identity_ = identity;
    }
    const bool host = identity == XSocketServer::kHostIdentity;
    if (host && handler && parms.contains("InstallPaths")) {
      handler->setInstallPaths(parms["InstallPaths"]);
    }
    auto self = shared_from_this();
    // Whoever waited for the host sends it what it needs; otherwise the handler does.
    std::function<void()> otherwise;
    if (host && handler) otherwise = [handler, self] { handler->hostConnected(self); };
    if (server) {
      server->identified(identity, self, otherwise);
    } else if (otherwise) {
      otherwise();
    }
  } else if (name == "quit") {
    closeConnect();
  } else if (name == "ForceRemoveSuccessCommand") {
    if (parms.is_object() && parms.contains("Path") && parms["Path"].is_array() &&
        !parms["Path"].empty() && handler) {
      handler->clearForceRemovedApp(parms["Path"]);
    }
  }
}

}  // namespace vexa
