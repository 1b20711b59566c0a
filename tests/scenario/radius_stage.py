"""What the tests of a node with servers stand on: talnode with the real module on a /var/log of
its own, a FreeRADIUS, and a proxy between them that spoils the traffic. The traffic of each line
is one client's DISCOVER over and over."""
import json
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest

import private_log
from private_log import STORE, discovers

ROOT = pathlib.Path(__file__).parent.parent.parent
sys.path.insert(0, str(ROOT / "script"))
import free_radius  # noqa: E402

PATIENCE = 60
PASSWORD = "a password of lines"


def enter_private_log():
    """Also says what is missing."""
    if not free_radius.installed():
        print("skipped: the package freeradius is not installed (script/bootstrap)")
        sys.exit(private_log.SKIPPED)
    private_log.enter_private_log()


def until(what, condition, patience=PATIENCE):
    return private_log.until(what, condition, patience)


class RadiusStage(unittest.TestCase):
    BUILD = pathlib.Path()
    SAMPLES = pathlib.Path()

    def setUp(self):
        STORE.unlink(missing_ok=True)
        directory = tempfile.TemporaryDirectory(prefix="tal-radius-")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.socket = self.directory / "control.sock"
        self.secret_file = self.directory / "secrets"
        self.log = self.directory / "log"
        self.node = None
        self.said = ""  # by talctl
        self.every_secret = {PASSWORD}
        self.proxies = {}

    def tearDown(self):
        """No secret got out, whatever the test was about."""
        self.said += self.log.read_text(errors="replace") if self.log.exists() else ""
        for path in self.directory.glob("*.json"):
            self.said += path.read_text()
        for secret in self.every_secret:
            self.assertNotIn(secret, self.said)

    # Servers and what stands before them.

    def server(self, users, name="server", **options):
        directory = self.directory / name
        directory.mkdir()
        server = free_radius.FreeRadius(directory, users, **options)
        self.addCleanup(server.stop)
        return server.start()

    def proxy(self, port):
        """Between the node and a port; returns its own. `spoil` changes what it does."""
        process = subprocess.Popen(
            [self.BUILD / "tests/radius/scenario/udp_proxy", str(port)], text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

        def end():
            process.stdin.close()
            process.wait()
            process.stdout.close()

        self.addCleanup(end)
        own = int(process.stdout.readline())
        self.proxies[own] = process
        return own

    def spoil(self, port, faults):
        process = self.proxies[port]
        process.stdin.write(faults + "\n")
        process.stdin.flush()
        self.assertEqual("done\n", process.stdout.readline())

    # The node.

    def secrets(self, **entries):
        self.secret_file.touch(mode=0o600)
        self.secret_file.write_text(f"# secrets\nlines {PASSWORD}\n" + "".join(
            f"{name} {secret}\n" for name, secret in entries.items()))
        self.every_secret.update(entries.values())

    @staticmethod
    def to(name, port, accounting_port=None, more=""):
        """A server that is given up after a quarter of a second, and probed as often."""
        accounting = f"accounting-port = {accounting_port}\n" if accounting_port else ""
        return (f'[[radius.server]]\nname = "{name}"\naddress = "127.0.0.1"\nport = {port}\n'
                f"{accounting}first-wait-ms = 80\nlongest-wait-ms = 500\n"
                f"probe-interval-ms = 250\n{more}")

    def config(self, servers, lines=1, radius="", line="", per_second=4, tables=""):
        (self.directory / "discovers.pcap").write_bytes(discovers(self.SAMPLES, per_second))
        text = ('[node]\nshelf = "2"\nboard-position = 5\n[control]\nsocket = "control.sock"\n'
                '[radius]\nsecret-file = "secrets"\nnas-identifier = "node-2"\n'
                'user-name = "line-{interface-number}"\npassword-entry = "lines"\n'
                f"paced-rate = 500\nask-again-ms = 500\n{radius}\n{servers}{tables}")
        for number in range(1, lines + 1):
            text += (f'[[interface]]\nid = {number}\nname = "1/{number}"\n'
                     f'kernel-name = "ds{number:02}"\ncapture = "discovers.pcap"\n{line}\n'
                     '[[interface.rule]]\ndhcp = "any"\n')
        path = self.directory / "node.toml"
        path.write_text(text)
        return path

    def start(self, *arguments):
        """From the configuration written last."""
        self.socket.unlink(missing_ok=True)
        with open(self.log, "ab") as log:
            self.node = subprocess.Popen(
                [self.BUILD / "bin/talnode", "--config", self.directory / "node.toml",
                 "--report", self.directory / "report.json", *arguments], stdout=log, stderr=log)
        self.addCleanup(self.node.wait)
        self.addCleanup(self.node.kill)
        until("the node listens", lambda: self.socket.exists() or self.node.poll() is not None)
        self.assertIsNone(self.node.poll(), self.log.read_text())

    def kill(self):
        self.node.kill()
        self.node.wait()

    def end(self):
        self.node.send_signal(signal.SIGTERM)
        self.assertEqual(0, self.node.wait(timeout=PATIENCE), self.log.read_text())
        return json.loads((self.directory / "report.json").read_text())

    def reload(self, what):
        """Until the log says so."""
        before = len(re.findall(what, self.log.read_text()))
        self.node.send_signal(signal.SIGHUP)
        until(what, lambda: len(re.findall(what, self.log.read_text())) > before)

    # What can be seen of it.

    def talctl(self, *arguments):
        done = subprocess.run(
            [self.BUILD / "bin/talctl", "--server", f"unix:{self.socket}", *arguments],
            capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(0, done.returncode, f"{arguments}: {done.stderr}")
        self.said += done.stdout + done.stderr
        return done.stdout

    def json(self, *arguments):
        return json.loads(self.talctl("--json", *arguments))

    def states(self):
        """By line, as blocked, pending, open or rejected."""
        return {each["id"]: each["port_state"]
                for each in self.json("interface", "list")["interfaces"]}

    def lines_in(self, state):
        return {line for line, is_in in self.states().items() if is_in == state}

    def until_open(self, *lines):
        until(f"lines {lines} are open", lambda: set(lines) <= self.lines_in("open"))

    def servers(self, role="authentication"):
        return {each["name"]: each for each in self.json("servers")["servers"]
                if each["role"] == role}

    def stored(self):
        return {each["interface"] for each in self.json("logins")["logins"]}

    def logged(self, what):
        return len(re.findall(what, self.log.read_text(errors="replace"), re.MULTILINE))

    def until_logged(self, what, times=1):
        until(f'"{what}" {times} times', lambda: self.logged(what) >= times)
