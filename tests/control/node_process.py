"""The test node and talctl as processes, for tests that are clients of their own."""
import pathlib
import subprocess
import tempfile


class TestNode:
    """Runs test_node on a socket in a fresh directory until the end of the with block."""

    def __init__(self, build):
        self._build = pathlib.Path(build)

    def __enter__(self):
        self._directory = tempfile.TemporaryDirectory(prefix="tal-control-")
        self.directory = pathlib.Path(self._directory.name)
        self.socket = self.directory / "control.sock"
        self._process = subprocess.Popen(
            [self._build / "tests/control/test_node", self.socket],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        line = self._process.stdout.readline()
        if line != "ready\n":
            raise RuntimeError(f"test_node does not start: {line!r}")
        return self

    def __exit__(self, *_):
        self._process.stdin.close()
        try:
            self._process.wait(timeout=20)
        finally:
            self._process.kill()
            self._process.wait()
            self._process.stdout.close()
            self._directory.cleanup()

    def _send(self, line):
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        return self._process.stdout.readline().rstrip("\n")

    def tell(self, line):
        answer = self._send(line)
        if answer != "done":
            raise RuntimeError(f"{line}: {answer}")

    def calls(self):
        count = int(self._send("calls"))
        return [self._process.stdout.readline().rstrip("\n") for _ in range(count)]

    def talctl(self, *arguments):
        return subprocess.run(
            [self._build / "bin/talctl", "--server", f"unix:{self.socket}", *arguments],
            capture_output=True, text=True, timeout=60, check=False)

    def popen_talctl(self, *arguments):
        return subprocess.Popen(
            [self._build / "bin/talctl", "--server", f"unix:{self.socket}", *arguments],
            stdout=subprocess.PIPE, text=True)
