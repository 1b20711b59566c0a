#!/usr/bin/python3
"""What follows a login at a whole node: accounting, sessions that end, servers that end or change
them, and what becomes of open lines when all servers are dead.
Usage: radius_session_test.py BUILD-DIRECTORY SAMPLES [TEST]"""
import pathlib
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from radius_stage import PATIENCE, RadiusStage, enter_private_log, until  # noqa: E402
from free_radius import accepted, free_port  # noqa: E402


class SessionStage(RadiusStage):
    def records(self, user):
        """Status, session, input packets and cause of each."""
        return [(status, session, int(packets), cause)
                for name, status, session, _, packets, cause in self.rad.accounted()
                if name == user]

    def statuses(self, user):
        return [record[0] for record in self.records(user)]

    def begin(self, users, **options):
        self.rad = self.server(users)
        self.secrets(first=self.rad.secret)
        self.config(self.to("first", self.rad.port, self.rad.accounting_port),
                    radius='session-file = "sessions"\n' + options.pop("radius", ""), **options)
        self.start()


class Accounting(SessionStage):
    def test_session_is_told_from_its_start_to_its_stop(self):
        self.begin(accepted("line-1", 'Class = "one"', 'Class += "two"') + accepted("line-2"),
                   lines=2, per_second=20, tables="[radius.accounting]\n")
        self.until_open(1, 2)
        until("both are told", lambda: self.statuses("line-1") == self.statuses("line-2")
              == ["Start"])
        until("frames pass", lambda: self.json("stats", "1/1")["interfaces"][0]["counters"][
            "forwarded"] > 5)
        self.talctl("interface", "set", "1/1", "--admin", "off")
        until("the Stop", lambda: len(self.records("line-1")) == 2)
        start, stop = self.records("line-1")
        self.assertEqual(("Start", "Stop", "Admin-Reset"), (start[0], stop[0], stop[3]))
        self.assertEqual(start[1], stop[1])
        self.assertGreater(stop[2], 5)
        self.assertEqual(["Start"], self.statuses("line-2"))
        self.assertEqual("accounting", self.servers("accounting")["first"]["role"])
        until("answers are counted", lambda: self.servers("accounting")["first"]["counters"][
            "accounting_answers"] == 3)
        # A new login is a new session.
        self.talctl("interface", "set", "1/1", "--admin", "on")
        until("the next Start", lambda: self.statuses("line-1") == ["Start", "Stop", "Start"])
        self.assertNotEqual(start[1], self.records("line-1")[2][1])
        self.end()
        self.assertEqual(["Start"], self.statuses("line-2"))

    def test_stop_that_no_server_took_is_told_by_the_next_process(self):
        self.begin(accepted("line-1"), tables="[radius.accounting]\n")
        self.until_open(1)
        until("the Start", lambda: self.statuses("line-1") == ["Start"])
        session = self.records("line-1")[0][1]
        sessions = self.directory / "sessions"
        until("it is known as told", lambda: sessions.read_text().split("\n")[1].split()[3] == "1")
        self.rad.stop()
        self.talctl("interface", "set", "1/1", "--admin", "off")
        until("the end is written", lambda: sessions.read_text().split("\n")[1].split()[4] != "0")
        self.kill()
        self.rad.start()
        self.start()
        until("the Stop", lambda: "Stop" in self.statuses("line-1"))
        stop = next(each for each in self.records("line-1") if each[0] == "Stop")
        self.assertEqual((session, "Admin-Reset"), (stop[1], stop[3]))
        self.end()

    def test_session_that_is_over_logs_in_again_without_traffic(self):
        self.begin(accepted("line-1", "Session-Timeout = 1"), line="start-ms = 600000\n"
                   "auto-request = true", tables="[radius.accounting]\n")
        until("two sessions are over", lambda: self.statuses("line-1").count("Stop") >= 2)
        records = self.records("line-1")
        self.assertEqual(["Start", "Stop", "Start", "Stop"], [each[0] for each in records][:4])
        self.assertEqual(records[0][1], records[1][1])
        self.assertNotEqual(records[1][1], records[2][1])
        self.assertEqual({"Session-Timeout"}, {each[3] for each in records if each[0] == "Stop"})
        self.end()

    def test_identifiers_survive_the_login_after_a_session(self):
        self.begin(accepted("line-1", "Session-Timeout = 1"))
        self.until_open(1)
        before = until("the login", lambda: self.json("logins")["logins"])
        self.assertNotEqual("", before[0]["vendor_id"])
        self.until_logged("the session is over")
        self.until_logged("blocked -> pending .stored request")
        self.until_open(1)
        self.assertEqual(before, self.json("logins")["logins"])
        self.end()


    def test_logins_and_accounting_go_over_tls(self):
        self.rad = self.server(accepted("line-1") + accepted("line-2"), tls=True)
        self.secrets(unused=self.rad.secret)
        tls = (f'transport = "tls"\npeer-name = "127.0.0.1"\nauthorities = "server/ca.pem"\n'
               'certificate = "server/client.pem"\nkey = "server/client.key"\n')
        self.config(self.to("first", self.rad.port, more=tls), lines=2,
                    radius='session-file = "sessions"', tables="[radius.accounting]\n")
        self.start()
        self.until_open(1, 2)
        until("both are told", lambda: self.statuses("line-1") == self.statuses("line-2")
              == ["Start"])
        self.assertEqual("tls", self.servers()["first"]["transport"])
        # The server drops its connections; new ones are made.
        self.rad.stop()
        self.rad.start()
        self.talctl("interface", "set", "1/1", "--admin", "off")
        until("the Stop", lambda: self.statuses("line-1") == ["Start", "Stop"])
        self.talctl("interface", "set", "1/1", "--admin", "on")
        self.until_open(1)
        self.end()
        key = self.directory / "server" / "client.key"
        key.chmod(0o644)
        done = subprocess.run([self.BUILD / "bin/talnode", "--config",
                               self.directory / "node.toml"], capture_output=True, text=True,
                              timeout=PATIENCE, check=False)
        self.assertEqual(2, done.returncode)
        self.assertIn("client.key: gives rights to group or others", done.stderr)


class Dynamic(SessionStage):
    def begin_listening(self, users):
        self.listen = free_port()
        self.rad = self.server(users)
        self.secrets(first=self.rad.secret, centre="secret of the centre")
        self.config(self.to("first", self.rad.port, self.rad.accounting_port), lines=2,
                    radius='session-file = "sessions"', tables="[radius.accounting]\n"
                    f'[radius.dynamic]\nlisten = "127.0.0.1:{self.listen}"\n'
                    '[[radius.dynamic.client]]\nname = "centre"\naddress = "127.0.0.1"\n')
        self.start()
        self.until_open(1, 2)
        until("both are told", lambda: self.statuses("line-1") == self.statuses("line-2")
              == ["Start"])

    def ask(self, what, attributes, secret="secret of the centre"):
        """What radclient says of the answer; empty: there was none."""
        secret_file = self.directory / "asker"
        secret_file.write_text(secret + "\n")
        text = "".join(f"{each}\n" for each in [
            *attributes, f"Event-Timestamp = {int(time.time())}", "Message-Authenticator = 0x00"])
        done = subprocess.run(
            ["radclient", "-x", "-r", "1", "-t", "2", "-S", secret_file,
             f"127.0.0.1:{self.listen}", what],
            input=text, capture_output=True, text=True, timeout=PATIENCE, check=False)
        return "".join(line for line in (done.stdout + done.stderr).splitlines(True)
                       if "Received" in line or "Error-Cause" in line)

    def test_servers_end_and_change_logins(self):
        self.begin_listening(accepted("line-1", 'Filter-Id = "gold"') + accepted("line-2"))
        self.assertIn("NAK", self.ask("disconnect", ['User-Name = "line-9"']))
        self.assertEqual("", self.ask("disconnect", ['User-Name = "line-1"'], "another secret"))
        self.assertEqual({1, 2}, self.lines_in("open"))

        self.assertIn("CoA-ACK", self.ask("coa", ['User-Name = "line-1"', 'Filter-Id = "silver"']))
        self.until_logged('profile .*"?silver')
        self.assertEqual({1, 2}, self.lines_in("open"))

        session = self.records("line-1")[0][1]
        self.assertIn("Disconnect-ACK", self.ask("disconnect", [
            'User-Name = "line-1"', f'Acct-Session-Id = "{session}"']))
        self.assertEqual({1: "rejected", 2: "open"}, self.states())
        until("the Stop", lambda: self.statuses("line-1") == ["Start", "Stop"])
        self.assertEqual("Admin-Reset", self.records("line-1")[1][3])
        self.assertIn("NAK", self.ask("disconnect", [f'Acct-Session-Id = "{session}"']))

        # Servers know a login by the name that its session began with.
        path = self.directory / "node.toml"
        path.write_text(path.read_text().replace('"line-{', '"other-{'))
        self.reload("counters begin again")
        self.assertIn("NAK", self.ask("coa", ['User-Name = "other-2"', "Session-Timeout = 1"]))
        self.assertIn("CoA-ACK", self.ask("coa", ['User-Name = "line-2"', "Session-Timeout = 3600"]))
        path.write_text(path.read_text().replace('"other-{', '"line-{'))
        self.reload("counters begin again")

        self.assertIn("CoA-ACK", self.ask("coa", ["NAS-Port = 2", "Session-Timeout = 1"]))
        until("line 2 logs in again",
              lambda: self.statuses("line-2")[:3] == ["Start", "Stop", "Start"])
        self.end()


class FailurePolicy(SessionStage):
    def test_open_lines_stay_open_when_the_policy_says_so(self):
        self.begin(accepted("line-1"), lines=2, radius='on-failure = "keep"\npatience-ms = 300')
        self.until_open(1)
        self.until_logged("authentication rejected")
        sessions = self.directory / "sessions"
        until("the session is written", lambda: sessions.exists() and len(
            sessions.read_text().split("\n")) == 4)
        self.rad.stop()
        self.kill()
        self.start()
        self.until_logged("opened as it was")
        self.until_open(1)
        # The other line was not open; it waits for a verdict.
        self.assertEqual({1}, self.lines_in("open"))
        self.rad.know("")
        self.rad.start()
        until("the servers' word counts again", lambda: self.states()[1] == "rejected")
        self.end()

    def test_open_lines_are_blocked_otherwise_until_a_server_says_so(self):
        self.begin(accepted("line-1"), radius="patience-ms = 300")
        self.until_open(1)
        until("it is stored", lambda: self.stored() == {1})
        self.rad.stop()
        self.kill()
        self.start()
        self.until_logged("no server answered: asked again", 2)
        self.assertEqual({1}, self.lines_in("pending"))
        self.rad.start()
        self.until_open(1)
        self.end()


if __name__ == "__main__":
    enter_private_log()
    RadiusStage.BUILD, RadiusStage.SAMPLES = (pathlib.Path(each) for each in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
