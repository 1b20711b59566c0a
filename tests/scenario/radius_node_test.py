#!/usr/bin/python3
"""Logins of a whole node at real servers. Usage: radius_node_test.py BUILD-DIRECTORY SAMPLES"""
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from radius_stage import RadiusStage, enter_private_log  # noqa: E402
from free_radius import accepted, rejected  # noqa: E402


class Logins(RadiusStage):
    def test_each_line_gets_the_servers_verdict(self):
        server = self.server(
            accepted("line-1", 'Class = "one"', 'Filter-Id = "gold"', 'Filter-Id += "vlan=v100"') +
            rejected("line-2"))
        self.secrets(first=server.secret)
        self.config(self.to("first", server.port), lines=3)
        self.start()
        self.until_open(1)
        self.until_logged("authentication rejected", 2)
        self.assertEqual({1: "open", 2: "rejected", 3: "rejected"}, self.states())
        self.assertEqual({1}, self.stored())
        self.assertEqual(sorted(server.answered()), [
            ("line-1", "Access-Accept"), ("line-2", "Access-Reject"), ("line-3", "Access-Reject")])
        report = self.end()
        self.assertEqual(["accepted", "rejected", "rejected"],
                         [line["verdict"] for line in report["lines"]])
        self.assertEqual([("service", "gold"), ("vlan", "v100")],
                         [(each["kind"], each["name"]) for each in report["lines"][0]["profiles"]])


if __name__ == "__main__":
    enter_private_log()
    RadiusStage.BUILD, RadiusStage.SAMPLES = (pathlib.Path(each) for each in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
