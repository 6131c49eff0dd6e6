"""The system-call and address-family filters of a systemd unit, for a process without systemd.

What systemd would refuse with an error kills the process here, so that nothing refused goes unseen.
"""

import ctypes
import re
import socket
import struct
import subprocess

PR_SET_NO_NEW_PRIVS = 38
PR_SET_SECCOMP = 22
SECCOMP_MODE_FILTER = 2
ALLOW, KILL = 0x7FFF0000, 0x80000000  # SECCOMP_RET_ALLOW, SECCOMP_RET_KILL_PROCESS
LOAD, EQUAL, RETURN = 0x20, 0x15, 0x06  # of 32 bits, with a constant
CALL, FIRST_ARGUMENT = 0, 16  # offsets in struct seccomp_data, little endian


def _output(*command, text=""):
    return subprocess.run(command, input=text, stdout=subprocess.PIPE, check=True, text=True).stdout


def _calls(names):
    """The system calls of names and @groups."""
    calls = set()
    for name in names:
        if name.startswith("@"):
            lines = _output("systemd-analyze", "--no-pager", "syscall-filter", name).splitlines()[1:]
            calls |= _calls(line.strip() for line in lines if line.strip() and not line.strip().startswith("#"))
        else:
            calls.add(name)
    return calls


def _numbers():
    macros = _output("g++", "-dM", "-E", "-x", "c++", "-", text="#include <sys/syscall.h>\n")
    return {name: int(number) for name, number in re.findall(r"^#define __NR_(\w+) (\d+)$", macros, re.MULTILINE)}


def filters_of(unit):
    """The filter program for SystemCallFilter= and RestrictAddressFamilies= of the unit with this text."""
    allowed = set()
    for words in re.findall(r"^SystemCallFilter=(.*)$", unit, re.MULTILINE):
        if words.startswith("~"):
            allowed -= _calls(words[1:].split())
        else:
            allowed |= _calls(words.split())
    families = re.search(r"^RestrictAddressFamilies=(.*)$", unit, re.MULTILINE).group(1).split()
    numbers = _numbers()
    program = [(LOAD, 0, 0, CALL)]
    for number in sorted(numbers[call] for call in allowed if call in numbers and call != "socket"):
        program += [(EQUAL, 0, 1, number), (RETURN, 0, 0, ALLOW)]
    program += [(EQUAL, 1, 0, numbers["socket"]), (RETURN, 0, 0, KILL), (LOAD, 0, 0, FIRST_ARGUMENT)]
    for family in families:
        program += [(EQUAL, 0, 1, getattr(socket, family)), (RETURN, 0, 0, ALLOW)]
    program.append((RETURN, 0, 0, KILL))
    return b"".join(struct.pack("=HBBI", *line) for line in program)


def enter(filters):
    """Puts this process behind the filters, for good."""
    libc = ctypes.CDLL(None, use_errno=True)
    lines = ctypes.create_string_buffer(filters, len(filters))
    program = struct.pack("@HP", len(filters) // 8, ctypes.addressof(lines))
    for call in ((PR_SET_NO_NEW_PRIVS, 1, 0), (PR_SET_SECCOMP, SECCOMP_MODE_FILTER, program)):
        if libc.prctl(*call, 0, 0):
            raise OSError(ctypes.get_errno(), "prctl")
