#!/usr/bin/env python3
"""Checks who includes whom: every quoted #include must follow an allowed arrow."""
import pathlib
import re
import sys

# directory -> directories it may include besides itself
ALLOWED = {
    "platform": set(),
    "talfea": {"platform"},
    "tal": {"talfea", "platform"},
    "rpc": {"tal"},
    "node": {"platform", "rpc", "tal"},
    "bench": {"platform", "talfea", "tal", "rpc", "node", "tests"},
    "tests": {"platform", "talfea", "tal", "rpc", "node"},
}
# What the node may use of the module: its declarations and the formats shared with an engine.
NODE_MAY_INCLUDE_TAL = {"tal/tal.h"}
# Concerns inside the node that must not know each other.
NODE_CONCERNS = {"engine", "isa", "profiles", "control"}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def errors_of(root, path):
    relative = path.relative_to(root)
    owner = relative.parts[0]
    for target in INCLUDE.findall(path.read_text()):
        if not (root / target).is_file():
            yield f"{relative}: \"{target}\" is no file of the tree (includes start at its root)"
            continue
        parts = pathlib.PurePosixPath(target).parts
        if parts[0] != owner and parts[0] not in ALLOWED[owner]:
            yield f"{relative}: {owner}/ must not include \"{target}\""
        if owner == "node":
            if parts[0] == "tal" and target not in NODE_MAY_INCLUDE_TAL:
                yield f"{relative}: the node sees the module only through tal/tal.h, not \"{target}\""
            own = relative.parts[1]
            if (own in NODE_CONCERNS and parts[0] == "node" and parts[1] in NODE_CONCERNS
                    and parts[1] != own):
                yield f"{relative}: node/{own} must not know node/{parts[1]}"


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    files = [path for top in ALLOWED for pattern in ("*.h", "*.cpp", "*.c")
             for path in sorted((root / top).rglob(pattern))]
    if not files:
        print("no source files found")
        return 1
    found = [error for path in files for error in errors_of(root, path)]
    print("\n".join(found) if found else f"{len(files)} files follow the arrows")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
