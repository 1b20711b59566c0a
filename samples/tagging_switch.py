#!/usr/bin/python3
"""Two switches joined by a trunk, in user space: access port <-> trunk (tagged) <-> server port.

The kernel the captures are taken on has no 802.1Q interfaces, so real clients and servers are
joined through this program instead: frames from the two outer ports cross the trunk with an
802.1Q tag, and lose it again at the other side. Frames with any other tag, or with none, do not
leave the trunk.

usage: tagging_switch.py ACCESS TRUNK_NEAR TRUNK_FAR SERVER VLAN PRIORITY
TRUNK_NEAR and TRUNK_FAR are the two ends of one cable. Prints "ready", ends after 60 seconds.
"""
import selectors
import socket
import struct
import sys
import time

ETH_P_ALL = 0x0003
TPID = 0x8100
SOL_PACKET = 263
PACKET_AUXDATA = 8
TP_STATUS_VLAN_VALID = 1 << 4
LIFETIME = 60.0  # seconds


def openPort(name):
    port = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    port.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
    port.bind((name, ETH_P_ALL))
    return port


def receive(port):
    """A frame that arrived at the port: its bytes without outer tag, and the tag or None.

    The kernel takes the outer tag out of the bytes and reports it beside them. Frames that
    this machine sent through the port come back too; they give (None, None).
    """
    frame, ancillary, _, address = port.recvmsg(65536, socket.CMSG_SPACE(20))
    if address[2] == socket.PACKET_OUTGOING:
        return None, None
    for level, kind, data in ancillary:
        if (level, kind) == (SOL_PACKET, PACKET_AUXDATA):
            status, _, _, _, _, tci, _ = struct.unpack("=IIIHHHH", data[:20])
            return frame, tci if status & TP_STATUS_VLAN_VALID else None
    return frame, None


def main():
    access, near, far, server = (openPort(name) for name in sys.argv[1:5])
    vlan, priority = int(sys.argv[5]), int(sys.argv[6])
    tag = struct.pack("!HH", TPID, priority << 13 | vlan)
    ports = selectors.DefaultSelector()
    # Port -> where its frames go, and whether they get the tag or must bring it.
    for port, route in ((access, (near, True)), (near, (access, False)),
                        (server, (far, True)), (far, (server, False))):
        ports.register(port, selectors.EVENT_READ, route)
    print("ready", flush=True)

    deadline = time.monotonic() + LIFETIME
    while (left := deadline - time.monotonic()) > 0:
        for key, _ in ports.select(left):
            frame, tci = receive(key.fileobj)
            target, tagging = key.data
            if frame is None:
                continue
            if tagging and tci is None:
                target.send(frame[:12] + tag + frame[12:])
            elif not tagging and tci is not None and tci & 0xFFF == vlan:
                target.send(frame)


if __name__ == "__main__":
    main()
