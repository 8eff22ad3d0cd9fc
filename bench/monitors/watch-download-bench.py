#!/usr/bin/env python3
"""The download-folder watcher (vexa-watch downloads) against inotifywait -m, in one run, each in
a home folder of its own:
  latency  50 partial files renamed to their final names: time from the rename to the line that
           tells of it, p50 for each; then 10 ".zip" downloads, whose check waits 2 s;
  churn    10,000 creates and deletes inside a watched Chrome profile folder whose Preferences
           does not change: CPU seconds of each, and how often Preferences was opened;
  memory   1,000 partial files watched: resident memory growth of each over watching 10
           (medians of five rounds).
Usage: watch-download-bench.py VEXA_WATCH   (needs inotifywait from inotify-tools)."""
import os, statistics, sys, tempfile, time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from benchlib import Reader, home_env  # noqa: E402

VEXA_WATCH = sys.argv[1]


def latency(root):
    env = home_env(root)
    downloads = root + "/home/Downloads"
    ours = Reader([VEXA_WATCH, "downloads"], env, ready='"started"')
    theirs = Reader(["inotifywait", "-m", "-q", "-e", "moved_to", "--format", "%w%f",
                     downloads], ready=None)
    time.sleep(0.5)  # inotifywait prints nothing when its watches are in place
    ours_ms, theirs_ms = [], []
    for i in range(50):
        done = f"{downloads}/file-{i}.pdf"
        with open(done + ".crdownload", "w") as f:
            f.write("part")
        time.sleep(0.05)  # the folder's scan watches the new partial file
        at = time.monotonic()
        os.rename(done + ".crdownload", done)
        a = ours.wait(lambda line: f'/file-{i}.pdf"' in line)
        b = theirs.wait(lambda line: line == done)
        if a is None or b is None:
            sys.exit(f"no event for {done}")
        ours_ms.append((a - at) * 1000)
        theirs_ms.append((b - at) * 1000)
    zips = []
    for i in range(10):
        done = f"{downloads}/archive-{i}.zip"
        with open(done, "w") as f:
            f.write("placeholder")
        with open(done + ".part", "w") as f:
            f.write("part")
        time.sleep(0.05)
        at = time.monotonic()
        os.rename(done + ".part", done)
        a = ours.wait(lambda line: f'/archive-{i}.zip"' in line, 10)
        if a is None:
            sys.exit(f"no event for {done}")
        zips.append(a - at)
    ours.stop()
    theirs.stop()
    p50o, p50t = statistics.median(ours_ms), statistics.median(theirs_ms)
    print(f"latency: rename p50 ours {p50o:.2f} ms, inotifywait {p50t:.2f} ms, "
          f"difference {p50o - p50t:.2f} ms (50 renames)")
    print(f"latency: .zip p50 ours {statistics.median(zips):.3f} s (10 downloads)")


def churn(root):
    env = home_env(root)
    profile = root + "/home/.config/google-chrome/Default"
    os.makedirs(profile, exist_ok=True)
    prefs = profile + "/Preferences"
    with open(prefs, "w") as f:
        f.write('{"download":{"default_directory":"%s/home/Downloads"}}' % root)
    opens = Reader(["inotifywait", "-m", "-q", "-e", "open", "--format", "%e", prefs])
    ours = Reader([VEXA_WATCH, "downloads"], env, ready='"started"')
    theirs = Reader(["inotifywait", "-m", "-q", "-e", "create,delete,moved_to,moved_from",
                     "--format", "%w%f", profile])
    time.sleep(0.5)
    with opens.cond:
        opened_before = len(opens.lines)
    cpu_ours, cpu_theirs = ours.cpu(), theirs.cpu()
    for i in range(10000):
        name = f"{profile}/churn-{i}"
        open(name, "w").close()
        os.unlink(name)
    # Both have read everything once a last marker shows in theirs, and ours has had its turn.
    open(profile + "/last", "w").close()
    theirs.wait(lambda line: line.endswith("/last"))
    time.sleep(1.0)
    cpu_ours, cpu_theirs = ours.cpu() - cpu_ours, theirs.cpu() - cpu_theirs
    with opens.cond:
        opened = len(opens.lines) - opened_before
    for reader in (ours, theirs, opens):
        reader.stop()
    ratio = cpu_ours / cpu_theirs if cpu_theirs > 0 else float("inf")
    print(f"churn: 10,000 creates and deletes; CPU ours {cpu_ours:.3f} s, inotifywait "
          f"{cpu_theirs:.3f} s, ratio {ratio:.2f}; Preferences opened {opened} times")


def memory(root):
    """Each program is started twice, watching WARM partial files and then WARM + 1,000: the
    difference is what the 1,000 cost, not the first use of the code that watches them."""
    env = home_env(root)
    downloads = root + "/home/Downloads"
    warm = 10

    def ours_rss(count):
        for name in os.listdir(downloads):
            os.unlink(f"{downloads}/{name}")
        for i in range(count):
            open(f"{downloads}/{i}.crdownload", "w").close()
        watching = Reader([VEXA_WATCH, "downloads"], env, ready='"started"')
        time.sleep(0.3)
        rss = watching.rss_kib()
        watching.stop()
        return rss

    def theirs_rss(count):
        listing = root + "/files"
        with open(listing, "w") as f:
            f.write("".join(f"{downloads}/{i}.crdownload\n" for i in range(count)))
        watching = Reader(["inotifywait", "-m", "-q", "-e", "move_self,delete_self",
                           "--fromfile", listing])
        time.sleep(0.5)  # inotifywait prints nothing when its watches are in place
        rss = watching.rss_kib()
        watching.stop()
        return rss

    # One start's growth moves by tens of pages with where the heap happens to lie: the
    # median of five rounds, the two programs taking turns.
    rounds = [(-ours_rss(warm) + ours_rss(warm + 1000), -theirs_rss(warm) + theirs_rss(warm + 1000))
              for _ in range(5)]
    grow_o = statistics.median(o for o, _ in rounds)
    grow_t = statistics.median(t for _, t in rounds)
    ratio = grow_o / grow_t if grow_t > 0 else float("inf")
    print(f"memory: 1,000 partial files over {warm}; RSS growth ours {grow_o} KiB, "
          f"inotifywait {grow_t} KiB (medians of 5), ratio {ratio:.2f}")


for step in (latency, churn, memory):
    with tempfile.TemporaryDirectory() as root:
        step(root)
