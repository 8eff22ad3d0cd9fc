#include "vexa/messaging/XSocketServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "messaging/Frame.h"
#include "messaging/SocketAddress.h"
#include "messaging/SocketChannel.h"
#include "util/UniqueFd.h"
#include "vexa/messaging/PeerPolicy.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

struct SlotTable {
  std::mutex mutex;
  int slots[XSocketServer::kMaxClients] = {};
};

SlotTable& slotTable() {
  static SlotTable* table = new SlotTable;
  return *table;
}

int takeSlot(int fd) {
  SlotTable& t = slotTable();
  std::lock_guard lock(t.mutex);
  for (int i = 0; i < XSocketServer::kMaxClients; ++i) {
    if (t.slots[i] == 0) {
      t.slots[i] = fd;
      return i;
    }
  }
  return -1;
}

}  // namespace

XSocketServer& XSocketServer::shared() {
  static std::shared_ptr<XSocketServer>* server =
      new std::shared_ptr<XSocketServer>(new XSocketServer("0.0.0.0", 13145));
  return **server;
}

std::shared_ptr<XSocketServer> XSocketServer::create(std::string host, uint16_t port) {
  return std::shared_ptr<XSocketServer>(new XSocketServer(std::move(host), port));
}

XSocketServer::XSocketServer(std::string host, uint16_t port)
    : host_(std::move(host)), port_(port) {}

XSocketServer::~XSocketServer() {
  stopListen();
  std::lock_guard lock(mutex_);
  for (int fd : refused_) ::close(fd);
}

std::string XSocketServer::host() const {
  std::lock_guard lock(mutex_);
  return host_;
}

void XSocketServer::setHost(const std::string& host) {
  std::lock_guard lock(mutex_);
  host_ = host;
}

void XSocketServer::setPort(uint16_t port) {
  if (port != port_.load()) port_ = port;
}

std::vector<int> XSocketServer::slots() {
  SlotTable& t = slotTable();
  std::lock_guard lock(t.mutex);
  return std::vector<int>(t.slots, t.slots + kMaxClients);
}

bool XSocketServer::startListen() {
  // A dotted IPv4 address (the design's), or an IPv6 one such as "::1".
  const std::string configured = host();
  const auto address =
      SocketAddress::parse(configured.empty() ? "127.0.0.1" : configured, port_.load());
  if (!address) return false;
  UniqueFd fd(::socket(address->family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return false;
  const int one = 1;
  ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (address->family() == AF_INET6) {
    ::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
  }
  if (::bind(fd.get(), address->get(), address->length) != 0 || ::listen(fd.get(), 10) != 0) {
    return false;
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  if (::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&bound), &length) == 0) {
    port_ = SocketAddress::portOf(bound);
  }
  socketFD_ = fd.release();  // closed by stopListen()
  isAccept_ = true;
  return true;
}

bool XSocketServer::setBlock(bool blocking) {
  const int fd = socketFD_.load();
  if (fd < 1) return false;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) return false;
  const int wanted = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
  return ::fcntl(fd, F_SETFL, wanted) == 0;
}

void XSocketServer::acceptConnect() {
  bool loggedExhaustion = false;
  while (isAccept_.load()) {
    const int listener = socketFD_.load();
    if (listener < 1) break;
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    const int fd = ::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (fd < 1) {
      if (fd == 0) ::close(fd);
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // Out of descriptors: the connection waits in the backlog until some are free.
        if (!loggedExhaustion) {
          SystemLog::log("cannot accept a connection: %s; retrying", std::strerror(errno));
          loggedExhaustion = true;
        }
        ::poll(nullptr, 0, 100);
      } else if (errno == EAGAIN) {
        pollfd wait{listener, POLLIN, 0};
        ::poll(&wait, 1, 100);  // a non-blocking listener: wait for the next peer
      }
      continue;
    }
    loggedExhaustion = false;
    SocketChannel::setNoDelay(fd);
    if (refusedByPolicy(fd)) continue;
    const int slot = takeSlot(fd);
    const std::string address = SocketAddress::textOf(peer);
    const uint16_t peerPort = SocketAddress::portOf(peer);
    if (slot >= 0) {
      auto client = XConnectClient::create(fd, weak_from_this());
      {
        std::lock_guard lock(mutex_);
        connectDict_[std::to_string(fd)] = client;
      }
      char text[160];
      std::snprintf(text, sizeof text, "The new client (%d) join success %s:%d", slot,
                    address.c_str(), peerPort);
      sendData(Message("ServerConnectCommand", {{"Result", text}}), fd);
      // Read only once greeted: what the peer's first message brings it (its removal report)
      // must not overtake the greeting.
      client->startReceiving();
    } else {
      sendData(Message("ServerRefuseCommand",
                       {{"Error",
                         "The number of clients added to the server reaches the maximum value and "
                         "can not be added!"}}),
               fd);
      std::lock_guard lock(mutex_);
      refused_.push_back(fd);
    }
  }
}

bool XSocketServer::refusedByPolicy(int fd) {
  const auto policy = peerPolicy();
  if (!policy) return false;
  const auto why = policy->refusal(fd);
  if (!why) return false;
  // Told why, briefly (the refusal must not hold up the accept loop), and closed.
  SocketChannel channel(fd, std::chrono::milliseconds(100));
  Frame::write(channel, Message("ServerRefuseCommand", {{"Error", *why}}));
  ::close(fd);
  return true;
}

void XSocketServer::setPeerPolicy(std::shared_ptr<PeerPolicy> policy) {
  std::lock_guard lock(mutex_);
  peerPolicy_ = std::move(policy);
}

std::shared_ptr<PeerPolicy> XSocketServer::peerPolicy() const {
  std::lock_guard lock(mutex_);
  return peerPolicy_;
}

void XSocketServer::stopListen() {
  broadcast(Message("quit"));
  isAccept_ = false;
  const int fd = socketFD_.exchange(0);
  if (fd >= 1) {
    ::shutdown(fd, SHUT_RDWR);  // wakes an accept() under way
    ::close(fd);
  }
}

void XSocketServer::sendData(const Message& message, int connectFD) {
  // A recorded connection serializes its own writes; anything else is written directly.
  std::shared_ptr<XConnectClient> client;
  {
    std::lock_guard lock(mutex_);
    auto it = connectDict_.find(std::to_string(connectFD));
    if (it != connectDict_.end()) client = it->second;
  }
  if (client) {
    client->sendData(message);
    return;
  }
  SocketChannel channel(connectFD, sendTimeout());
  Frame::write(channel, message);
}

void XSocketServer::broadcast(const Message& message) {
  for (const auto& [key, client] : connectDict()) {
    if (client && client->connectFD() != 0) client->sendData(message);
  }
}

std::shared_ptr<XConnectClient> XSocketServer::getConnetClientByIdentity(
    const std::string& identity) {
  for (const auto& [key, client] : connectDict()) {
    if (client && client->connectFD() != 0 && client->identity() == identity) return client;
  }
  return nullptr;
}

bool XSocketServer::whenIdentified(const std::string& identity, const Identified& then) {
  std::shared_ptr<XConnectClient> found;
  {
    std::lock_guard lock(mutex_);
    for (const auto& weak : identified_) {
      auto client = weak.lock();
      if (client && client->connectFD() != 0 && client->identity() == identity) {
        found = client;
        break;
      }
    }
    if (!found) return waiting_.try_emplace(identity, then).second;
    // Its hostConnected sends what this call would: sending it again would tell it twice.
    if (std::find(serving_.begin(), serving_.end(), found.get()) != serving_.end()) return false;
  }
  then(found);
  return true;
}

void XSocketServer::identified(const std::string& identity,
                               const std::shared_ptr<XConnectClient>& connection,
                               const std::function<void()>& otherwise) {
  Identified waiting;
  {
    std::lock_guard lock(mutex_);
    std::erase_if(identified_, [](const auto& weak) { return weak.expired(); });
    identified_.push_back(connection);
    if (auto found = waiting_.find(identity); found != waiting_.end()) {
      waiting = std::move(found->second);
      waiting_.erase(found);
    } else if (otherwise) {
      serving_.push_back(connection.get());
    }
  }
  if (waiting) {
    waiting(connection);
    return;
  }
  if (!otherwise) return;
  otherwise();
  std::lock_guard lock(mutex_);
  std::erase(serving_, connection.get());
}

void XSocketServer::clearClient() {
  std::lock_guard lock(mutex_);
  std::vector<std::string> closed;
  for (const auto& [key, client] : connectDict_) {
    if (!client || client->connectFD() == 0) closed.push_back(key);
  }
  SlotTable& t = slotTable();
  std::lock_guard slotLock(t.mutex);
  for (int& slot : t.slots) {
    if (slot != 0 &&
        std::find(closed.begin(), closed.end(), std::to_string(slot)) != closed.end()) {
      slot = 0;
    }
  }
  for (const auto& key : closed) connectDict_.erase(key);
}

std::map<std::string, std::shared_ptr<XConnectClient>> XSocketServer::connectDict() const {
  std::lock_guard lock(mutex_);
  return connectDict_;
}

void XSocketServer::setCommandHandler(std::weak_ptr<XCommandHandler> handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

std::shared_ptr<XCommandHandler> XSocketServer::commandHandler() const {
  std::lock_guard lock(mutex_);
  return handler_.lock();
}

void XSocketServer::setDelegate(std::shared_ptr<void> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

}  // namespace vexa
