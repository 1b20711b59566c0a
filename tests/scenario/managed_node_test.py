#!/usr/bin/python3
"""A running talnode with the real module, driven only by talctl and by a plain gRPC client, on a
/var/log of its own. Its traffic is one client's DISCOVER over and over, so that a login follows
whenever management asks for one. Usage: managed_node_test.py BUILD-DIRECTORY SAMPLES"""
import json
import pathlib
import queue
import socket
import subprocess
import sys
import threading
import unittest

from managed import Managed, PATIENCE, SAMPLES, STORE, TALCTL, TALNODE, until
from private_log import discovers

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "control"))
import grpc  # noqa: E402
from reflected import Reflected  # noqa: E402

LINES = """
[[interface]]
id = 1
name = "1/1"
kernel-name = "dsl1"
capture = "discovers.pcap"
tal = false
[[interface]]
id = 2
name = "1/2"
kernel-name = "dsl2"
capture = "discovers.pcap"
"""


def free_port():
    """Nobody's at this moment, and given to nobody else who asks the kernel for one soon."""
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


class LiveEvents:
    """What an iterable yields, read on a thread of its own and parsed where it is asked for."""

    def __init__(self, source, parse=lambda event: event):
        self._parse = parse
        self._queue = queue.Queue()
        threading.Thread(target=self._read, args=(source,), daemon=True).start()

    def _read(self, source):
        try:
            for each in source:
                self._queue.put(each)
        except grpc.RpcError:
            pass  # cancelled at the end of the test

    def until(self, last):
        """All events up to the first for which `last` holds."""
        found = []
        while not found or not last(found[-1]):
            found.append(self._parse(self._queue.get(timeout=PATIENCE)))
        return found


class ManagedNode(Managed):
    def setUp(self):
        super().setUp()
        (self.directory / "discovers.pcap").write_bytes(discovers(SAMPLES, 20))

    def config(self, control, name="node.toml"):
        path = self.directory / name
        path.write_text('[node]\nshelf = "2"\nboard-position = 5\ntal = false\n'
                        '[isa]\nunknown = "accept"\n' + control + LINES)
        return path

    def start(self, control='[control]\nsocket = "control.sock"\n', *arguments):
        self.start_node(self.config(control), *arguments)
        channel = grpc.insecure_channel(f"unix:{self.socket}")
        self.addCleanup(channel.close)
        grpc.channel_ready_future(channel).result(timeout=PATIENCE)
        self.client = Reflected(channel)

    def listen(self):
        """The same events twice: as talctl prints them and as the other client gets them."""
        talctl = subprocess.Popen(
            [TALCTL, "--server", f"unix:{self.socket}", "--json", "events", "1/1"],
            stdout=subprocess.PIPE, text=True)
        self.addCleanup(talctl.stdout.close)
        self.addCleanup(talctl.wait)
        self.addCleanup(talctl.kill)
        stream = self.client.stream("Events", interface=1)
        self.addCleanup(stream.cancel)
        until("both listen", lambda: self.talctl("status")["node"]["event_clients"] == 2)
        return talctl, LiveEvents(talctl.stdout, json.loads), LiveEvents(stream)

    def test_login_from_switching_on_to_switching_off(self):
        self.start()
        status = self.talctl("status")
        self.assertFalse(status["admin"])
        self.assertEqual(("2", 5, []), (status["node"]["shelf"], status["node"]["board_position"],
                                        status["servers"]))
        talctl, shown, streamed = self.listen()

        self.client.call("AdminStateSet", enabled=True)
        self.talctl("interface", "set", "1/1", "--admin", "on")
        self.talctl("rule", "add", "1/1", "--vendor-id", "udhcp*")
        self.assertEqual(b"udhcp", self.client.call(
            "RuleGet", interface=1).rules[0].vendor_id.text)

        login = shown.until(lambda event: event["kind"] == "store")
        self.assertEqual(["trap", "gate", "request", "verdict", "verdict", "gate", "store"],
                         [event["kind"] for event in login])
        self.assertIn("vendor-id udhcp*", login[0]["text"])
        self.assertEqual("authentication accepted", login[3]["text"])
        self.assertEqual("written to /var/log/tal.store.dat", login[6]["text"])
        self.assertEqual({"1/1"}, {event["interface_name"] for event in login})
        same = streamed.until(lambda event: event.number == login[-1]["number"])
        self.assertEqual([event["text"] for event in login], [event.text for event in same])

        interface = self.talctl("interface", "show", "1/1")
        self.assertEqual(("open", "open", "accepted"),
                         (interface["port_state"], interface["gate"],
                          interface["states"]["authentication"]))
        forwarded = until("frames pass", lambda: self.client.call(
            "IntfStatisticsGet", interface=1).forwarded)
        counters = self.talctl("stats", "1/1")["interfaces"][0]["counters"]
        # Both stages accept.
        self.assertEqual((1, 2, 0), (counters["requests_raised"], counters["accepts"],
                                     counters["rejects"]))
        self.assertGreaterEqual(counters["forwarded"], forwarded)
        self.assertEqual(0, self.client.call("IntfStatisticsGet", interface=2).requests_raised)

        stored = self.talctl("logins")["logins"]
        # The client is 12:34:56:78:9a:bc; of each byte the module reads the first digit.
        self.assertEqual([(1, "01:03:05:07:09:0B")],
                         [(each["interface"], each["source_mac"]) for each in stored])
        self.assertEqual(stored, self.talctl("store", "show", str(STORE))["logins"])
        self.assertEqual(stored[0]["circuit_id"],
                         self.client.call("ListStoredLogins").logins[0].circuit_id)

        self.talctl("admin", "off")
        self.assertEqual([], self.talctl("logins")["logins"])
        self.assertNotIn("interface:", STORE.read_text() if STORE.exists() else "")
        off = shown.until(lambda event: event["kind"] == "store")
        self.assertEqual("deleted from /var/log/tal.store.dat", off[-1]["text"])
        self.assertIn("gate", [event["kind"] for event in off])
        self.assertEqual("closed", self.talctl("interface", "show", "1/1")["gate"])
        self.end()
        self.assertEqual(4, talctl.wait(timeout=PATIENCE))

    def test_rule_for_any_frame_comes_and_goes(self):
        self.start("", "--control", str(self.socket))
        self.talctl("rule", "add", "1/2", "--any")
        self.assertEqual([{"kind": "any", "value": ""}], self.talctl("rule", "show", "1/2")["rules"])
        self.talctl("admin", "on")
        until("the login", lambda: self.talctl("interface", "show", "1/2")["gate"] == "open")
        self.talctl("rule", "delete", "1/2", "any")
        self.assertEqual([], self.talctl("rule", "show", "1/2")["rules"])
        self.assertEqual("blocked", self.talctl("interface", "show", "1/1")["port_state"])
        self.end()

    def refused(self, control):
        path = self.config(control, "other.toml")
        done = subprocess.run([TALNODE, "--config", path, "--pace", "recorded", "--stay"],
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(1, done.returncode, done.stderr)
        return done.stderr

    def test_second_node_leaves_the_socket_alone(self):
        self.start()
        self.assertIn("another process listens there",
                      self.refused('[control]\nsocket = "control.sock"\n'))
        self.assertEqual(2, len(self.talctl("interface", "list")["interfaces"]))
        self.end()

    def test_tcp_without_certificates_is_refused(self):
        said = self.refused('[control]\nlisten = "127.0.0.1:1"\n')
        self.assertIn("no server certificate is configured", said)
        # What it prints, up to the first blank line behind it, is the way out.
        commands = [line for line in said.splitlines() if "openssl req" in line or line.strip()
                    .startswith(("$new", "for who", "-addext", "done"))]
        self.assertGreaterEqual(len(commands), 6)

    def test_tcp_is_for_those_whom_the_ca_has_signed(self):
        """With the very commands that the documentation gives."""
        document = (pathlib.Path(__file__).parents[2] / "docs/operations.md").read_text()
        commands = document[document.index('new="openssl req'):]
        commands = commands[:commands.index("```")]
        for name in ("ours", "others"):
            (self.directory / name).mkdir()
            subprocess.run(["bash", "-euc", commands], cwd=self.directory / name, check=True,
                           capture_output=True, timeout=PATIENCE)
        port = free_port()
        self.start(f'[control]\nsocket = "control.sock"\nlisten = "127.0.0.1:{port}"\n'
                   'certificate = "ours/node.crt"\nkey = "ours/node.key"\n'
                   'client-ca = "ours/ca.crt"\n')

        def over_tls(directory, ca, command=("admin", "on")):
            keys = self.directory / directory
            return subprocess.run(
                [TALCTL, "--server", f"localhost:{port}", "--timeout", "5", "--ca", self.directory / ca / "ca.crt",
                 "--cert", keys / "operator.crt", "--key", keys / "operator.key", *command],
                capture_output=True, text=True, timeout=60, check=False)

        for directory, ca in (("others", "ours"), ("ours", "others"), ("others", "others")):
            refused = over_tls(directory, ca)
            self.assertEqual((3, ""), (refused.returncode, refused.stdout), refused.stderr)
        self.assertFalse(self.talctl("status")["admin"])
        done = over_tls("ours", "ours")
        self.assertEqual((0, "done\n", ""), (done.returncode, done.stdout, done.stderr))
        self.assertTrue(self.talctl("status")["admin"])
        self.end()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
