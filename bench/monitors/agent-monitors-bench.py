#!/usr/bin/env python3
"""The install-package and download monitors in vexa-agent, in one run, each agent in a home
folder of its own:
  burst    50,000 files created and deleted under the watched home: the agent's CPU seconds with
           the two monitors against the agent without them (--skip packages,downloads), and
           inotifywait -m -r's on the same burst beside;
  latency  at vexa-host, 20 times each: a package made in the home -> "PackageAdd"; a partial
           download renamed to its final name -> "DownloadComplete"; a ".zip" download ->
           "DownloadComplete" (its 2 s check included); p50 and max of each, and inotifywait's
           time to the same change beside.
Usage: agent-monitors-bench.py VEXA_AGENT VEXA_HOST QUEUE_PROBE   (needs inotifywait)."""
import os, statistics, subprocess, sys, tempfile, time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from benchlib import Reader, home_env  # noqa: E402

AGENT, HOST, PROBE = sys.argv[1:4]
BURST = int(os.environ.get("BURST", "50000"))


def quiet(reader, seconds=1.5, limit=120):
    """Waits until the reader's process used no CPU for `seconds`; returns its CPU seconds."""
    deadline = time.monotonic() + limit
    last = reader.cpu()
    while time.monotonic() < deadline:
        time.sleep(seconds)
        now = reader.cpu()
        if now == last:
            return now
        last = now
    return last


def agent(root, *extra):
    env = home_env(root)
    reader = Reader([AGENT, "--port", "0", "--cache", root + "/cache", *extra], env,
                    ready="listening")
    with reader.cond:
        port = next(line for _, line in reader.lines if "listening" in line).rsplit(":", 1)[1]
    return env, reader, port


def burst_cpu(reader, root):
    folder = root + "/home/burst"
    os.makedirs(folder, exist_ok=True)
    before = quiet(reader)
    subprocess.run([PROBE, "burst", folder, str(BURST)], check=True, stdout=subprocess.DEVNULL)
    return quiet(reader) - before


def burst():
    figures = {}
    for name, extra in (("with", ()), ("without", ("--skip", "packages,downloads"))):
        with tempfile.TemporaryDirectory() as root:
            _, reader, _ = agent(root, *extra)
            figures[name] = burst_cpu(reader, root)
            reader.stop()
    with tempfile.TemporaryDirectory() as root:
        home_env(root)
        theirs = Reader(["inotifywait", "-m", "-r", "-q", "--format", "%e %w%f", root + "/home"])
        time.sleep(0.5)  # inotifywait prints nothing when its watches are in place
        figures["inotifywait"] = burst_cpu(theirs, root)
        theirs.stop()
    ratio = figures["with"] / figures["without"] if figures["without"] > 0 else float("inf")
    print(f"burst: {BURST} creates and deletes under the home; agent CPU with the two monitors "
          f"{figures['with']:.2f} s, without {figures['without']:.2f} s, ratio {ratio:.2f}; "
          f"inotifywait -m -r {figures['inotifywait']:.2f} s")


def latency():
    with tempfile.TemporaryDirectory() as root:
        env, reader, port = agent(root)
        home = root + "/home"
        host = Reader([HOST, "--port", port, "--install-path", home], env)
        theirs = Reader(["inotifywait", "-m", "-r", "-q", "-e", "close_write,moved_to",
                         "--format", "%w%f", home])
        quiet(reader, 1.0)
        results = {"package": ([], []), "rename": ([], []), "zip": ([], [])}

        def timed(kind, change, message, name):
            at = time.monotonic()
            done = change()
            a = host.wait(lambda line: message in line and name in line, 15)
            b = theirs.wait(lambda line: line == done, 15)
            if a is None or b is None:
                sys.exit(f"no {message} for {name}")
            results[kind][0].append((a - at) * 1000)
            results[kind][1].append((b - at) * 1000)

        def package(i):
            path = f"{home}/bench-{i}.deb"
            with open(path, "w") as f:
                f.write("package")
            return path

        def download(i, ext, partial):
            done = f"{home}/Downloads/file-{i}{ext}"
            with open(done + partial, "w") as f:
                f.write("part")
            time.sleep(0.1)  # the partial file is known before it is renamed
            return lambda: (os.rename(done + partial, done), done)[1]

        for i in range(20):
            timed("package", lambda: package(i), "PackageAdd", f"bench-{i}.deb")
        for i in range(20):
            rename = download(i, ".pdf", ".crdownload")
            timed("rename", rename, "DownloadComplete", f"file-{i}.pdf")
        for i in range(20):
            rename = download(i, ".zip", ".part")
            timed("zip", rename, "DownloadComplete", f"file-{i}.zip")
        for r in (host, theirs, reader):
            r.stop()
    for kind, (ours, inotify) in results.items():
        print(f"latency {kind:8}: vexa-host p50 {statistics.median(ours):7.1f} ms, max "
              f"{max(ours):7.1f} ms; inotifywait p50 {statistics.median(inotify):5.1f} ms")


burst()
latency()
