#!/usr/bin/python3
"""Sends the frames of a subscriber line that no tool at hand sends, none of them a login.

usage: send_noise.py INTERFACE SOURCE_MAC
"""
import sys

from scapy.all import (EAPOL, ICMP, IP, LLC, PPP, SNAP, Dot1Q, Dot3, Ether, ICMPv6ND_RS, IPv6,
                       PPPoE, PPPoED, Raw, conf, sendp)
from scapy.contrib.lacp import LACP, SlowProtocol


def frames(mac):
    ipv4 = IP(src="192.0.2.99", dst="192.0.2.1", ttl=64) / ICMP(id=1, seq=1) / Raw(bytes(16))
    allRouters = IPv6(src="fe80::2", dst="ff02::2", hlim=255) / ICMPv6ND_RS()
    # 802.1X and link aggregation start-up.
    yield Ether(src=mac, dst="01:80:c2:00:00:03") / EAPOL(version=2, type=1)
    yield (Ether(src=mac, dst="01:80:c2:00:00:02") / SlowProtocol() /
           LACP(actor_system=mac, actor_key=1, actor_port_number=1))
    # Loop detection: function "reply", then its own receipt number.
    yield (Ether(src=mac, dst="cf:00:00:00:00:00", type=0x9000) /
           Raw(bytes.fromhex("0000 0100 0000") + bytes(40)))
    # IPv4 is inside these two, yet neither is an IPv4 frame: a PPPoE session and 802.3 SNAP
    # (whose length field is no EtherType).
    yield (Ether(src=mac, dst="f2:14:36:58:7a:9c") / PPPoE(sessionid=0x11) / PPP(proto=0x0021) /
           ipv4)
    yield Dot3(src=mac, dst="f2:14:36:58:7a:9c") / LLC() / SNAP(OUI=0, code=0x0800) / ipv4
    # Tagged frames are looked at behind their tag: these are IPv6 and PPPoE.
    yield (Ether(src=mac, dst="33:33:00:00:00:02") / Dot1Q(vlan=100) / allRouters)
    yield (Ether(src=mac, dst="ff:ff:ff:ff:ff:ff") / Dot1Q(vlan=100) /
           PPPoED(code=0x09) / Raw(bytes.fromhex("01010000")))
    # An experimental EtherType whose payload starts as a DHCP request's addresses would.
    yield (Ether(src=mac, dst="ff:ff:ff:ff:ff:ff", type=0x88B5) /
           Raw(bytes(IP(src="0.0.0.0", dst="255.255.255.255", proto=17)) + bytes(20)))


def main():
    conf.verb = 0
    interface, mac = sys.argv[1:3]
    for frame in frames(mac):
        sendp(frame, iface=interface)


if __name__ == "__main__":
    main()
