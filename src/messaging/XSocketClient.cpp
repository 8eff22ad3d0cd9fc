#include "vexa/messaging/XSocketClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "messaging/Frame.h"
#include "messaging/SocketChannel.h"
#include "messaging/TcpConnector.h"
#include "util/RunGuarded.h"

namespace vexa {

struct XSocketClient::State {
  // One connection: its socket, closed by the receiving thread when the thread ends.
  struct Connection {
    int fd = -1;
    std::atomic<bool> open{true};
    std::mutex writing;  // held while the socket is written or closed
    bool closed = false;
  };

  State(std::string h, uint16_t p) : host(std::move(h)), port(p) {}

  void closeConnect() {
    std::shared_ptr<Connection> c;
    {
      std::lock_guard lock(mutex);
      c = std::move(connection);
      isConnect = false;
      isRecv = false;
    }
    if (!c) return;
    std::lock_guard write(c->writing);
    // The receiving thread wakes, ends and closes the socket.
    if (c->open.exchange(false) && !c->closed) ::shutdown(c->fd, SHUT_RDWR);
  }

  void handleMessage(const std::string& text) {
    auto message = Message::fromJSON(text);
    if (message && message->name() == "quit") closeConnect();
  }

  // The receiving loop. A wait that reports data reads and drops it (only the end of the
  // stream matters there); an interrupted wait leaves the socket marked, and then one whole
  // frame is read and handled.
  static void recvData(const std::shared_ptr<State>& state, const std::shared_ptr<Connection>& c) {
    SocketChannel channel(c->fd);
    while (c->open.load()) {
      pollfd wait{c->fd, POLLIN, 0};
      const int ready = ::poll(&wait, 1, 10000);
      if (ready == 1) {
        uint8_t buffer[Frame::kPieceSize];
        auto got = channel.receive(buffer, sizeof buffer, false);
        if (got.status == ByteChannel::Status::Closed ||
            got.status == ByteChannel::Status::Failed) {
          break;
        }
      } else if (ready < 0) {
        const Frame::ReadResult frame = Frame::read(channel);
        if (frame.status == Frame::Status::Closed || frame.status == Frame::Status::Rejected) break;
        if (frame.status == Frame::Status::Text) state->handleMessage(frame.text);
      }
    }
    if (c->open.exchange(false)) {  // the peer closed: this client is disconnected
      std::lock_guard lock(state->mutex);
      if (state->connection == c) {
        state->connection.reset();
        state->isConnect = false;
        state->isRecv = false;
      }
    }
  }

  const std::string host;
  const uint16_t port;
  std::mutex mutex;
  std::shared_ptr<Connection> connection;
  bool isConnect = false;
  bool isRecv = false;
};

XSocketClient& XSocketClient::shared() {
  static XSocketClient* client = new XSocketClient();
  return *client;
}

XSocketClient::XSocketClient() : state_(std::make_shared<State>("0.0.0.0", 13145)) {
  state_->isRecv = true;
}

XSocketClient::XSocketClient(std::string host, uint16_t port)
    : state_(std::make_shared<State>(std::move(host), port)) {}

XSocketClient::~XSocketClient() { state_->closeConnect(); }

bool XSocketClient::isConnect() const {
  std::lock_guard lock(state_->mutex);
  return state_->isConnect;
}

void XSocketClient::setIsConnect(bool connected) {
  std::lock_guard lock(state_->mutex);
  state_->isConnect = connected;
}

int XSocketClient::socketFD() const {
  std::lock_guard lock(state_->mutex);
  return state_->connection ? state_->connection->fd : 0;
}

bool XSocketClient::connectServer() {
  std::lock_guard lock(state_->mutex);
  UniqueFd fd = TcpConnector::connect(state_->host, state_->port);
  state_->isConnect = fd.ok();
  state_->isRecv = fd.ok();
  if (!fd) return false;
  auto connection = std::make_shared<State::Connection>();
  connection->fd = fd.release();  // closed by the receiving thread
  state_->connection = connection;
  std::thread([state = state_, connection] {
    runGuarded("socket client", [&] { State::recvData(state, connection); });
    std::lock_guard write(connection->writing);
    connection->closed = true;
    ::close(connection->fd);
  }).detach();
  return true;
}

bool XSocketClient::sendData(const Message& message) {
  std::shared_ptr<State::Connection> connection;
  {
    std::lock_guard lock(state_->mutex);
    connection = state_->connection;
  }
  if (!connection && connectServer()) {
    std::lock_guard lock(state_->mutex);
    connection = state_->connection;
  }
  if (!connection) return false;
  std::lock_guard write(connection->writing);
  if (connection->closed || !connection->open.load()) return false;
  SocketChannel channel(connection->fd);
  return Frame::write(channel, message);
}

void XSocketClient::handleMessage(const std::string& text) { state_->handleMessage(text); }

void XSocketClient::closeConnect() { state_->closeConnect(); }

}  // namespace vexa
