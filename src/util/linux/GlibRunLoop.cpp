// RunLoop and Timer on GLib main contexts: the main loop is the global default context, every
// other thread gets its own thread-default context the first time it asks for one.
#include <glib-unix.h>
#include <glib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "util/FdWatch.h"
#include "util/RunGuarded.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/Timer.h"

namespace vexa {

struct RunLoop::Impl {
  explicit Impl(GMainContext* c) : context(g_main_context_ref(c)) {}
  ~Impl() {
    if (drain) {
      g_source_destroy(drain);
      g_source_unref(drain);
    }
    g_main_context_unref(context);
  }

  GMainContext* context;
  std::mutex mutex;
  std::vector<GMainLoop*> running;  // innermost last
  bool quitRequested = false;
  // Work posted from any thread waits here, under a lock of our own, for one idle source that
  // runs it all in order. Nothing we allocate crosses threads through GLib (the source's data is
  // this Impl, which outlives it): the hand-over is visible to race detectors, which cannot see
  // the futexes GLib guards its sources with.
  std::mutex postedMutex;
  std::deque<std::function<void()>> posted;
  GSource* drain = nullptr;  // the pending idle source, held; guarded by postedMutex
};

namespace {

// One Impl per context, so that quit() reaches the run() started through any handle.
std::shared_ptr<RunLoop::Impl> implFor(GMainContext* context) {
  static std::mutex* mutex = new std::mutex;
  static auto* table = new std::map<GMainContext*, std::weak_ptr<RunLoop::Impl>>;
  std::lock_guard lock(*mutex);
  for (auto it = table->begin(); it != table->end();) {
    it = it->second.expired() ? table->erase(it) : std::next(it);
  }
  auto& slot = (*table)[context];
  if (auto existing = slot.lock()) return existing;
  auto made = std::make_shared<RunLoop::Impl>(context);
  slot = made;
  return made;
}

// The context a non-main thread made for itself; popped and released when the thread ends.
struct ThreadLoop {
  ~ThreadLoop() {
    if (pushed) g_main_context_pop_thread_default(pushed);
    impl.reset();
    if (pushed) g_main_context_unref(pushed);
  }
  GMainContext* pushed = nullptr;
  std::shared_ptr<RunLoop::Impl> impl;
};

gboolean runPosted(gpointer data) {
  auto* impl = static_cast<RunLoop::Impl*>(data);
  std::deque<std::function<void()>> batch;
  GSource* self = nullptr;
  {
    std::lock_guard lock(impl->postedMutex);
    batch.swap(impl->posted);
    self = std::exchange(impl->drain, nullptr);
  }
  if (self) g_source_unref(self);  // GLib holds its own reference while dispatching
  for (auto& fn : batch) runGuarded("run loop", fn);
  return G_SOURCE_REMOVE;
}

gboolean wakeOnly(gpointer) { return G_SOURCE_REMOVE; }

}  // namespace

bool RunLoop::isMainThread() { return syscall(SYS_gettid) == getpid(); }

RunLoop RunLoop::main() {
  static std::shared_ptr<Impl>* impl = new std::shared_ptr<Impl>(implFor(g_main_context_default()));
  return RunLoop(*impl);
}

RunLoop RunLoop::current() {
  GMainContext* threadDefault = g_main_context_get_thread_default();
  if (threadDefault) return RunLoop(implFor(threadDefault));
  if (isMainThread()) return main();
  thread_local ThreadLoop own;
  if (!own.impl) {
    own.pushed = g_main_context_new();
    g_main_context_push_thread_default(own.pushed);
    own.impl = implFor(own.pushed);
  }
  return RunLoop(own.impl);
}

void RunLoop::post(std::function<void()> fn) const {
  std::lock_guard lock(impl_->postedMutex);
  impl_->posted.push_back(std::move(fn));
  if (impl_->drain) return;  // the pending source runs it too
  impl_->drain = g_idle_source_new();
  g_source_set_priority(impl_->drain, G_PRIORITY_DEFAULT);
  g_source_set_callback(impl_->drain, runPosted, impl_.get(), nullptr);
  g_source_attach(impl_->drain, impl_->context);
}

void RunLoop::run() const {
  GMainLoop* loop = g_main_loop_new(impl_->context, FALSE);
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->quitRequested) {
      impl_->quitRequested = false;
      g_main_loop_unref(loop);
      return;
    }
    impl_->running.push_back(loop);
  }
  g_main_loop_run(loop);
  {
    std::lock_guard lock(impl_->mutex);
    impl_->running.erase(std::find(impl_->running.begin(), impl_->running.end(), loop));
  }
  g_main_loop_unref(loop);
}

void RunLoop::quit() const {
  std::lock_guard lock(impl_->mutex);
  if (impl_->running.empty()) {
    // run() has not started yet: let it return at once instead of missing the request.
    impl_->quitRequested = true;
    return;
  }
  g_main_loop_quit(impl_->running.back());
}

bool RunLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) const {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    if (done()) return true;
    const auto now = Clock::now();
    if (now >= deadline) return done();
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
    GSource* wake = g_timeout_source_new(static_cast<guint>(std::clamp<long>(left.count(), 1, 20)));
    g_source_set_callback(wake, wakeOnly, nullptr, nullptr);
    g_source_attach(wake, impl_->context);
    g_main_context_iteration(impl_->context, TRUE);
    g_source_destroy(wake);
    g_source_unref(wake);
  }
}

bool RunLoop::iterate(bool mayBlock) const {
  return g_main_context_iteration(impl_->context, mayBlock ? TRUE : FALSE);
}

// ---- Timer ----

struct Timer::Impl {
  GSource* source = nullptr;
  std::atomic<bool> valid{true};
  Callback fn;
};

namespace {

struct TimerRef {
  std::shared_ptr<Timer> timer;
};

}  // namespace

Timer::Timer(double interval, bool repeats)
    : interval_(interval), repeats_(repeats), impl_(std::make_unique<Impl>()) {}

Timer::~Timer() {
  if (impl_->source) g_source_unref(impl_->source);
}

std::shared_ptr<Timer> Timer::scheduled(double interval, bool repeats, Callback fn) {
  return scheduledOn(RunLoop::current(), interval, repeats, std::move(fn));
}

std::shared_ptr<Timer> Timer::scheduledOn(const RunLoop& loop, double interval, bool repeats,
                                          Callback fn) {
  std::shared_ptr<Timer> timer(new Timer(interval, repeats));
  timer->impl_->fn = std::move(fn);
  const double ms = std::clamp(interval * 1000.0, 0.0, 4.0e9);
  GSource* source = g_timeout_source_new(static_cast<guint>(ms));
  timer->impl_->source = source;
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        Timer& t = *static_cast<TimerRef*>(data)->timer;
        if (!t.impl_->valid.load()) return G_SOURCE_REMOVE;
        const bool again = t.repeats_;
        if (!again) t.impl_->valid = false;
        runGuarded("timer", [&] { t.impl_->fn(t); });
        return again && t.impl_->valid.load() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
      },
      new TimerRef{timer}, [](gpointer data) { delete static_cast<TimerRef*>(data); });
  g_source_attach(source, loop.impl()->context);
  return timer;
}

void Timer::invalidate() {
  if (impl_->valid.exchange(false)) g_source_destroy(impl_->source);
}

bool Timer::isValid() const { return impl_->valid.load(); }

// ---- FdWatch ----

struct FdWatch::Impl {
  GSource* source = nullptr;
};

FdWatch::FdWatch(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

// GLib holds the callback's data for the length of a dispatch, so destroying the source while
// `ready` runs on another thread frees it only once that call returns.
FdWatch::~FdWatch() {
  g_source_destroy(impl_->source);
  g_source_unref(impl_->source);
}

std::unique_ptr<FdWatch> FdWatch::start(const RunLoop& loop, int fd, std::function<void()> ready) {
  auto impl = std::make_unique<Impl>();
  impl->source = g_unix_fd_source_new(fd, static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP));
  g_source_set_callback(
      impl->source, G_SOURCE_FUNC(+[](gint, GIOCondition, gpointer data) -> gboolean {
        runGuarded("descriptor watch", *static_cast<std::function<void()>*>(data));
        return G_SOURCE_CONTINUE;
      }),
      new std::function<void()>(std::move(ready)),
      [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  g_source_attach(impl->source, loop.impl()->context);
  return std::unique_ptr<FdWatch>(new FdWatch(std::move(impl)));
}

}  // namespace vexa
