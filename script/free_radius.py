#!/usr/bin/python3
"""A FreeRADIUS of its own: own directory, free ports of 127.0.0.1, any user. As a program it
starts one that knows the given users, says where it is, and runs until its input ends or a
signal comes. As a module it is what the tests of the node start.

    free_radius.py --directory DIR [--port N] [--users FILE] [--accept NAME] [--reject NAME]

prints one line per fact: "port N", "accounting-port N", "secret-file PATH" (of the node's form, with
an entry "first"), then "ready". FILE holds users in FreeRADIUS's own form. NAME may hold a range:
"line-{1..99}". With --prepare it only writes the directory, for tests that start the server
themselves; with --certificates only what TLS needs."""
import argparse
import os
import pathlib
import re
import secrets
import signal
import socket
import subprocess
import sys
import time

PROGRAM = "/usr/sbin/freeradius"
PATIENCE = 30

# Without this attribute in the reply FreeRADIUS does not sign its answers.
SIGN = "update reply {\n            Message-Authenticator := 0x00\n        }"

CONFIGURATION = """
prefix = /usr
libdir = /usr/lib/freeradius
logdir = DIRECTORY/log
run_dir = DIRECTORY/run
pidfile = DIRECTORY/run/pid
max_requests = 65536
max_request_time = 30
cleanup_delay = 2
security {
    status_server = yes
    reject_delay = 0
    max_attributes = 200
}
thread pool {
    start_servers = 2
    max_servers = 4
    min_spare_servers = 1
    max_spare_servers = 3
    max_requests_per_server = 0
}
log {
    destination = stdout
}
client local {
    ipaddr = 127.0.0.1
    secret = "SECRET"
    require_message_authenticator = yes
}
modules {
    files {
        usersfile = DIRECTORY/users
        key = "%{User-Name}"
    }
    pap {
    }
    always ok {
        rcode = ok
    }
    linelog answered {
        filename = DIRECTORY/answered
        format = "%{User-Name} %{reply:Packet-Type}"
    }
    linelog accounted {
        filename = DIRECTORY/accounted
        format = "%{User-Name} %{Acct-Status-Type} %{Acct-Session-Id} %{%{Class}:-none} \
%{%{Acct-Input-Packets}:-0} %{%{Acct-Terminate-Cause}:-none}"
    }
}
TLS_CLIENTS
server default {
TLS_LISTEN
    listen {
        type = auth
        ipaddr = 127.0.0.1
        port = PORT0
        recv_buff = 4194304
    }
    listen {
        type = acct
        ipaddr = 127.0.0.1
        port = PORT1
        recv_buff = 4194304
    }
    authorize {
        files
        AUTHORIZE
        pap
        Autz-Type Status-Server {
            SIGN
            ok
        }
    }
    authenticate {
        Auth-Type PAP {
            pap
        }
    }
    post-auth {
        RECORD
        SIGN
        Post-Auth-Type REJECT {
            RECORD
            SIGN
        }
    }
    preacct {
        ok
    }
    accounting {
        accounted
        SIGN
        Acct-Type Status-Server {
            SIGN
            ok
        }
    }
}
"""


TLS_CLIENTS = """
clients radsec {
    client tls {
        ipaddr = 127.0.0.1
        proto = tls
        secret = radsec
        require_message_authenticator = yes
    }
}
"""

TLS_LISTEN = """
    listen {
        type = auth+acct
        proto = tcp
        ipaddr = 127.0.0.1
        port = PORT0
        clients = radsec
        limit {
            max_connections = 32
            lifetime = 0
            idle_timeout = 0
        }
        tls {
            private_key_file = DIRECTORY/server.key
            certificate_file = DIRECTORY/server.pem
            ca_file = DIRECTORY/ca.pem
            require_client_cert = yes
            tls_min_version = "1.2"
            tls_max_version = "1.2"
        }
    }
"""


def make_certificates(directory):
    """ca.pem, which signed server.pem and client.pem, and otherca.pem, which signed other.pem; their
    keys beside them as *.key. They hold for 127.0.0.1 and NAME.test."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=directory, check=True, capture_output=True)

    def certificate(name, *more):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-noenc", "-x509",
                "-days", "30", "-subj", f"/CN={name}", "-keyout", f"{name}.key",
                "-out", f"{name}.pem", *more)
        (pathlib.Path(directory) / f"{name}.key").chmod(0o600)

    for authority, names in (("ca", ("server", "client")), ("otherca", ("other",))):
        certificate(authority)
        for name in names:
            certificate(name, "-CA", f"{authority}.pem", "-CAkey", f"{authority}.key",
                        "-config", "/dev/null", "-addext", "basicConstraints=critical,CA:FALSE",
                        "-addext", f"subjectAltName=IP:127.0.0.1,DNS:{name}.test")


def installed():
    return os.access(PROGRAM, os.X_OK)


def free_port():
    """A port of 127.0.0.1 that was free a moment ago, as was the one above it."""
    while True:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as one, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            one.bind(("127.0.0.1", 0))
            port = one.getsockname()[1]
            try:
                other.bind(("127.0.0.1", port + 1))
            except OSError:
                continue
            return port


# Runs before every answer to a login, when answers are to take their time.
WAIT = """
    exec moment {
        wait = yes
        program = "/bin/sleep SECONDS"
        timeout = 30
    }
"""


def accepted(name, *reply):
    """A user in FreeRADIUS's form; `reply` as 'Class = "a"'."""
    return f'"{name}"\tAuth-Type := Accept\n' + (f"\t{', '.join(reply)}\n" if reply else "")


def rejected(name):
    return f'"{name}"\tAuth-Type := Reject\n'


def named(pattern):
    """The names that "line-{1..99}" stands for."""
    found = re.fullmatch(r"(.*)\{(\d+)\.\.(\d+)\}(.*)", pattern)
    if not found:
        return [pattern]
    before, first, last, after = found.groups()
    return [f"{before}{number}{after}" for number in range(int(first), int(last) + 1)]


class FreeRadius:
    """Users who are not given are rejected. The directory must exist and stays. `authorize` are
    rules after the look-up of the user; `records`: answered() tells what was answered."""

    def __init__(self, directory, users, secret=None, signs=True, port=None, tls=False, delay=0.0,
                 authorize="", records=True):
        self.directory = pathlib.Path(directory)
        self.port = port or free_port()
        self.accounting_port = self.port + 1
        self.secret = secret or secrets.token_hex(16)
        self._process = None
        for name in ("run", "log"):
            (self.directory / name).mkdir(exist_ok=True)
        self._write("dictionary", "$INCLUDE /usr/share/freeradius/dictionary\n")
        self.know(users)
        text = CONFIGURATION
        if delay > 0:
            text = text.replace("modules {\n", "modules {\n" + WAIT.replace("SECONDS", str(delay)))
            text = text.replace("    authorize {\n", "    authorize {\n        moment\n")
        if tls:
            make_certificates(self.directory)
        text = text.replace("TLS_CLIENTS", TLS_CLIENTS if tls else "")
        text = text.replace("TLS_LISTEN", TLS_LISTEN if tls else "")
        for what, by in (("SIGN", SIGN if signs else ""), ("RECORD", "answered" if records else ""),
                         ("AUTHORIZE", authorize), ("DIRECTORY", str(self.directory)),
                         ("SECRET", self.secret), ("PORT0", str(self.port)),
                         ("PORT1", str(self.accounting_port))):
            text = text.replace(what, by)
        self._write("radiusd.conf", text)

    def _write(self, name, text):
        path = self.directory / name
        path.touch(mode=0o600)
        path.write_text(text)

    def know(self, users):
        """Other users, from the next start on."""
        self._write("users", users + "DEFAULT\tAuth-Type := Reject\n")

    def start(self):
        output = self.directory / "output"
        with open(output, "wb") as out:
            self._process = subprocess.Popen(
                [PROGRAM, "-d", self.directory, "-f", "-l", "stdout"],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out)
        end = time.monotonic() + PATIENCE
        while "Ready to process requests" not in output.read_text(errors="replace"):
            if self._process.poll() is not None or time.monotonic() > end:
                self.stop()
                raise RuntimeError("FreeRADIUS does not run: " + output.read_text())
            time.sleep(0.005)
        return self

    def stop(self):
        """At once: it holds nothing worth saving, and a polite end takes seconds."""
        if self._process:
            self._process.kill()
            self._process.wait()
            self._process = None

    def _lines(self, name):
        path = self.directory / name
        return path.read_text().splitlines() if path.exists() else []

    def answered(self):
        """Pairs of user and answer, as Access-Accept, in order."""
        return [tuple(line.rsplit(" ", 1)) for line in self._lines("answered")]

    def accounted(self):
        """Records taken, in order: user, status, session, class, input packets, cause."""
        return [tuple(line.rsplit(" ", 5)) for line in self._lines("accounted")]

    def secret_file(self, path, *names):
        path = pathlib.Path(path)
        path.touch(mode=0o600)
        path.write_text("".join(f"{name} {self.secret}\n" for name in names))
        return path


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--directory", type=pathlib.Path, required=True)
    parser.add_argument("--port", type=int, help="and the one above it; free ones unless said")
    parser.add_argument("--users", type=pathlib.Path)
    parser.add_argument("--accept", action="append", default=[], metavar="NAME")
    parser.add_argument("--reject", action="append", default=[], metavar="NAME")
    parser.add_argument("--tls", action="store_true", help="also RADIUS over TLS, on the same port")
    parser.add_argument("--secret", help="one for tests; made up unless said")
    parser.add_argument("--unsigned", action="store_true", help="no Message-Authenticator")
    parser.add_argument("--unrecorded", action="store_true", help="keep no list of answers")
    parser.add_argument("--authorize", default="", metavar="RULES")
    parser.add_argument("--prepare", action="store_true")
    parser.add_argument("--certificates", action="store_true")
    arguments = parser.parse_args()
    arguments.directory.mkdir(parents=True, exist_ok=True)
    if arguments.certificates:
        make_certificates(arguments.directory)
        return
    if not installed():
        sys.exit("the package freeradius is not installed (script/bootstrap)")
    users = "".join([*(accepted(name) for each in arguments.accept for name in named(each)),
                     *(rejected(name) for each in arguments.reject for name in named(each)),
                     arguments.users.read_text() if arguments.users else ""])
    server = FreeRadius(arguments.directory, users, secret=arguments.secret,
                        signs=not arguments.unsigned, port=arguments.port, tls=arguments.tls,
                        authorize=arguments.authorize, records=not arguments.unrecorded)
    if arguments.prepare:
        return

    def leave(*_):
        server.stop()
        sys.exit(0)

    signal.signal(signal.SIGTERM, leave)
    signal.signal(signal.SIGINT, leave)
    server.start()
    secret_file = server.secret_file(arguments.directory / "secrets", "first")
    print(f"port {server.port}\naccounting-port {server.accounting_port}\n"
          f"secret-file {secret_file}\nready", flush=True)
    sys.stdin.read()
    leave()


if __name__ == "__main__":
    main()
