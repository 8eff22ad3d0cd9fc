#!/usr/bin/env python3
"""How soon a rename is told: the watch queue (queue-probe follow) against inotifywait -m -e
move_self, one after the other on the same file. The file is renamed back and forth COUNT times
(default 200), 20 ms apart; each time the script waits for the watcher's next line and keeps the
time from the rename to that line. Prints p50 and p90 of each and the difference of the p50s.
Usage: rename-latency.py QUEUE_PROBE   (needs inotifywait from inotify-tools)."""
import os, statistics, subprocess, sys, tempfile, threading, time

PROBE = sys.argv[1]
COUNT = int(os.environ.get("COUNT", "200"))


class Lines:
    """A child's output lines, each with when it arrived, read on a thread."""

    def __init__(self, args, ready, stream="stdout"):
        self.proc = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     text=True, bufsize=1)
        self.cond, self.lines = threading.Condition(), []
        self.ready = threading.Event()
        self.marker = ready
        for name in ("stdout", "stderr"):
            threading.Thread(target=self.read, args=(getattr(self.proc, name), name == stream),
                             daemon=True).start()
        if not self.ready.wait(10):
            sys.exit("watcher never got ready: " + " ".join(args))

    def read(self, pipe, counted):
        for line in pipe:
            if self.marker in line:
                self.ready.set()
            elif counted:
                with self.cond:
                    self.lines.append(time.monotonic())
                    self.cond.notify_all()

    def wait_past(self, count, timeout=2.0):
        with self.cond:
            self.cond.wait_for(lambda: len(self.lines) > count, timeout)
            return self.lines[count] if len(self.lines) > count else None

    def stop(self):
        self.proc.terminate()
        self.proc.wait()


def measure(args, ready, stream, folder):
    first, second = folder + "/a", folder + "/b"
    watcher = Lines(args, ready, stream)
    delays = []
    for i in range(COUNT):
        time.sleep(0.02)
        seen = len(watcher.lines)
        start = time.monotonic()
        os.rename(*((first, second) if i % 2 == 0 else (second, first)))
        told = watcher.wait_past(seen)
        if told is not None:
            delays.append((told - start) * 1000)
    watcher.stop()
    if COUNT % 2:
        os.rename(second, first)
    return delays


def summary(name, delays):
    q = statistics.quantiles(delays, n=10)
    p50 = statistics.median(delays)
    print(f"{name:12} told {len(delays)}/{COUNT}  p50={p50:.3f} ms  p90={q[8]:.3f} ms")
    return p50


with tempfile.TemporaryDirectory(prefix="vexa-rename-bench-") as folder:
    open(folder + "/a", "w").close()
    ours = measure([PROBE, "follow", folder + "/a"], "ready", "stdout", folder)
    theirs = measure(["inotifywait", "-m", "-e", "move_self", folder + "/a"],
                     "Watches established", "stdout", folder)
    a, b = summary("queue", ours), summary("inotifywait", theirs)
    print(f"p50 difference queue - inotifywait: {a - b:+.3f} ms")
