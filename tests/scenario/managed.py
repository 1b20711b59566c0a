"""A running talnode with the real module on a /var/log of its own, driven by talctl. Whoever
imports this as the main program's first act is started again in a mount namespace; arguments:
BUILD-DIRECTORY SAMPLES. Exit code 77: such namespaces are refused here."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PRIVATE = "--in-private-namespace"
SKIPPED = 77
STORE = pathlib.Path("/var/log/tal.store.dat")
PATIENCE = 30


def _enter_private_log():
    """Starts this program again where /var/log is empty and nobody else's."""
    if sys.argv[-1] == PRIVATE:
        sys.argv.pop()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "tal-test", "/var/log"],
                                 capture_output=True, text=True, check=False)
        if mounted.returncode != 0:
            print("skipped: no file system can be mounted on /var/log:", mounted.stderr)
            sys.exit(SKIPPED)
        return
    unshare = ["unshare", "-m" if os.geteuid() == 0 else "-Urm"]
    if subprocess.run([*unshare, "true"], capture_output=True, check=False).returncode != 0:
        print("skipped: private mount namespaces are refused here (unshare)")
        sys.exit(SKIPPED)
    os.execvp(unshare[0], [*unshare, sys.executable, "-B", *sys.argv, PRIVATE])


_enter_private_log()
BUILD, SAMPLES = (pathlib.Path(each).resolve() for each in sys.argv[1:3])
TALCTL = BUILD / "bin/talctl"
TALNODE = BUILD / "bin/talnode"


def until(what, condition):
    """The first true value of the condition."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"{what}: not within {PATIENCE} s")


class Managed(unittest.TestCase):
    """A node in a fresh directory with an empty storage file; its socket is `socket`."""

    def setUp(self):
        STORE.unlink(missing_ok=True)
        directory = tempfile.TemporaryDirectory(prefix="tal-managed-")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.socket = self.directory / "control.sock"
        self.log = self.directory / "log"
        self.server = f"unix:{self.socket}"

    def start_node(self, config, *arguments):
        with open(self.log, "wb") as log:
            self.node = subprocess.Popen(
                [TALNODE, "--config", config, "--pace", "recorded", "--stay", *arguments],
                stdout=log, stderr=log)
        self.addCleanup(self.node.wait)
        self.addCleanup(self.node.kill)
        until("the node listens", lambda: "listening on" in self.log.read_text()
              or self.node.poll() is not None)
        self.assertIsNone(self.node.poll(), self.log.read_text())

    def run_talctl(self, *arguments):
        return subprocess.run([TALCTL, "--server", self.server, "--json", *arguments],
                              capture_output=True, text=True, timeout=60, check=False)

    def talctl(self, *arguments):
        done = self.run_talctl(*arguments)
        self.assertEqual(0, done.returncode, f"{arguments}: {done.stderr}")
        return json.loads(done.stdout)

    def end(self):
        self.node.send_signal(signal.SIGTERM)
        self.assertEqual(0, self.node.wait(timeout=PATIENCE), self.log.read_text())
        self.assertFalse(self.socket.exists())
        self.assertIn("stopped and unloaded", self.log.read_text())
