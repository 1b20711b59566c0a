#!/usr/bin/python3
"""Servers that die, come back, lose and delay packets, and nodes that are killed, under a whole
node: no login is lost, none is let in that should not be, and store, gates and servers agree
afterwards. Usage: radius_failure_test.py BUILD-DIRECTORY SAMPLES [TEST]"""
import pathlib
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from radius_stage import RadiusStage, enter_private_log, until  # noqa: E402
from free_radius import accepted, free_port, rejected  # noqa: E402

ALL = 99


def users():
    """Every tenth line is refused."""
    return "".join(rejected(f"line-{line}") if line % 10 == 0
                   else accepted(f"line-{line}", f'Class = "class-{line}"')
                   for line in range(1, ALL + 1))


GOOD = {line for line in range(1, ALL + 1) if line % 10 != 0}
BAD = set(range(1, ALL + 1)) - GOOD


class FailureStage(RadiusStage):
    def settle(self):
        """Until every line has the verdict that it should have."""
        until("every line is decided",
              lambda: self.lines_in("open") == GOOD and self.lines_in("rejected") == BAD)
        until("every good line is stored", lambda: self.stored() == GOOD)


class Outages(FailureStage):
    def test_second_server_takes_over_from_a_dead_first(self):
        server = self.server(accepted("line-1") + rejected("line-2"))
        self.secrets(first="nobody listens there", second=server.secret)
        self.config(self.to("first", free_port()) + self.to("second", server.port), lines=2)
        self.start()
        self.until_open(1)
        self.until_logged("authentication rejected")
        self.assertEqual({1: "open", 2: "rejected"}, self.states())
        until("the counters", lambda: self.servers()["second"]["counters"]["accepts"] == 1)
        self.assertEqual("dead", self.servers()["first"]["state"])
        self.end()

    def test_lines_without_traffic_log_in_when_a_server_is_back(self):
        server = self.server(accepted("line-1") + accepted("line-2"))
        server.stop()
        self.secrets(first=server.secret)
        # The first line's request is given up before the server is back, the second's is not.
        self.config(self.to("first", server.port), lines=2,
                    line="start-ms = 600000\nauto-request = true\ntimeout = 1")
        path = self.directory / "node.toml"
        before, last = path.read_text().rsplit("timeout = 1", 1)
        path.write_text(before + "timeout = 300" + last)
        self.start()
        self.until_logged("no answer in time", 1)
        until("the server counts as dead", lambda: self.servers()["first"]["state"] == "dead")
        server.start()
        self.until_open(1, 2)
        until("both are stored", lambda: self.stored() == {1, 2})
        until("the return is counted",
              lambda: self.servers()["first"]["counters"]["returns"] == 1)
        self.end()

    def test_thirty_percent_loss_and_a_restart_in_mid_flight_cost_no_login(self):
        server = self.server(users())
        port = self.proxy(server.port)
        self.spoil(port, "loss 0.3 spread-ms 40 duplicate 0.1")
        self.secrets(first=server.secret)
        self.config(self.to("first", port), lines=ALL, radius="patience-ms = 2000", per_second=1)
        self.start()
        until("the first accepts", lambda: len(server.answered()) > 20)
        server.stop()
        time.sleep(0.3)  # that long it is away, however quick the rest is
        server.start()
        self.settle()
        counters = self.servers()["first"]["counters"]
        self.assertGreater(counters["retransmissions"], 0)
        self.end()

    def test_slow_server_decides_all_lines_at_once(self):
        server = self.server(users())
        port = self.proxy(server.port)
        self.spoil(port, "delay-ms 2000")
        self.secrets(first=server.secret)
        self.config(self.to("first", port, more="tries = 10\n"), lines=ALL, per_second=1)
        self.start()
        until("all are under way", lambda: self.servers()["first"]["in_flight"] == ALL)
        self.assertEqual(set(), self.lines_in("open"))
        self.settle()
        until("all are counted",
              lambda: self.servers()["first"]["round_trip"]["count"] == ALL)
        self.assertGreaterEqual(self.servers()["first"]["round_trip"]["p50_us"], 2_000_000)
        self.end()


class Restarts(FailureStage):
    """Whoever is killed during ninety-nine logins."""

    def begin(self):
        self.rad = self.server(users())
        self.behind = self.proxy(self.rad.port)
        # Slow enough that a kill finds logins in every state.
        self.spoil(self.behind, "spread-ms 400")
        self.secrets(first=self.rad.secret)
        self.config(self.to("first", self.behind, self.rad.accounting_port), lines=ALL,
                    radius='session-file = "sessions"', tables="[radius.accounting]\n",
                    per_second=1)
        self.start()
        until("some are decided", lambda: len(self.rad.answered()) > 25)

    def agree(self):
        """Store, gates and the server's view; what was told of sessions counts once each."""
        self.settle()
        accounting = until("accounting is done", self.open_sessions)
        self.assertEqual({f"line-{line}" for line in GOOD}, set(accounting))
        for name, (session, group) in accounting.items():
            self.assertEqual(f"class-{name.removeprefix('line-')}", group)
        self.end()
        self.assertEqual(GOOD, {int(line.split()[1]) for line in (
            self.directory / "sessions").read_text().splitlines()[1:-1]})

    def open_sessions(self):
        """By user, the one session that the server has open; empty until there is one for each."""
        sessions = {}
        for user, status, session, group, _, _ in self.rad.accounted():
            if status == "Start":
                sessions.setdefault(user, {})[session] = self.text(group)
            elif status == "Stop":
                del sessions[user][session]
        if {len(each) for each in sessions.values()} != {1} or len(sessions) != len(GOOD):
            return {}
        return {user: next(iter(each.items())) for user, each in sessions.items()}

    @staticmethod
    def text(group):
        return bytes.fromhex(group[2:]).decode() if group.startswith("0x") else group

    def test_node_is_killed(self):
        self.begin()
        self.kill()
        self.start()
        self.agree()

    def test_node_is_killed_after_all_logins_and_no_session_starts_twice(self):
        self.begin()
        self.settle()
        before = until("accounting is done", self.open_sessions)
        records = len(self.rad.accounted())
        until("all is known as told", lambda: len(GOOD) == sum(
            line.split()[3] == "1" for line in (
                self.directory / "sessions").read_text().splitlines()[1:-1]))
        self.kill()
        self.start()
        self.until_logged("goes on", len(GOOD))
        self.settle()
        self.assertEqual(before, self.open_sessions())
        self.assertEqual(records, len(self.rad.accounted()))
        self.assertEqual(0, self.servers("accounting")["first"]["counters"]["requests"])
        self.end()

    def test_server_is_killed(self):
        self.begin()
        self.rad.stop()
        until("it counts as dead", lambda: self.servers()["first"]["state"] == "dead")
        self.rad.start()
        self.agree()

    def test_both_are_killed(self):
        self.begin()
        self.rad.stop()
        self.kill()
        self.start()
        until("it counts as dead", lambda: self.servers()["first"]["state"] == "dead")
        self.rad.start()
        self.agree()


if __name__ == "__main__":
    enter_private_log()
    RadiusStage.BUILD, RadiusStage.SAMPLES = (pathlib.Path(each) for each in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
