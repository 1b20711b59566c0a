#!/usr/bin/python3
"""Profiles from the login that creates them to the switching off that deletes them, seen and kept
through talctl alone. Usage: managed_profiles_test.py BUILD-DIRECTORY SAMPLES"""
import sys
import unittest

from managed import Managed, SAMPLES, until

BOARD_WITH_DSL_LINES = 5
BOARD_WITHOUT = 2
KINDS = ("service", "vlan", "flow", "multicast", "security", "l2cp", "access-list", "dsl", "alarm")


def key(kind):
    return kind if kind == "access-list" else f"{kind}-profile"


class ManagedProfiles(Managed):
    def start(self, board, *profiles):
        """A line for each of `profiles`, whose login brings these: name by kind."""
        users = lines = ""
        for number, names in enumerate(profiles, 1):
            users += (f'[[isa.user]]\ncircuit-id = "KORVALIN:1 eth 5/1/{number}"\n'
                      'verdict = "accept"\n')
            users += "".join(f'{key(kind)} = "{name}"\n' for kind, name in names.items())
            lines += (f'[[interface]]\nid = {number}\nname = "1/{number}"\n'
                      f'kernel-name = "dsl{number}"\ncapture = "{SAMPLES / "udhcpc.pcap"}"\n'
                      '[[interface.rule]]\nany = true\n')
        config = self.directory / "node.toml"
        config.write_text(f'[node]\nboard-position = 5\nboard-type = {board}\n'
                          '[control]\nsocket = "control.sock"\n'
                          '[profiles]\nfile = "profiles"\n' + users + lines)
        self.start_node(config)
        until("all logins", lambda: len(self.talctl("logins")["logins"]) == len(profiles))

    def profiles(self):
        """Kind, name, state and interfaces of all that are not built in."""
        return [(each["kind"], each["name"], each["state"], each["interfaces"])
                for each in self.talctl("profiles", "list")["profiles"]
                if each["state"] != "built-in"]

    def await_profiles(self, expected):
        until("the profiles of the logins", lambda: self.profiles() == expected)

    def said(self, what):
        """What the log's lines about profiles say, without their time and line, once."""
        return [line.split("profile", 1)[1].strip() for line in self.log.read_text().splitlines()
                if " profile " in line and what in line]

    def test_converted_ones_outlive_a_restart_and_switching_off(self):
        first = {"service": "gold", "vlan": "v1", "flow": "f1"}
        second = {"service": "gold", "dsl": "d2"}
        self.start(BOARD_WITH_DSL_LINES, first, second)
        self.await_profiles([("service", "gold", "dynamic", [1, 2]), ("vlan", "v1", "dynamic", [1]),
                             ("flow", "f1", "dynamic", []), ("dsl", "d2", "dynamic", [2])])
        self.talctl("profiles", "convert")
        kept = [("service", "gold", "static", [1, 2]), ("vlan", "v1", "static", [1]),
                ("flow", "f1", "static", []), ("dsl", "d2", "static", [2])]
        self.assertEqual(kept, self.profiles())
        self.end()

        # Every line now brings one of each kind beside the ones that were kept.
        self.start(BOARD_WITH_DSL_LINES, {kind: "a" for kind in KINDS},
                   {kind: "b" for kind in KINDS})
        until("18 new ones", lambda: len(self.profiles()) == len(kept) + 2 * len(KINDS))
        # They stay, but the lines now have others.
        kept = [(kind, name, state, []) for kind, name, state, _ in kept]
        self.assertEqual(kept, [each for each in self.profiles() if each[2] == "static"])

        self.talctl("interface", "set", "1/1", "--admin", "off")
        belonging = ("service", "vlan", "dsl", "alarm")
        self.assertEqual([kind for kind in KINDS if kind not in belonging],
                         [kind for kind, name, _, _ in self.profiles() if name == "a"])
        self.assertEqual(list(KINDS), [kind for kind, name, _, _ in self.profiles() if name == "b"])

        before = len(self.said("deleted"))
        self.talctl("admin", "off")
        self.assertEqual(kept, self.profiles())
        self.assertEqual(
            list(KINDS), [line.split()[1] for line in self.said("deleted")[before:]])
        self.assertIn("saved 4 static and 0 dynamic", self.said("saved")[-1])
        self.assertEqual([], self.talctl("logins")["logins"])
        self.end()

    def test_board_without_dsl_lines_has_nothing_to_do_with_dsl(self):
        self.start(BOARD_WITHOUT, {kind: "a" for kind in KINDS})
        ours = [kind for kind in KINDS if kind not in ("dsl", "alarm")]
        until("those of the login", lambda: [each[0] for each in self.profiles()] == ours)
        self.talctl("profiles", "convert")
        self.assertEqual({"static"}, {state for _, _, state, _ in self.profiles()})
        self.talctl("admin", "off")
        self.assertEqual(ours, [each[0] for each in self.profiles()])
        self.assertEqual([], self.said("deleted"))
        self.end()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
