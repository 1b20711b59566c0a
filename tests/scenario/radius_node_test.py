#!/usr/bin/python3
"""Verdicts of servers at a whole node: who is let in, who is not, and that no secret gets out.
Usage: radius_node_test.py BUILD-DIRECTORY SAMPLES [TEST]"""
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from radius_stage import PASSWORD, PATIENCE, RadiusStage, enter_private_log, until  # noqa: E402
from free_radius import accepted, rejected  # noqa: E402


class Logins(RadiusStage):
    def test_each_line_gets_the_servers_verdict(self):
        users = ('"line-1"\tCleartext-Password := "' + PASSWORD + '"\n\tClass = "one", '
                 'Filter-Id = "gold", Filter-Id += "vlan=v100"\n' + rejected("line-2"))
        server = self.server(users)
        self.secrets(first=server.secret)
        self.config(self.to("first", server.port), lines=3)
        self.start()
        self.until_open(1)
        self.until_logged("authentication rejected", 2)
        self.until_logged("stored +written")
        self.assertEqual({1: "open", 2: "rejected", 3: "rejected"}, self.states())
        self.assertEqual({1}, self.stored())
        self.assertEqual(sorted(server.answered()), [
            ("line-1", "Access-Accept"), ("line-2", "Access-Reject"), ("line-3", "Access-Reject")])

        counters = until("the counters", lambda: self.counted(3))
        self.assertEqual((1, 2, 0), (counters["accepts"], counters["rejects"],
                                     counters["timeouts"]))
        shown = self.servers()["first"]
        self.assertEqual((f"127.0.0.1:{server.port}", "alive", "udp", 0, 3),
                         (shown["address"], shown["state"], shown["transport"],
                          shown["in_flight"], shown["round_trip"]["count"]))
        self.assertGreater(shown["round_trip"]["p50_us"], 0)
        self.assertLessEqual(shown["round_trip"]["p50_us"], shown["round_trip"]["p99_us"])
        self.assertIn("ACCEPTS", self.talctl("servers"))
        self.assertTrue(self.json("status")["servers"][0]["alive"])
        # What anybody on the machine may see of the process.
        self.said += pathlib.Path(f"/proc/{self.node.pid}/cmdline").read_text()
        self.said += pathlib.Path(f"/proc/{self.node.pid}/environ").read_text()

        report = self.end()
        self.assertEqual(["accepted", "rejected", "rejected"],
                         [line["verdict"] for line in report["lines"]])
        self.assertEqual([("service", "gold"), ("vlan", "v100")],
                         [(each["kind"], each["name"]) for each in report["lines"][0]["profiles"]])

    def counted(self, requests):
        counters = self.servers()["first"]["counters"]
        return counters if counters["accepts"] + counters["rejects"] == requests else None

    def test_wrong_secret_lets_nobody_in_until_it_is_right(self):
        server = self.server(accepted("line-1"), secret="the secret of the server")
        self.secrets(first="not the secret of it")
        self.config(self.to("first", server.port))
        self.start()
        # The server drops what does not prove the secret.
        until("the server counts as dead", lambda: self.servers()["first"]["state"] == "dead")
        self.assertEqual({1}, self.lines_in("pending"))
        self.assertEqual([], server.answered())
        self.secrets(first=server.secret)
        self.reload("counters begin again")
        self.until_open(1)
        self.end()

    def test_server_that_does_not_sign_lets_nobody_in(self):
        server = self.server(accepted("line-1"), signs=False)
        self.secrets(first=server.secret)
        self.config(self.to("first", server.port))
        self.start()
        until("unsigned answers", lambda: self.servers()["first"]["dropped"][
            "no_message_authenticator"] > 1)
        self.assertEqual({1}, self.lines_in("pending"))
        self.assertEqual(set(), self.stored())
        self.assertIn(("line-1", "Access-Accept"), server.answered())
        report = self.end()
        self.assertEqual("waiting", report["lines"][0]["verdict"])

    def test_forged_answers_let_nobody_in_and_shut_nobody_out(self):
        server = self.server(accepted("line-1") + accepted("line-2") + rejected("line-3"))
        port = self.proxy(server.port)
        self.spoil(port, "forge 1 duplicate 0.5 corrupt 0.1")
        self.secrets(first=server.secret)
        self.config(self.to("first", port), lines=4)
        self.start()
        self.until_open(1, 2)
        self.until_logged("authentication rejected", 2)
        self.assertEqual({1: "open", 2: "open", 3: "rejected", 4: "rejected"}, self.states())
        until("forgeries are counted",
              lambda: self.servers()["first"]["dropped"]["bad_authenticator"] > 0)
        self.end()

    def test_verdict_after_the_lines_timeout_is_not_taken(self):
        server = self.server(accepted("line-1"))
        port = self.proxy(server.port)
        self.spoil(port, "delay-ms 1800")
        self.secrets(first=server.secret)
        # No traffic that could ask again; the line asks once, when its link comes up.
        self.config(self.to("first", port, more="tries = 10\n"), radius="patience-ms = 60000",
                    line='timeout = 1\nstart-ms = 600000\nauto-request = true')
        path = self.directory / "node.toml"
        path.write_text(path.read_text().replace("ask-again-ms = 500", "ask-again-ms = 3600000"))
        self.start()
        self.until_logged("no answer in time")
        until("the late answer", lambda: self.servers()["first"]["dropped"]["late"] > 0)
        self.assertEqual({1}, self.lines_in("blocked"))
        self.assertEqual(set(), self.stored())
        self.assertEqual(0, self.logged("verdict +authentication"))
        self.end()


    def test_cleared_configuration_asks_nobody_until_it_is_read_again(self):
        server = self.server(accepted("line-1"))
        self.secrets(first=server.secret)
        self.config(self.to("first", server.port))
        self.start()
        self.until_open(1)
        self.talctl("isa", "clear")
        self.until_logged("configuration cleared: nobody is asked")
        until("no server is known", lambda: self.json("servers")["servers"] == [])
        self.assertEqual(set(), self.lines_in("open"))
        self.reload("counters begin again")
        self.until_open(1)
        self.assertEqual(2, len(server.answered()))
        self.end()


class Starting(RadiusStage):
    def refused(self, config):
        done = subprocess.run([self.BUILD / "bin/talnode", "--config", config],
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.said += done.stdout + done.stderr
        self.assertEqual(2, done.returncode, done.stderr)
        return done.stderr

    def test_secrets_that_others_may_read_are_refused(self):
        self.secrets(first="a secret of eight or more")
        path = self.config(self.to("first", 1812))
        self.secret_file.chmod(0o640)
        self.assertIn("gives rights to group or others", self.refused(path))
        self.secret_file.chmod(0o600)
        link = self.directory / "link"
        link.symlink_to(self.secret_file)
        path.write_text(path.read_text().replace('"secrets"', '"link"'))
        self.assertIn("is a symbolic link", self.refused(path))

    def test_server_without_secret_is_refused(self):
        self.secrets(other="a secret of eight or more")
        self.assertIn('has no line for "first"', self.refused(self.config(self.to("first", 1812))))

    def test_damaged_sessions_are_left_alone(self):
        self.secrets(first="a secret of eight or more")
        path = self.config(self.to("first", 1812), radius='session-file = "sessions"')
        sessions = self.directory / "sessions"
        sessions.write_text("tal sessions 1\nnonsense\nend 1\n")
        self.assertIn("sessions: is damaged in line 2", self.refused(path))
        self.assertIn("nonsense", sessions.read_text())

    def test_file_with_a_mistake_changes_nothing_in_a_running_node(self):
        server = self.server(accepted("line-1"))
        self.secrets(first=server.secret)
        path = self.config(self.to("first", server.port))
        self.start()
        self.until_open(1)
        until("the counters", lambda: self.servers()["first"]["counters"]["accepts"] == 1)
        good = path.read_text()
        path.write_text(good.replace('"127.0.0.1"', '"nowhere"'))
        self.reload("refused: .*radius.server.address: must be an address in digits")
        path.write_text(good.replace("[radius]", '[radius]\nsession-file = "sessions"'))
        self.reload("refused: .*radius.session-file cannot change while the node runs")
        self.secret_file.chmod(0o644)
        path.write_text(good)
        self.reload("refused: .*gives rights to group or others")
        self.secret_file.chmod(0o600)
        self.reload("node.toml applied")
        self.assertEqual(1, self.servers()["first"]["counters"]["accepts"])
        self.assertEqual({1}, self.lines_in("open"))
        self.end()


if __name__ == "__main__":
    enter_private_log()
    RadiusStage.BUILD, RadiusStage.SAMPLES = (pathlib.Path(each) for each in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
