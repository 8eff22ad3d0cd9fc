#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/messaging/Message.h"

namespace vexa {

class XConnectClient;
class XCommandHandler;
class PeerPolicy;

// The agent's TCP server for the host application and other clients.
//
// At most 10 connections hold a slot at a time (one slot table for the whole process); the
// eleventh is told "ServerRefuseCommand" and left open. The loading process calls startListen()
// and runs acceptConnect() on a thread of its own; stopListen() ends it. Monitors find the host's
// connection with getConnetClientByIdentity(kHostIdentity) and send on it. Safe from any thread.
class VEXA_EXPORT XSocketServer : public std::enable_shared_from_this<XSocketServer> {
 public:
  static constexpr const char* kHostIdentity = "com.tarnwick.Vexa-Sweeper";
  static constexpr int kMaxClients = 10;
  static constexpr std::chrono::milliseconds kDefaultSendTimeout{5000};

  static XSocketServer& shared();
  static std::shared_ptr<XSocketServer> create(std::string host = "0.0.0.0", uint16_t port = 13145);
  ~XSocketServer();
  XSocketServer(const XSocketServer&) = delete;
  XSocketServer& operator=(const XSocketServer&) = delete;

  std::string host() const;
  // Takes effect at the next startListen() (the agent binds the shared server to loopback).
  void setHost(const std::string& host);
  // The port; after listening on port 0, the one the system chose.
  uint16_t port() const { return port_.load(); }
  void setPort(uint16_t port);
  int socketFD() const { return socketFD_.load(); }
  bool isAccept() const { return isAccept_.load(); }

  // Binds and listens (backlog 10); an empty host means 127.0.0.1, and an IPv6 address such as
  // "::1" listens on IPv6 only. False on any failure.
  bool startListen();
  bool setBlock(bool blocking);
  // The accept loop: blocks the calling thread until stopListen(). Running out of descriptors
  // makes it pause and try again; it keeps serving.
  void acceptConnect();
  // Broadcasts "quit", ends the accept loop and closes the listening socket.
  void stopListen();

  // How long one message may take to go out to a client. A client that reads nothing for that
  // long (suspended, or stuck) has its connection closed and its slot freed, so no sender waits
  // on it for longer. Applies to every send from the next one on.
  std::chrono::milliseconds sendTimeout() const { return sendTimeout_.load(); }
  void setSendTimeout(std::chrono::milliseconds timeout) { sendTimeout_.store(timeout); }

  void sendData(const Message& message, int connectFD);
  void broadcast(const Message& message);
  // The first open connection whose peer identified itself as `identity`.
  std::shared_ptr<XConnectClient> getConnetClientByIdentity(const std::string& identity);
  using Identified = std::function<void(const std::shared_ptr<XConnectClient>&)>;
  // Calls `then` once with a connection whose peer identified itself as `identity`: at once, on
  // the calling thread, when one has; else on the receiving thread of the next one that does,
  // without any time limit. For a host connection the call takes the place of the command
  // handler's hostConnected. At most one call waits per identity, and a connection whose
  // hostConnected is still running counts as being served: in both cases `then` is dropped and
  // the answer is false. `then` must not call whenIdentified.
  bool whenIdentified(const std::string& identity, const Identified& then);
  // A connection's peer identified itself: counts the connection as identified and, on the
  // calling thread, makes the call waiting for that identity, or `otherwise` when none waited.
  void identified(const std::string& identity, const std::shared_ptr<XConnectClient>& connection,
                  const std::function<void()>& otherwise);
  // Drops closed connections and frees their slots.
  void clearClient();
  // Decimal socket descriptor -> connection.
  std::map<std::string, std::shared_ptr<XConnectClient>> connectDict() const;

  // Who may connect: asked for every accepted connection before it takes a slot. None by
  // default (everyone who can reach the port); the agent admits only its own user.
  void setPeerPolicy(std::shared_ptr<PeerPolicy> policy);
  std::shared_ptr<PeerPolicy> peerPolicy() const;

  void setCommandHandler(std::weak_ptr<XCommandHandler> handler);
  std::shared_ptr<XCommandHandler> commandHandler() const;
  void setDelegate(std::shared_ptr<void> delegate);

  // The process-wide slot table (descriptors; 0 is a free slot).
  static std::vector<int> slots();

 private:
  XSocketServer(std::string host, uint16_t port);
  // Closes the connection after telling it why, when the policy refuses it.
  bool refusedByPolicy(int fd);

  std::string host_;  // guarded by mutex_
  std::atomic<uint16_t> port_;
  std::atomic<int> socketFD_{0};
  std::atomic<bool> isAccept_{true};
  std::atomic<std::chrono::milliseconds> sendTimeout_{kDefaultSendTimeout};
  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<XConnectClient>> connectDict_;
  std::vector<int> refused_;  // left open as refused; closed when the server goes
  std::weak_ptr<XCommandHandler> handler_;
  std::map<std::string, Identified> waiting_;
  std::vector<std::weak_ptr<XConnectClient>> identified_;
  std::vector<const XConnectClient*> serving_;  // connections whose `otherwise` runs
  std::shared_ptr<PeerPolicy> peerPolicy_;
  std::shared_ptr<void> delegate_;
};

}  // namespace vexa
