#!/usr/bin/python3
"""What clang warns of in every source that a build folder compiles, with the flags of that build.

    clang_warnings.py BUILD

BUILD holds compile_commands.json. Nothing is built. Exit status 0 when clang is content.
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

# Options that only GCC knows.
GCC_ONLY = {"-fno-semantic-interposition", "-Wno-restrict", "-Wno-subobject-linkage"}


def clang_command(entry):
    """The command that checks the source of one entry and writes nothing."""
    words = shlex.split(entry["command"])
    first = next(i for i, word in enumerate(words) if word.startswith("-"))
    kept = [word for word in words[first:] if word not in GCC_ONLY]
    if "-o" in kept:
        at = kept.index("-o")
        del kept[at:at + 2]
    return ["clang++", *kept, "-fsyntax-only"]


def check(entry):
    """What clang prints, "" when it finds nothing."""
    done = subprocess.run(clang_command(entry), cwd=entry["directory"], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    output = done.stdout.decode(errors="replace")
    if done.returncode and not output:
        output = "clang++ failed with status %d: %s" % (done.returncode, entry["file"])
    return output


def main(build):
    entries = [entry for entry in json.loads(pathlib.Path(build, "compile_commands.json").read_text())
               if entry["file"].endswith((".cpp", ".cxx"))]
    if not entries:
        sys.exit("nothing is compiled in " + build)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = [output for output in pool.map(check, entries) if output]
    print("".join(found), end="")
    print("clang looked at %d sources, and found something in %d" % (len(entries), len(found)))
    sys.exit(bool(found))


if __name__ == "__main__":
    main(*sys.argv[1:])
