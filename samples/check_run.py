#!/usr/bin/env python3
"""Checks what three runs of samples/node.toml came to: check_run.py DIRECTORY

The directory holds, of the first run, of the second and of one whose configuration has no rules
at all and finds no stored logins (ruleless), the report (first.json), the node's output
(first.log) and the storage file after the run (first.dat). Prints one line per thing checked and
fails when any of them is not as it must be.
"""
import json
import pathlib
import sys

CIRCUIT = "KORVALIN:2 eth 5/"

# What the captures hold (samples/README.md) as the module passes it on: of each byte of the
# hardware address the first hex digit, of each octet of the IP address the first two digits.
ACCEPTED = {
    "1/1": {"vendor": "udhcp 1.35.0", "client": "123456789abc", "mac": "01:03:05:07:09:0b"},
    "1/2": {"vendor": "set-top-box 2.4", "client": b"ubscriber-2".hex(),
            "mac": "02:04:06:08:0a:0c"},
    "1/3": {"vendor": "home-gateway 1.0", "client": "7698badc0003000132547698badc",
            "mac": "03:05:07:09:0b:0d"},
    "1/4": {"remote": "subscriber-0004", "vendor": "relayed client 1.0", "client": "426486a8caec",
            "mac": "0e:00:02:04:06:08", "ip": "19.5.10.0"},
    "1/6": {"mac": "06:08:0a:0c:0e:00", "ip": "19.0.0.1"},
    "1/8": {"vendor": "udhcp 1.35.0", "client": "7294b6d8fa1c", "mac": "07:09:0b:0d:0f:01",
            "vlan": "100"},
    "1/10": {"mac": "08:0a:0c:0e:00:02"},
    "1/11": {"mac": "08:0a:0c:0e:00:02"},
    "1/12": {"mac": "05:07:09:0b:0d:0f", "ip": "19.0.0.1"},
    "1/13": {"vendor": "udhcp 1.35.0", "client": "7294b6d8fa1c", "mac": "07:09:0b:0d:0f:01",
             "vlan": "100"},
}
# What triggers each login: a line has this rule and no other. Among the accepted ones every kind
# of rule is there once.
RULES = {
    "1/1": "vendor-id udhcp*",
    "1/2": "client-id subscriber-2*",
    "1/3": "dhcp discover",
    "1/4": "remote-id subscriber-0004*",
    "1/5": "ethertype 0x0806",
    "1/6": "ip 192.0.2.16/32",
    "1/7": "dhcp any",
    "1/8": "vlan 100",
    "1/10": "any",
    "1/11": "ethertype 0x888e",
    "1/12": "mac 52:74:96:00:00:00/ff:ff:ff:00:00:00",
    "1/13": "user-pattern " + 12 * "00" + "8100a0/" + 12 * "00" + "ffffe0",
}
KINDS = ["any", "client-id", "dhcp", "ethertype", "ip", "mac", "remote-id", "user-pattern",
         "vendor-id", "vlan"]
NOISE_RULES = ["dhcp any", "ip 192.0.2.0/24", "vlan 101"]
# Source address of the trapped frame: the pattern, a copy of the frame, must carry it.
SOURCES = {"1/1": "123456789abc", "1/2": "22446688aacc", "1/3": "32547698badc",
           "1/4": "e20426486a8c", "1/6": "6284a6c8ea0c", "1/8": "7294b6d8fa1c",
           "1/10": "82a4c6e80a2c", "1/11": "82a4c6e80a2c", "1/12": "527496b8dafc",
           "1/13": "7294b6d8fa1c"}
# The storage file holds the VLAN id in hex and it is read back as decimal.
REPLAYED_DIFFERENTLY = {"1/8": {"vlan": "64"}, "1/13": {"vlan": "64"}}
REJECTED = "1/5"
NEVER_ANSWERED = "1/7"
NOISE = "1/9"

# Profiles that logins bring (samples/node.toml): those of lines, and those of no line.
PROFILES = {"1/1": [("service", "gold", "dynamic"), ("vlan", "vlan-11", "dynamic")],
            "1/2": [("service", "gold", "dynamic")]}
PROFILES_OF_NO_LINE = [("multicast", "tv", "dynamic")]

failures = 0


def check(what, seen, wanted):
    global failures
    good = seen == wanted
    failures += not good
    print(f"  {'ok  ' if good else 'FAIL'}  {what}" +
          ("" if good else f": is {seen!r}, must be {wanted!r}"))


def load(directory, run):
    report = json.loads((directory / f"{run}.json").read_text())
    return ({line["name"]: line for line in report["lines"]},
            (directory / f"{run}.log").read_text().splitlines(),
            (directory / f"{run}.dat").read_text(),
            report)


def stored_blocks(text):
    """Circuit id by interface id of a storage file."""
    lines = text.splitlines()
    blocks = {}
    for index, line in enumerate(lines):
        if line.startswith("interface: "):
            blocks[int(line.removeprefix("interface: "))] = (
                lines[index + 2].removeprefix("circuitId: "))
    return blocks, len(lines)


def steps(log, name):
    """The kinds of the log lines of an interface, in their order."""
    rows = [line.split() for line in log]
    return [row[3] for row in rows if len(row) > 3 and row[2] == name]


def in_order(wanted, seen):
    rest = iter(seen)
    return all(kind in rest for kind in wanted)


def identifiers(line):
    return {key: value for key, value in line["request"].items() if key != "pattern"}


def profiles(holder):
    return [(one["kind"], one["name"], one["state"]) for one in holder["profiles"]]


def check_whole(title, lines, log, report):
    print(title)
    check("the captures were played to their end", report["end"], "the captures were played")
    check("the module was unloaded", any("stopped and unloaded" in line for line in log), True)
    check("all lines are there", sorted(lines),
          sorted([*ACCEPTED, REJECTED, NEVER_ANSWERED, NOISE]))
    for name, line in lines.items():
        check(f"{name} its capture is whole and has frames",
              (line["damage"], line["frames"] > 0), ("", True))


def check_run(title, lines, log, report):
    check_whole(title, lines, log, report)
    check("profiles that logins brought to their lines",
          {name: profiles(line) for name, line in lines.items() if line["profiles"]}, PROFILES)
    check("profiles that logins brought to no line", profiles(report), PROFILES_OF_NO_LINE)
    for name, line in lines.items():
        check(f"{name} its rules", line["rules"],
              NOISE_RULES if name == NOISE else [RULES[name]])
        check(f"{name} the rule that triggered", line["rule"],
              RULES[name] if line["traps"] else "")
        closed = name not in ACCEPTED
        check(f"{name} gate {'let nothing' if closed else 'lets frames'} through",
              line["counters"]["forwarded"] == 0, closed)
    for name, verdict, gate, traps in ((REJECTED, "rejected", "rejected", 1),
                                       (NEVER_ANSWERED, "no answer", "blocked", 1),
                                       (NOISE, "-", "blocked", 0)):
        line = lines[name]
        check(f"{name} verdict, gate, stored, logins asked for",
              (line["verdict"], line["gate"], line["stored"], line["traps"], line["replayed"]),
              (verdict, gate, False, traps, 0))
    check(f"{NEVER_ANSWERED} gave up by its timeout",
          lines[NEVER_ANSWERED]["counters"]["timeouts"], 1)


def check_first(lines, log, data):
    for name, wanted in ACCEPTED.items():
        line = lines[name]
        check(f"{name} verdict, gate, stored, logins asked for",
              (line["verdict"], line["gate"], line["stored"], line["traps"], line["replayed"]),
              ("accepted", "open", True, 1, 0))
        check(f"{name} identifiers of the request", identifiers(line),
              {"circuit": CIRCUIT + name, **wanted})
        pattern = line["request"].get("pattern", "")
        check(f"{name} pattern is the start of the trapped frame",
              (len(pattern), pattern[12:24]), (256, SOURCES[name]))
        check(f"{name} trap, request, verdict, open gate, stored login",
              in_order(["trap", "gate", "request", "verdict", "gate", "stored"], steps(log, name)),
              True)
    check("every kind of rule triggered one of the accepted logins",
          sorted(lines[name]["rule"].split()[0] for name in ACCEPTED), KINDS)
    blocks, count = stored_blocks(data)
    check("the storage file holds the accepted logins and no other", blocks,
          {lines[name]["id"]: CIRCUIT + name for name in ACCEPTED})
    check("the storage file has 14 lines per login", count, 14 * len(ACCEPTED))


def check_second(lines, log, data, first_lines, first_data):
    for name, wanted in ACCEPTED.items():
        line = lines[name]
        check(f"{name} verdict, gate, stored, replayed once, nothing trapped",
              (line["verdict"], line["gate"], line["stored"], line["replayed"], line["traps"]),
              ("accepted", "open", True, 1, 0))
        check(f"{name} identifiers are the stored ones", identifiers(line),
              {"circuit": CIRCUIT + name, **wanted, **REPLAYED_DIFFERENTLY.get(name, {})})
        check(f"{name} stored pattern of the trapped frame",
              line["request"].get("pattern"), first_lines[name]["request"].get("pattern"))
        check(f"{name} was open before its first frame: all were forwarded, none waited",
              (line["counters"]["forwarded"], line["counters"]["frames-queued"]),
              (line["frames"], 0))
        check(f"{name} request, verdict, open gate",
              in_order(["gate", "request", "verdict", "gate", "stored"], steps(log, name)), True)
    check("the storage file is what it was", data == first_data, True)


def check_ruleless(lines, log, data, report):
    check_whole("a run without rules: the same traffic, every line stays blocked", lines, log,
                report)
    check("no login brought profiles", (
        [name for name, line in lines.items() if line["profiles"]], report["profiles"]), ([], []))
    for name, line in lines.items():
        check(f"{name} verdict, gate, stored, logins asked for, rules",
              (line["verdict"], line["gate"], line["stored"], line["traps"], line["rules"]),
              ("-", "blocked", False, 0, []))
        check(f"{name} every frame was dropped",
              line["counters"]["dropped-blocked"], line["frames"])
    check("nothing was trapped or asked",
          [line for line in log if " trap " in line or " request " in line], [])
    check("the storage file holds nothing", data, "")


def main():
    directory = pathlib.Path(sys.argv[1])
    first_lines, first_log, first_data, first_report = load(directory, "first")
    second_lines, second_log, second_data, second_report = load(directory, "second")
    check_run("first run: subscribers log in", first_lines, first_log, first_report)
    check_first(first_lines, first_log, first_data)
    check_run("second run: stored logins are replayed", second_lines, second_log, second_report)
    check_second(second_lines, second_log, second_data, first_lines, first_data)
    check_ruleless(*load(directory, "ruleless"))
    if failures:
        sys.exit(f"{failures} checks failed")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    try:
        main()
    except (OSError, ValueError, KeyError) as error:
        sys.exit(f"the run left nothing that can be checked: {error!r}")
