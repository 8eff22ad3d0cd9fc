// Banners as the notification server's bubbles: Notify, CloseNotification, GetCapabilities, and
// the ActionInvoked and NotificationClosed signals, on the thread that made the factory.
#include "banners/linux/NotificationServer.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <vector>

#include "banners/SystemBannerViews.h"
#include "vexa/banners/BannerViewFactory.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/Image.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr int kCallTimeoutMs = 5000;
constexpr int kLargestIcon = 128;

std::string validUtf8(const std::string& text) {
  g_autofree gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  return valid;
}

std::string escapedMarkup(const std::string& text) {
  g_autofree gchar* escaped = g_markup_escape_text(text.c_str(), -1);
  return escaped;
}

// The icon as the "image-data" hint: (width, height, rowstride, alpha, bits, channels, bytes),
// no larger than kLargestIcon on either edge.
GVariant* imageData(const Image& icon) {
  std::shared_ptr<const Image> image;
  const int width = icon.width();
  const int height = icon.height();
  if (width < 1 || height < 1) return nullptr;
  int w = width;
  int h = height;
  if (std::max(width, height) > kLargestIcon) {
    const double scale = static_cast<double>(kLargestIcon) / std::max(width, height);
    w = std::max(1, static_cast<int>(width * scale));
    h = std::max(1, static_cast<int>(height * scale));
    image = icon.scaled(w, h);
    if (!image) return nullptr;
  }
  const Image& source = image ? *image : icon;
  std::vector<guint8> bytes(static_cast<size_t>(w) * h * 4);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const uint32_t rgba = source.pixel(x, y);
      guint8* at = &bytes[(static_cast<size_t>(y) * w + x) * 4];
      at[0] = static_cast<guint8>(rgba >> 24);
      at[1] = static_cast<guint8>(rgba >> 16);
      at[2] = static_cast<guint8>(rgba >> 8);
      at[3] = static_cast<guint8>(rgba);
    }
  }
  GVariant* data = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
  return g_variant_new("(iiibii@ay)", w, h, w * 4, TRUE, 8, 4, data);
}

class ServerView;

// What the views share: the connection, the server's capabilities and the views by id.
struct Server : std::enable_shared_from_this<Server> {
  GDBusConnection* connection = nullptr;
  guint actionSubscription = 0;
  guint closedSubscription = 0;
  guint ownerWatch = 0;
  // The unique name of the server's current owner; signals from anyone else are not its. (Older
  // GLib matched a well-known sender name against any sender.)
  std::string ownerName;
  std::optional<std::vector<std::string>> capabilities;
  bool capabilitiesAsked = false;
  int callsUnanswered = 0;  // of every view, including views already gone
  std::vector<std::weak_ptr<ServerView>> waitingForCapabilities;
  std::map<uint32_t, std::weak_ptr<ServerView>> shown;

  ~Server();
  bool can(const std::string& capability) const {
    return capabilities &&
           std::find(capabilities->begin(), capabilities->end(), capability) != capabilities->end();
  }
  void askCapabilities();
  void answered(uint32_t id, const std::string& key);
  // The server closed bubble `id`, for whatever reason.
  void closed(uint32_t id);
  void ownerGone();
};

// One banner's bubble. Its state is kept in a shared object so that answers arriving after the
// view is gone find nothing.
class ServerView final : public BannerView, public std::enable_shared_from_this<ServerView> {
 public:
  ServerView(std::shared_ptr<Server> server, BannerView::Events& events)
      : server_(std::move(server)), events_(&events) {}
  ~ServerView() override {
    if (id_ != 0) closeOnServer();
  }

  void present(const UserNotification& banner) override;
  void moveOut() override {
    visible_ = false;
    if (id_ != 0) closeOnServer();
    pendingContent_.reset();
  }
  bool isVisible() const override { return visible_; }
  bool isAnimating() const override { return callsUnanswered_ > 0; }

  void send();
  void notified(std::optional<uint32_t> id);
  // The server's capabilities came (or did not: then there is no server to show the banner).
  void capabilitiesKnown(bool known);
  // The server showed the user's answer (key) or took the bubble away (gone).
  void answered(const std::string& key);
  void gone();
  void detach() { events_ = nullptr; }

 private:
  struct Content {
    std::string summary;
    std::string subtitle;
    std::string text;
    std::string desktopEntry;
    std::vector<std::pair<std::string, std::string>> buttons;  // key, label
    std::shared_ptr<const Image> icon;
  };
  void closeOnServer();
  // Tells the banner on a later turn of the loop, whatever the caller is doing now.
  void tellLater(std::function<void(BannerView::Events&)> tell);

  const std::shared_ptr<Server> server_;
  BannerView::Events* events_;
  std::optional<Content> pendingContent_;
  uint32_t id_ = 0;
  int callsUnanswered_ = 0;
  bool visible_ = false;
  bool told_ = false;  // the answer or the going away was told: nothing more is
};

struct CallContext {
  std::weak_ptr<ServerView> view;
  std::weak_ptr<Server> server;
};

void ServerView::present(const UserNotification& banner) {
  Content content;
  content.summary = validUtf8(banner.title());
  content.subtitle = validUtf8(banner.subtitle());
  content.text = validUtf8(banner.informativeText());
  content.desktopEntry = validUtf8(banner.appIdentity());
  content.icon = banner.notificationIcon();
  content.buttons.emplace_back("default", validUtf8(banner.actionButtonTitle()));
  if (banner.hasActionButton()) {
    content.buttons.emplace_back("action", validUtf8(banner.actionButtonTitle()));
    content.buttons.emplace_back("other", validUtf8(banner.otherButtonTitle()));
  }
  pendingContent_ = std::move(content);
  visible_ = true;
  told_ = false;
  if (!server_->connection) {
    tellLater([](BannerView::Events& events) { events.bannerGone(); });
    return;
  }
  if (!server_->capabilities) {
    server_->waitingForCapabilities.push_back(weak_from_this());
    ++callsUnanswered_;
    server_->askCapabilities();
    return;
  }
  send();
}

void ServerView::send() {
  if (!pendingContent_ || !server_->connection) return;
  const Content content = std::move(*pendingContent_);
  pendingContent_.reset();
  const bool markup = server_->can("body-markup");
  std::string body = markup ? escapedMarkup(content.subtitle) : content.subtitle;
  if (!content.text.empty()) {
    if (!body.empty()) body += "\n";
    body += markup ? escapedMarkup(content.text) : content.text;
  }
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  if (server_->can("actions")) {
    for (const auto& [key, label] : content.buttons) {
      g_variant_builder_add(&actions, "s", key.c_str());
      g_variant_builder_add(&actions, "s", label.c_str());
    }
  }
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  if (!content.desktopEntry.empty()) {
    g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                          g_variant_new_string(content.desktopEntry.c_str()));
  }
  if (content.icon) {
    if (GVariant* image = imageData(*content.icon)) {
      g_variant_builder_add(&hints, "{sv}", "image-data", image);
    }
  }
  const std::string appName = validUtf8(AppIdentity::name());
  ++callsUnanswered_;
  ++server_->callsUnanswered;
  g_dbus_connection_call(
      server_->connection, kName, kPath, kInterface, "Notify",
      g_variant_new("(susssasa{sv}i)", appName.c_str(), id_, "", content.summary.c_str(),
                    body.c_str(), &actions, &hints, 0),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<CallContext> context(static_cast<CallContext*>(data));
        g_autoptr(GError) error = nullptr;
        g_autoptr(GVariant) reply =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        std::optional<uint32_t> id;
        if (reply) {
          guint32 value = 0;
          g_variant_get(reply, "(u)", &value);
          id = value;
        } else {
          SystemLog::log("banner not shown: %s", error->message);
        }
        if (auto server = context->server.lock()) --server->callsUnanswered;
        if (auto view = context->view.lock()) view->notified(id);
      },
      new CallContext{weak_from_this(), server_});
}

void ServerView::notified(std::optional<uint32_t> id) {
  --callsUnanswered_;
  if (!id || *id == 0) {
    // Refused, failed or timed out: the banner is not on screen.
    if (id_ != 0) server_->shown.erase(id_);
    id_ = 0;
    if (visible_) gone();
    return;
  }
  if (id_ != 0 && id_ != *id) server_->shown.erase(id_);
  id_ = *id;
  server_->shown[id_] = weak_from_this();
  if (!visible_) closeOnServer();  // taken away while the server was answering
  if (pendingContent_) send();     // changed while the server was answering
}

void ServerView::capabilitiesKnown(bool known) {
  --callsUnanswered_;
  if (known) {
    send();
  } else {
    pendingContent_.reset();
    gone();
  }
}

void ServerView::answered(const std::string& key) {
  if (told_ || !visible_) return;
  const int64_t type = key == "action" ? 2 : key == "default" ? 1 : 0;
  told_ = true;
  visible_ = false;  // the server takes a bubble away once answered
  // A refused answer (the centre busy with another banner) still took the bubble off the
  // screen: the banner is told gone on the turn after, or it would be counted as shown forever.
  std::weak_ptr<ServerView> weak = weak_from_this();
  tellLater([type, weak](BannerView::Events& events) {
    if (events.bannerAnswered(type)) return;
    if (auto view = weak.lock()) {
      view->tellLater([](BannerView::Events& later) { later.bannerGone(); });
    }
  });
}

void ServerView::gone() {
  if (id_ != 0) server_->shown.erase(id_);
  id_ = 0;
  const bool tell = visible_ && !told_;
  visible_ = false;
  if (!tell) return;
  told_ = true;
  tellLater([](BannerView::Events& events) { events.bannerGone(); });
}

void ServerView::closeOnServer() {
  if (!server_->connection || id_ == 0) return;
  server_->shown.erase(id_);
  g_dbus_connection_call(server_->connection, kName, kPath, kInterface, "CloseNotification",
                         g_variant_new("(u)", id_), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         kCallTimeoutMs, nullptr, nullptr, nullptr);
  id_ = 0;
}

void ServerView::tellLater(std::function<void(BannerView::Events&)> tell) {
  std::weak_ptr<ServerView> weak = weak_from_this();
  RunLoop::current().post([weak, tell = std::move(tell)] {
    auto view = weak.lock();
    if (view && view->events_) tell(*view->events_);
  });
}

Server::~Server() {
  if (!connection) return;
  if (actionSubscription) g_dbus_connection_signal_unsubscribe(connection, actionSubscription);
  if (closedSubscription) g_dbus_connection_signal_unsubscribe(connection, closedSubscription);
  if (ownerWatch) g_bus_unwatch_name(ownerWatch);
  g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
  g_object_unref(connection);
}

void Server::askCapabilities() {
  if (capabilitiesAsked) return;
  capabilitiesAsked = true;
  ++callsUnanswered;
  auto* weak = new std::weak_ptr<Server>(weak_from_this());
  g_dbus_connection_call(
      connection, kName, kPath, kInterface, "GetCapabilities", nullptr, G_VARIANT_TYPE("(as)"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<std::weak_ptr<Server>> owner(static_cast<std::weak_ptr<Server>*>(data));
        g_autoptr(GVariant) reply =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr);
        auto server = owner->lock();
        if (!server) return;
        server->capabilitiesAsked = false;
        --server->callsUnanswered;
        std::vector<std::string> names;
        if (reply) {
          g_autoptr(GVariantIter) iter = nullptr;
          g_variant_get(reply, "(as)", &iter);
          const gchar* name = nullptr;
          while (g_variant_iter_next(iter, "&s", &name)) names.emplace_back(name);
          server->capabilities = std::move(names);
        }
        auto waiting = std::move(server->waitingForCapabilities);
        server->waitingForCapabilities.clear();
        for (const auto& weakView : waiting) {
          auto view = weakView.lock();
          if (!view) continue;
          // No answer means no server: the banner goes, and the next one asks again.
          view->capabilitiesKnown(reply != nullptr);
        }
      },
      weak);
}

void Server::answered(uint32_t id, const std::string& key) {
  auto found = shown.find(id);
  if (found == shown.end()) return;
  if (auto view = found->second.lock()) view->answered(key);
}

void Server::closed(uint32_t id) {
  // Our own CloseNotification takes the id out of `shown` before it is sent, so whatever the
  // reason (even 3, "closed by a call": another client's, or the server's own), a close of an id
  // still here is one we did not ask for.
  auto found = shown.find(id);
  if (found == shown.end()) return;
  if (auto view = found->second.lock()) view->gone();
}

void Server::ownerGone() {
  ownerName.clear();
  capabilities.reset();
  auto views = shown;
  for (const auto& [id, weak] : views) {
    if (auto view = weak.lock()) view->gone();
  }
}

class NotificationServerFactory final : public BannerViewFactory {
 public:
  explicit NotificationServerFactory(std::shared_ptr<Server> server) : server_(std::move(server)) {}
  std::unique_ptr<BannerView> makeView(BannerView::Events& events) override;
  // A banner taken away while the server had not yet said which bubble it is gets closed once
  // it does: the answers still due are waited for (at most the calls' time limit, turning this
  // thread's loop) before what we sent is flushed.
  void flush() override {
    if (!server_->connection) return;
    RunLoop::current().runUntil([this] { return server_->callsUnanswered == 0; },
                                std::chrono::milliseconds(kCallTimeoutMs + 500));
    g_dbus_connection_flush_sync(server_->connection, nullptr, nullptr);
  }

 private:
  std::shared_ptr<Server> server_;
};

// The view handed out: the bubble's state lives in a shared ServerView so that a late answer of
// the server finds it gone rather than freed.
class ViewHandle final : public BannerView {
 public:
  explicit ViewHandle(std::shared_ptr<ServerView> view) : view_(std::move(view)) {}
  ~ViewHandle() override { view_->detach(); }
  void present(const UserNotification& banner) override { view_->present(banner); }
  void moveOut() override { view_->moveOut(); }
  bool isVisible() const override { return view_->isVisible(); }
  bool isAnimating() const override { return view_->isAnimating(); }

 private:
  std::shared_ptr<ServerView> view_;
};

std::unique_ptr<BannerView> NotificationServerFactory::makeView(BannerView::Events& events) {
  return std::make_unique<ViewHandle>(std::make_shared<ServerView>(server_, events));
}

template <typename Handler>
guint subscribe(const std::shared_ptr<Server>& server, const char* member, const char* signature,
                Handler handler) {
  struct Subscription {
    std::weak_ptr<Server> server;
    Handler handler;
    const char* signature;
  };
  return g_dbus_connection_signal_subscribe(
      server->connection, kName, kInterface, member, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar* sender, const gchar*, const gchar*, const gchar*,
         GVariant* parameters, gpointer data) {
        auto* subscription = static_cast<Subscription*>(data);
        auto owner = subscription->server.lock();
        if (!owner || !sender || owner->ownerName != sender ||
            !g_variant_is_of_type(parameters, G_VARIANT_TYPE(subscription->signature))) {
          return;
        }
        subscription->handler(*owner, parameters);
      },
      new Subscription{server, std::move(handler), signature},
      [](gpointer data) { delete static_cast<Subscription*>(data); });
}

}  // namespace

std::optional<std::string> sessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) {
    return std::string(address);
  }
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime) {
    const std::string socket = std::string(runtime) + "/bus";
    struct stat info {};
    if (::stat(socket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) {
      g_autofree gchar* escaped = g_dbus_address_escape_value(socket.c_str());
      return std::string("unix:path=") + escaped;
    }
  }
  return std::nullopt;
}

std::shared_ptr<BannerViewFactory> makeNotificationServer(std::optional<std::string> address) {
  auto server = std::make_shared<Server>();
  if (!address) address = sessionBusAddress();
  if (address) {
    g_autoptr(GError) error = nullptr;
    server->connection = g_dbus_connection_new_for_address_sync(
        address->c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (!server->connection) {
      SystemLog::log("no session bus for banners: %s", error->message);
    }
  }
  if (server->connection) {
    server->actionSubscription =
        subscribe(server, "ActionInvoked", "(us)", [](Server& owner, GVariant* parameters) {
          guint32 id = 0;
          const gchar* key = nullptr;
          g_variant_get(parameters, "(u&s)", &id, &key);
          owner.answered(id, key);
        });
    server->closedSubscription =
        subscribe(server, "NotificationClosed", "(uu)", [](Server& owner, GVariant* parameters) {
          guint32 id = 0;
          guint32 reason = 0;
          g_variant_get(parameters, "(uu)", &id, &reason);
          owner.closed(id);
        });
    server->ownerWatch = g_bus_watch_name_on_connection_with_closures(
        server->connection, kName, G_BUS_NAME_WATCHER_FLAGS_NONE,
        g_cclosure_new(
            G_CALLBACK(+[](GDBusConnection*, const gchar*, const gchar* nameOwner, gpointer data) {
              auto* weak = static_cast<std::weak_ptr<Server>*>(data);
              if (auto owner = weak->lock()) owner->ownerName = nameOwner ? nameOwner : "";
            }),
            new std::weak_ptr<Server>(server),
            [](gpointer data, GClosure*) { delete static_cast<std::weak_ptr<Server>*>(data); }),
        g_cclosure_new(G_CALLBACK(+[](GDBusConnection*, const gchar*, gpointer data) {
                         auto* weak = static_cast<std::weak_ptr<Server>*>(data);
                         if (auto owner = weak->lock()) owner->ownerGone();
                       }),
                       new std::weak_ptr<Server>(server), [](gpointer data, GClosure*) {
                         delete static_cast<std::weak_ptr<Server>*>(data);
                       }));
  }
  return std::make_shared<NotificationServerFactory>(server);
}

std::shared_ptr<BannerViewFactory> makeSystemBannerViews() { return makeNotificationServer(); }

}  // namespace vexa
