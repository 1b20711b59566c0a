#!/usr/bin/python3
"""Compares what the captures' README says with the captures and the node that plays them.

usage: check_captures.py [DIRECTORY]      (default: samples/ of this repository)

Every cell of the tables "Lines", "Noise", "Bad captures" and "The node that plays them" that a
machine can judge is computed from the captures and node.toml and compared, and some rules hold for every capture. Prints each difference
and fails if there is one.
"""
import importlib.util
import ipaddress
import pathlib
import struct
import sys
import tomllib

sys.dont_write_bytecode = True  # nothing may appear beside the captures

ETHERNET = 1
NODE_MAC = "f2:14:36:58:7a:9c"
MAGIC = 0xA1B2C3D4
HOP_BY_HOP, ICMP, UDP, ICMPV6 = 0, 1, 17, 58
MESSAGES = {1: "DISCOVER", 2: "OFFER", 3: "REQUEST", 5: "ACK"}
OUR_NETWORKS = [ipaddress.ip_network(net) for net in
                ("192.0.2.0/24", "198.51.100.0/24", "0.0.0.0/32", "255.255.255.255/32",
                 "fe80::/10", "ff02::/16", "::/128")]


# --- captures and frames ----------------------------------------------------------------------

class Capture:
    """A classic capture file as far as it can be read; error says why reading stopped."""

    def __init__(self, content):
        self.frames = []
        self.times = []
        self.linktype = None
        self.error = self._read(content)

    def _read(self, content):
        if not content:
            return "nothing in it"
        if len(content) >= 4 and struct.unpack_from("<I", content)[0] != MAGIC:
            return "no capture"
        if len(content) < 24:
            return "file header cut"
        self.linktype = struct.unpack_from("<I", content, 20)[0]
        position = 24
        while position < len(content):
            if len(content) - position < 16:
                return "record header cut"
            seconds, micros, length, wire = struct.unpack_from("<IIII", content, position)
            if length > 262144:
                return "length absurd"
            position += 16
            if len(content) - position < length:
                return "frame cut"
            if length != wire:
                return "frame shortened when captured"
            self.frames.append(content[position:position + length])
            self.times.append((seconds, micros))
            position += length
        return None if self.linktype == ETHERNET else "link type"


def macText(raw):
    return raw.hex(":")


class Dhcp:
    def __init__(self, message):
        self.xid = message[4:8]
        self.yourAddress = str(ipaddress.ip_address(message[16:20]))
        self.clientMac = macText(message[28:34])
        self.options = tlvs(message[240:], hasPadding=True)
        self.kind = MESSAGES.get(self.options.get(53, b"\0")[0])
        self.agent = tlvs(self.options.get(82, b""), hasPadding=False)


def tlvs(data, hasPadding):
    found = {}
    position = 0
    while position + 1 < len(data):
        code = data[position]
        if hasPadding and code == 0:
            position += 1
            continue
        if hasPadding and code == 255:
            break
        length = data[position + 1]
        found[code] = data[position + 2:position + 2 + length]
        position += 2 + length
    return found


class View:
    """A frame behind its tags."""

    def __init__(self, frame):
        self.source = macText(frame[6:12])
        self.vlan = None
        position = 12
        while (etherType := int.from_bytes(frame[position:position + 2], "big")) == 0x8100:
            tci = int.from_bytes(frame[position + 2:position + 4], "big")
            if self.vlan is None:
                self.vlan = tci
            position += 4
        self.etherType = etherType
        self.payload = frame[position + 2:]
        self.dhcp = self._dhcp()

    def upper(self):
        """Protocol number and bytes of what IPv4 or IPv6 carries; (None, b"") without either."""
        ip = self.payload
        if self.etherType == 0x0800:
            return ip[9], ip[(ip[0] & 15) * 4:int.from_bytes(ip[2:4], "big")]
        if self.etherType == 0x86DD:
            protocol, body = ip[6], ip[40:40 + int.from_bytes(ip[4:6], "big")]
            while protocol == HOP_BY_HOP:
                protocol, body = body[0], body[(body[1] + 1) * 8:]
            return protocol, body
        return None, b""

    def _dhcp(self):
        protocol, body = self.upper()
        if self.etherType != 0x0800 or protocol != UDP:
            return None
        return Dhcp(body[8:]) if set(struct.unpack_from(">HH", body)) <= {67, 68} else None

    def request(self):
        if self.dhcp and self.dhcp.kind == "DISCOVER":
            return "DISCOVER"
        return {0x0800: "IPv4", 0x0806: "ARP"}.get(self.etherType)


# --- rules for every capture ------------------------------------------------------------------

def onesSum(*parts):
    """The internet checksum's sum; 0xFFFF over data that holds a right checksum."""
    data = b"".join(parts)
    data += bytes(len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total


def badChecksums(view):
    """Names of the checksums in a frame that are wrong."""
    protocol, body = view.upper()
    if view.etherType == 0x0800:
        if onesSum(view.payload[:(view.payload[0] & 15) * 4]) != 0xFFFF:
            yield "IPv4"
        if protocol == ICMP and onesSum(body) != 0xFFFF:
            yield "ICMP"
        pseudo = view.payload[12:20] + struct.pack(">HH", protocol, len(body))
    elif view.etherType == 0x86DD:
        pseudo = view.payload[8:40] + struct.pack(">II", len(body), protocol)
        if protocol == ICMPV6 and onesSum(pseudo, body) != 0xFFFF:
            yield "ICMPv6"
    if protocol == UDP and (body[6:8] == bytes(2) or onesSum(pseudo, body) != 0xFFFF):
        yield "UDP"


def addresses(view):
    if view.etherType == 0x0800:
        yield from (view.payload[12:16], view.payload[16:20])
    elif view.etherType == 0x0806:
        yield from (view.payload[14:18], view.payload[24:28])
    elif view.etherType == 0x86DD:
        yield from (view.payload[8:24], view.payload[24:40])


def checkCapture(name, content):
    """What is wrong with a capture whatever the README says."""
    capture = Capture(content)
    if capture.error:
        yield f"{name}: {capture.error}"
    if len(capture.frames) >= 100 or len(content) >= 20000:
        yield f"{name}: too big: {len(capture.frames)} frames, {len(content)} bytes"
    if capture.times != sorted(capture.times):
        yield f"{name}: times go backwards"
    for number, frame in enumerate(capture.frames, 1):
        view = View(frame)
        if len(frame) > 1518:
            yield f"{name}: frame {number} is longer than a wire carries"
        for wrong in badChecksums(view):
            yield f"{name}: frame {number}: wrong {wrong} checksum"
        for raw in addresses(view):
            address = ipaddress.ip_address(raw)
            if not any(address in net for net in OUR_NETWORKS):
                yield f"{name}: frame {number}: address {address} is not for documentation"


def checkMacs(macs):
    """Addresses are local ones, told apart by the first digit of each of their bytes."""
    for mac in macs:
        if int(mac[:2], 16) & 3 != 2:
            yield f"{mac} is no locally administered unicast address"
        if len(set(mac[::3])) != 6:
            yield f"{mac} repeats the first digit of a byte"
    for position in range(0, 17, 3):
        if len({mac[position] for mac in macs}) != len(macs):
            yield f"byte {position // 3 + 1} of two addresses starts with the same digit"


# --- the README's tables ----------------------------------------------------------------------

def shown(value):
    """An option's value as the README writes it: text where it is text, else hex."""
    if value is None:
        return "-"
    if value and all(32 <= byte < 127 for byte in value):
        return value.decode("ascii")
    return "0x" + value.hex()


def lineFacts(capture):
    views = [View(frame) for frame in capture.frames]
    first = next(((number, view) for number, view in enumerate(views, 1) if view.request()), None)
    if first is None:
        return {"frames": str(len(views)), "first request": "none", "in frame": "-",
                "source MAC": macOfAll(views), "DHCP client": "-", "option 60": "-",
                "option 61": "-", "circuit id": "-", "remote id": "-", "VLAN": "-", "lease": "-"}
    number, view = first
    dhcp = view.dhcp
    options = dhcp.options if dhcp else {}
    agent = dhcp.agent if dhcp else {}
    return {
        "frames": str(len(views)),
        "first request": view.request(),
        "in frame": str(number),
        "source MAC": view.source,
        "DHCP client": dhcp.clientMac if dhcp else "-",
        "option 60": shown(options.get(60)),
        "option 61": shown(options.get(61)),
        "circuit id": shown(agent.get(1)),
        "remote id": shown(agent.get(2)),
        "VLAN": "-" if view.vlan is None else
                f"{view.vlan & 0xFFF}, priority {view.vlan >> 13}",
        "lease": leaseOf(views, view) if dhcp else "-",
    }


def macOfAll(views):
    return " ".join(sorted({view.source for view in views}))


def leaseOf(views, discover):
    """The address of a whole exchange that is followed by IPv4 traffic of that address."""
    kinds = []
    address = "none"
    pings = 0
    for view in views:
        if view.dhcp and view.dhcp.clientMac == discover.dhcp.clientMac:
            if view.dhcp.xid == discover.dhcp.xid:
                kinds.append(view.dhcp.kind)
                address = view.dhcp.yourAddress
        elif view.etherType == 0x0800 and kinds[-1:] == ["ACK"]:
            sender = str(ipaddress.ip_address(view.payload[12:16]))
            pings += view.source == discover.source and sender == address
    if kinds != ["DISCOVER", "OFFER", "REQUEST", "ACK"]:
        return f"incomplete: {kinds}"
    return address if pings >= 2 else f"{address} without traffic"


def noiseKind(frame):
    view = View(frame)
    protocol, body = view.upper()
    if protocol == ICMPV6:
        kind = {133: "IPv6 router solicitation", 135: "IPv6 neighbour solicitation",
                143: "IPv6 multicast listener report"}.get(body[0], "ICMPv6 other")
    elif view.etherType == 0x86DD:
        dhcpv6 = protocol == UDP and body[2:4] == (547).to_bytes(2, "big")
        kind = "DHCPv6" if dhcpv6 else "IPv6 other"
    elif view.etherType < 0x600:
        kind = {b"\x42\x42": "spanning tree", b"\xaa\xaa": "IPv4 in 802.3 SNAP"}.get(
            view.payload[:2], "802.3 other")
    else:
        kind = {0x88CC: "LLDP", 0x888E: "EAPOL", 0x8809: "link aggregation",
                0x9000: "loop detection", 0x8863: "PPPoE discovery",
                0x8864: "IPv4 in PPPoE", 0x88B5: "experimental EtherType"}.get(
                    view.etherType, f"EtherType {view.etherType:04x}")
    return kind if view.vlan is None else kind + ", tagged"


def table(text, heading):
    """Rows of the first table below a heading, as dictionaries without back-quotes."""
    rows = []
    columns = None
    inSection = False
    for line in text.splitlines():
        if line.startswith("#"):
            inSection = line.lstrip("# ") == heading
        elif inSection and line.startswith("|"):
            cells = [cell.strip().replace("`", "") for cell in line.strip().strip("|").split("|")]
            if columns is None:
                columns = cells
            elif not set(line) <= set("|-: "):
                rows.append(dict(zip(columns, cells, strict=True)))
    return rows


def compare(where, says, facts):
    for column, fact in facts.items():
        if says.get(column) != fact:
            yield f"{where}: {column}: the table says '{says.get(column)}', it is '{fact}'"


def checkNames(where, rows, files):
    named = [row["capture"] for row in rows]
    for name in sorted(set(named) ^ set(files)):
        yield f"{name}: only in {'the table ' + where if name in named else 'the directory'}"
    if len(named) != len(set(named)):
        yield f"{where}: a capture has two rows"


def check(directory):
    """All differences and broken rules, one text each."""
    directory = pathlib.Path(directory)
    readme = (directory / "README.md").read_text()
    problems = []

    files = {path.name: path.read_bytes() for path in directory.glob("*.pcap")}
    rows = table(readme, "Lines")
    macs = set()
    problems += checkNames("Lines", rows, files)
    problems += checkNames("How they were taken", table(readme, "How they were taken"), files)
    for row in rows:
        if row["capture"] not in files:
            continue  # said above
        content = files[row["capture"]]
        problems += checkCapture(row["capture"], content)
        facts = lineFacts(Capture(content))
        problems += compare(row["capture"], row, facts)
        known = {facts["source MAC"], facts["DHCP client"]} - {"-"}
        macs |= known
        for number, frame in enumerate(Capture(content).frames, 1):
            if View(frame).source not in known | {NODE_MAC}:
                problems.append(f"{row['capture']}: frame {number} is from {View(frame).source}")
    problems += checkMacs(macs | {NODE_MAC})

    kinds = {}
    for frame in Capture(files.get("noise.pcap", b"")).frames:
        kinds[noiseKind(frame)] = kinds.get(noiseKind(frame), 0) + 1
    noise = {row["kind"]: row["frames"] for row in table(readme, "Noise")}
    problems += compare("noise.pcap", noise, {kind: str(count) for kind, count in kinds.items()})
    problems += [f"noise.pcap: no {kind}" for kind in noise.keys() - kinds.keys()]

    problems += checkBad(directory, table(readme, "Bad captures"))
    problems += checkNode(directory, table(readme, "The node that plays them"))
    return problems


def ruleText(key, value):
    if value is True:
        return key
    return f"{key} {value:#06x}" if key == "ethertype" and isinstance(value, int) else (
        f"{key} {value}")


def checkNode(directory, rows):
    node = tomllib.loads((directory / "node.toml").read_text())
    verdicts = {user["circuit-id"].rpartition(" ")[2].partition("/")[2]: user["verdict"]
                for user in node["isa"]["user"]}
    says = {row["line"]: row for row in rows}
    lines = {interface["name"]: interface for interface in node["interface"]}
    for name in sorted(says.keys() ^ lines.keys()):
        yield f"{name}: only in {'the table of the node' if name in says else 'node.toml'}"
    for name in says.keys() & lines.keys():
        rules = [ruleText(*pair) for rule in lines[name].get("rule", []) for pair in rule.items()]
        yield from compare("line " + name, says[name],
                           {"capture": lines[name]["capture"], "rules": ", ".join(rules),
                            "answer": verdicts.get(name, node["isa"]["unknown"])})


def whatIsWrong(capture):
    if capture.error:
        return capture.error
    if not capture.frames:
        return "no frames"
    if all(len(frame) < 14 for frame in capture.frames):
        return "frames without Ethernet header"
    return "nothing"


def checkBad(directory, rows):
    files = {path.name: path.read_bytes() for path in (directory / "bad").glob("*")}
    yield from checkNames("Bad captures", rows, files)
    for row in rows:
        if row["capture"] not in files:
            continue  # said above
        content = files[row["capture"]]
        capture = Capture(content)
        yield from compare("bad/" + row["capture"], row,
                           {"bytes": str(len(content)), "whole frames": str(len(capture.frames)),
                            "what is wrong": whatIsWrong(capture)})
    for name, content in maker(directory).badCaptures(
            (directory / "udhcpc.pcap").read_bytes()).items():
        if files.get(name) != content:
            yield f"bad/{name}: make_bad_captures.py makes another one"


def maker(directory):
    spec = importlib.util.spec_from_file_location("maker", directory / "make_bad_captures.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def main():
    default = pathlib.Path(__file__).resolve().parents[2] / "samples"
    problems = check(sys.argv[1] if len(sys.argv) > 1 else default)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
