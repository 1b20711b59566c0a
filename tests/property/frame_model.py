"""Frames that know what they are.

A FrameSpec describes a frame; build() makes its bytes and the facts that a reader of the frame
may find in it. The facts come from the description and from the places where the builder put
each part. Nothing here reads frames back, so an error in a reader cannot repeat itself in the
facts. Headers are scapy's; since scapy needs about a millisecond for a packet, every header is
built once and its fields are overwritten per frame. check_with_scapy() takes a finished frame
apart with scapy to show that description and bytes agree.
"""

import functools
import struct
from dataclasses import dataclass, field
from typing import Optional, Union

from scapy.layers.dhcp import BOOTP, DHCP
from scapy.layers.inet import (IP, UDP, IPOption_LSRR, IPOption_NOP, IPOption_Router_Alert,
                               IPOption_RR, IPOption_Timestamp)
from scapy.layers.l2 import ARP, Dot1Q, Ether

COOKIE = 0x63825363
IP_OPTIONS = (
    (),
    (IPOption_Router_Alert(),),
    (IPOption_NOP(),) * 4,
    (IPOption_RR(length=11, routers=["10.0.0.1", "10.0.0.2"]),),
    (IPOption_LSRR(length=7, routers=["10.9.8.7"]), IPOption_NOP()),
    (IPOption_Timestamp(length=12, pointer=9, flg=0, internet_address=None),),
    (IPOption_NOP(),) * 40,
)


# --- description ---------------------------------------------------------------------------


@dataclass
class Option:
    code: int
    data: bytes
    claim: Optional[int] = None  # a length that leads out of the field
    subs: list = field(default_factory=list)  # what the data of option 82 consist of


@dataclass
class Pads:
    count: int


class End:
    pass


def relay(*subs):
    """Option 82 with the given sub-options."""
    data = b"".join(bytes((sub.code, len(sub.data) if sub.claim is None else sub.claim)) +
                    sub.data for sub in subs)
    assert len(data) <= 255
    return Option(82, data, subs=list(subs))


@dataclass
class DhcpSpec:
    op: int = 1
    cookie: int = COOKIE
    chaddr: bytes = bytes(6)
    xid: int = 0
    options: list = field(default_factory=list)
    file: list = field(default_factory=list)
    sname: list = field(default_factory=list)


@dataclass
class UdpSpec:
    sport: int
    dport: int
    payload: Union[DhcpSpec, bytes]
    length_delta: int = 0  # added to the true length
    length: Optional[int] = None  # instead of it


@dataclass
class IpSpec:
    source: int
    payload: Union[UdpSpec, bytes]
    proto: int = 17
    fragment: int = 0
    options: int = 0  # index into IP_OPTIONS
    total_delta: int = 0
    first_byte: Optional[int] = None  # a damaged version or header length
    total: Optional[int] = None  # a damaged total length


@dataclass
class ArpSpec:
    sender: int
    damage: Optional[int] = None  # one of the first six bytes is changed


@dataclass
class RawSpec:
    ether_type: int
    payload: bytes


@dataclass
class FrameSpec:
    body: Union[IpSpec, ArpSpec, RawSpec]
    source: bytes = bytes.fromhex("020000000001")
    destination: bytes = b"\xff" * 6
    tags: list = field(default_factory=list)  # (tag type, 16 bits of priority and id)
    trailer: bytes = b""  # padding behind the packet
    cut: Optional[int] = None  # the frame ends here


@dataclass
class DhcpFacts:
    client: bool
    message_type: int
    vendor: bytes
    client_id: bytes
    remote: bytes


@dataclass
class Facts:
    frame: bytes
    whole: bool  # at least an Ethernet header
    source: bytes
    ether_type: Optional[int]
    vlan: Optional[int]
    ip: Optional[int]
    dhcp: Optional[DhcpFacts]


# --- scapy's headers -----------------------------------------------------------------------


@functools.cache
def link_header(tag_types, ether_type):
    types = tag_types + (ether_type,)
    packet = Ether(dst="ff:ff:ff:ff:ff:ff", src="02:00:00:00:00:01", type=types[0])
    for following in types[1:]:
        packet = packet / Dot1Q(vlan=0, type=following)
    return bytes(packet)


@functools.cache
def ip_header(options):
    return bytes(IP(src="0.0.0.0", dst="255.255.255.255", options=list(IP_OPTIONS[options])))


@functools.cache
def udp_header():
    return bytes(UDP(sport=68, dport=67, chksum=0))


@functools.cache
def arp_message():
    return bytes(ARP(op=1, hwsrc="02:00:00:00:00:01", psrc="0.0.0.0", pdst="10.0.0.1",
                     hwdst="00:00:00:00:00:00"))


@functools.cache
def bootp_message():
    message = bytes(BOOTP(op=1, htype=1, hlen=6, flags=0x8000) / DHCP(options=[]))
    assert len(message) == 240 and message[236:] == struct.pack(">I", COOKIE)
    return message


# --- bytes and facts -----------------------------------------------------------------------


def field_bytes(items):
    """The bytes of an option field, and (item, end offset) of each of its items."""
    out = bytearray()
    places = []
    for item in items:
        if isinstance(item, Pads):
            out += bytes(item.count)
        elif isinstance(item, Option):
            claim = len(item.data) if item.claim is None else item.claim
            out += bytes((item.code, claim)) + item.data
        else:
            out.append(255)
        places.append((item, len(out)))
    return bytes(out), places


def readable(places, size):
    """The options that a reader of the first `size` bytes of the field reaches."""
    for item, end in places:
        if isinstance(item, Pads):
            continue
        if isinstance(item, End) or item.claim is not None or end > size:
            return
        yield item


def remote_ids(relay_option):
    for sub in relay_option.subs:
        if sub.claim is not None:
            return
        if sub.code == 2:
            yield sub.data


def first(values):
    return next((value for value in values if value), b"")


def dhcp_facts(spec, dport, places, size):
    seen = list(readable(places, size))
    overload = next((o.data[0] for o in seen if o.code == 52 and len(o.data) == 1 and o.data[0]),
                    0)
    if overload & 1:
        seen += readable(field_bytes(spec.file)[1], 128)
    if overload & 2:
        seen += readable(field_bytes(spec.sname)[1], 64)
    types = [o.data[0] for o in seen if o.code == 53 and len(o.data) == 1 and o.data[0]]
    return DhcpFacts(
        client=spec.op == 1 and dport == 67,
        message_type=types[0] if types else 0,
        vendor=first(o.data for o in seen if o.code == 60),
        client_id=first(o.data for o in seen if o.code == 61),
        remote=first(data for o in seen for data in remote_ids(o)))


def dhcp_bytes(spec):
    out = bytearray(bootp_message())
    out[0] = spec.op
    struct.pack_into(">I", out, 4, spec.xid)
    out[28:34] = spec.chaddr
    sname, file = field_bytes(spec.sname)[0], field_bytes(spec.file)[0]
    assert len(sname) <= 64 and len(file) <= 128
    out[44:44 + len(sname)] = sname
    out[108:108 + len(file)] = file
    struct.pack_into(">I", out, 236, spec.cookie)
    options, places = field_bytes(spec.options)
    return bytes(out) + options, places


def ip_checksum(header):
    total = sum(struct.unpack(">%dH" % (len(header) // 2), header))
    total = (total & 0xffff) + (total >> 16)
    return ~(total + (total >> 16)) & 0xffff


def ip_bytes(spec):
    """The packet, and how far it goes by its own account: (bytes, end by IP, end by UDP)."""
    header = bytearray(ip_header(spec.options))
    payload = spec.payload
    udp_end = None
    if isinstance(payload, UdpSpec):
        data = dhcp_bytes(payload.payload)[0] if isinstance(payload.payload, DhcpSpec) \
            else payload.payload
        udp = bytearray(udp_header())
        length = 8 + len(data) + payload.length_delta if payload.length is None \
            else payload.length
        struct.pack_into(">HHH", udp, 0, payload.sport, payload.dport, length)
        udp_end = len(header) + length
        payload = bytes(udp) + data
    total = len(header) + len(payload) + spec.total_delta if spec.total is None else spec.total
    struct.pack_into(">H", header, 2, total)
    struct.pack_into(">HBB", header, 6, spec.fragment, 64, spec.proto)
    struct.pack_into(">I", header, 12, spec.source)
    if spec.first_byte is not None:
        header[0] = spec.first_byte
    struct.pack_into(">H", header, 10, 0)
    struct.pack_into(">H", header, 10, ip_checksum(header))
    return bytes(header) + payload, len(header), total, udp_end


def ether_type_of(body):
    if isinstance(body, IpSpec):
        return 0x0800
    return 0x0806 if isinstance(body, ArpSpec) else body.ether_type


def build(spec):
    ether_type = ether_type_of(spec.body)
    link = bytearray(link_header(tuple(tag for tag, _ in spec.tags), ether_type))
    link[0:6], link[6:12] = spec.destination, spec.source
    for i, (_, control) in enumerate(spec.tags):
        struct.pack_into(">H", link, 14 + 4 * i, control)
    start = len(link)

    body = spec.body
    if isinstance(body, IpSpec):
        packet, header, total, udp_end = ip_bytes(body)
    elif isinstance(body, ArpSpec):
        packet = bytearray(arp_message())
        struct.pack_into(">I", packet, 14, body.sender)
        if body.damage is not None:
            packet[body.damage] ^= 0x40
    else:
        packet = body.payload

    frame = (bytes(link) + packet + spec.trailer)[:spec.cut]
    size = len(frame)
    facts = Facts(frame=frame, whole=size >= 14, source=spec.source, ether_type=None, vlan=None,
                  ip=None, dhcp=None)
    if spec.tags and size >= 16:
        facts.vlan = spec.tags[0][1] % 4096
    if size >= start:
        facts.ether_type = ether_type
    if isinstance(body, ArpSpec) and size >= start + 28 and body.damage is None:
        facts.ip = body.sender
    if isinstance(body, IpSpec) and size >= start + header and body.first_byte is None \
            and total >= header:
        facts.ip = body.source
        end = min(size - start, total)
        if isinstance(body.payload, UdpSpec) and body.proto == 17 and end >= header + 8 \
                and body.fragment in (0, 0x4000, 0x8000) and udp_end >= header + 8:
            end = min(end, udp_end)
            udp = body.payload
            if isinstance(udp.payload, DhcpSpec) and udp.dport in (67, 68) \
                    and end >= header + 8 + 240 and udp.payload.cookie == COOKIE:
                facts.dhcp = dhcp_facts(udp.payload, udp.dport, dhcp_bytes(udp.payload)[1],
                                        end - header - 8 - 240)
    return facts


# --- the other way round, for a sample of sound frames -------------------------------------


def is_sound(spec):
    """Whether scapy is to understand the frame: nothing cut, damaged or outside its habits."""
    if spec.cut is not None or any(tag == 0x9100 for tag, _ in spec.tags):
        return False
    body = spec.body
    if isinstance(body, ArpSpec):
        return body.damage is None
    if not isinstance(body, IpSpec):
        return False
    if body.total_delta or body.first_byte is not None or body.total is not None:
        return False
    udp = body.payload
    if not isinstance(udp, UdpSpec) or not isinstance(udp.payload, DhcpSpec):
        return True
    dhcp = udp.payload
    return all(not isinstance(item, Option) or scapy_reads(item) for item in dhcp.options) and \
        udp.length is None and udp.length_delta == 0 and \
        (udp.sport, udp.dport) in ((68, 67), (67, 67), (67, 68)) and \
        body.fragment in (0, 0x4000) and dhcp.cookie == COOKIE


def scapy_reads(option):
    """To scapy an option of no length is a name without a value and option 2 is a number; it
    ignores overloading."""
    return option.claim is None and option.data and option.code not in (2, 52) and \
        (option.code != 53 or len(option.data) == 1)


def check_with_scapy(spec, facts):
    packet = Ether(facts.frame)
    assert bytes.fromhex(packet.src.replace(":", "")) == facts.source
    vlan = packet.payload.vlan if isinstance(packet.payload, Dot1Q) else None
    assert vlan == facts.vlan, (vlan, facts.vlan)
    if isinstance(spec.body, ArpSpec):
        assert packet[ARP].psrc == dotted(facts.ip)
        return
    assert packet[IP].src == dotted(facts.ip)
    if facts.dhcp is None:
        return
    assert (packet[BOOTP].op == 1 and packet[UDP].dport == 67) == facts.dhcp.client
    found, relayed = {}, b""
    if DHCP in packet:
        for option in packet[DHCP].options:
            if option == "end":
                break  # scapy would go on
            if isinstance(option, tuple):
                found.setdefault(option[0], option[1])
                relayed += option[1] if option[0] == "relay_agent_information" else b""
    assert found.get("message-type", 0) == facts.dhcp.message_type, (found, facts.dhcp)
    assert found.get("vendor_class_id", b"") == facts.dhcp.vendor, (found, facts.dhcp)
    assert found.get("client_id", b"") == facts.dhcp.client_id, (found, facts.dhcp)
    assert facts.dhcp.remote in relayed, (relayed, facts.dhcp)


def dotted(address):
    return ".".join(str(byte) for byte in struct.pack(">I", address))
