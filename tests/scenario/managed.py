"""A running talnode with the real module on a /var/log of its own, driven by talctl. Whoever
imports this as the main program's first act is started again in a mount namespace; arguments:
BUILD-DIRECTORY SAMPLES. Exit code 77: such namespaces are refused here."""
import json
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

import private_log
from private_log import STORE

PATIENCE = 30

private_log.enter_private_log()
BUILD, SAMPLES = (pathlib.Path(each).resolve() for each in sys.argv[1:3])
TALCTL = BUILD / "bin/talctl"
TALNODE = BUILD / "bin/talnode"


def until(what, condition):
    return private_log.until(what, condition, PATIENCE)


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
