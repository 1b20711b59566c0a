"""What the tests of the program from outside share: a /var/log of their own, patience, traffic."""
import os
import pathlib
import struct
import subprocess
import sys
import time

PRIVATE = "--in-private-namespace"
SKIPPED = 77
STORE = pathlib.Path("/var/log/tal.store.dat")


def enter_private_log():
    """Starts this program again where /var/log is empty and nobody else's."""
    if sys.argv[-1] == PRIVATE:
        sys.argv.pop()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "tal-test", "/var/log"],
                                 capture_output=True, text=True, check=False)
        if mounted.returncode != 0:
            print("skipped: no file system can be mounted on /var/log:", mounted.stderr)
            sys.exit(SKIPPED)
        return
    unshare = ["unshare", "-m" if os.geteuid() == 0 else "-Urm"]
    if subprocess.run([*unshare, "true"], capture_output=True, check=False).returncode != 0:
        print("skipped: private mount namespaces are refused here (unshare)")
        sys.exit(SKIPPED)
    os.execvp(unshare[0], [*unshare, sys.executable, "-B", *sys.argv, PRIVATE])


def until(what, condition, patience):
    """The first true value of the condition, asked for so many seconds."""
    end = time.monotonic() + patience
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"{what}: not within {patience} s")


def discovers(samples, per_second, seconds=600):
    """The first frame of a recorded client, again and again."""
    recorded = (samples / "udhcpc.pcap").read_bytes()
    length = struct.unpack_from("<I", recorded, 24 + 8)[0]
    frame = recorded[40:40 + length]
    step = 1000000 // per_second
    records = [struct.pack("<IIII", n * step // 1000000, n * step % 1000000, length, length) +
               frame for n in range(per_second * seconds)]
    return recorded[:24] + b"".join(records)
