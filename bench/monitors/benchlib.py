"""What the monitor benchmarks share: a home folder of their own and children whose lines are
timed as they arrive."""
import os, subprocess, threading, time


def home_env(root):
    env = dict(os.environ, HOME=root + "/home", XDG_CONFIG_HOME=root + "/home/.config",
               XDG_DATA_HOME=root + "/home/.local/share", XDG_CACHE_HOME=root + "/home/.cache")
    os.makedirs(root + "/home/Downloads", exist_ok=True)
    os.makedirs(root + "/home/.local/share/Trash/files", exist_ok=True)
    return env


class Reader:
    """Reads a child's lines on a thread, keeping when each arrived."""

    def __init__(self, args, env=None, ready=None):
        self.proc = subprocess.Popen(args, env=env, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True, errors="replace")
        self.lines, self.cond = [], threading.Condition()
        threading.Thread(target=self.run, daemon=True).start()
        threading.Thread(target=self.drain, daemon=True).start()
        if ready:
            self.wait(lambda line: ready in line)

    def run(self):
        for line in self.proc.stdout:
            with self.cond:
                self.lines.append((time.monotonic(), line.rstrip("\n")))
                self.cond.notify_all()

    def drain(self):
        self.errors = [line for line in self.proc.stderr]

    def wait(self, match, timeout=15):
        deadline = time.monotonic() + timeout
        with self.cond:
            while True:
                for at, line in self.lines:
                    if match(line):
                        return at
                left = deadline - time.monotonic()
                if left <= 0:
                    return None
                self.cond.wait(left)

    def cpu(self):
        fields = open(f"/proc/{self.proc.pid}/stat").read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def rss_kib(self):
        for line in open(f"/proc/{self.proc.pid}/status"):
            if line.startswith("VmRSS:"):
                return int(line.split()[1])

    def stop(self):
        self.proc.terminate()
        self.proc.wait()
