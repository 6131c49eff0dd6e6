"""The servers of the comparison: how each is started for a workload, and what belongs to it while it runs."""

import dataclasses
import json
import os
import pathlib
import resource
import select
import signal
import socket
import string
import subprocess
import time

HERE = pathlib.Path(__file__).resolve().parent
CONNECTIONS = 10000  # every server is set up for so many
START_SECONDS = 10
STOP_SECONDS = 10


@dataclasses.dataclass(frozen=True)
class Variant:
    """A server, and whether it writes an access log."""

    name: str
    log: bool

    @property
    def label(self):
        return self.name if self.log or self.name == "floor" else self.name + ", no log"


# Every variant. The floor has no log at all. "tessel" is a host that measures, "program" the program as it ships.
VARIANTS = [
    Variant("floor", False),
    Variant("tessel", True),
    Variant("tessel", False),
    Variant("program", True),
    Variant("nginx", True),
    Variant("nginx", False),
    Variant("nginx-deferred", True),
    Variant("nginx-open-file-cache", True),
    Variant("lighttpd", True),
    Variant("lighttpd", False),
    Variant("microhttpd", True),
    Variant("microhttpd", False),
    Variant("civetweb", True),
    Variant("civetweb", False),
]
NAMES = list(dict.fromkeys(variant.name for variant in VARIANTS))


@dataclasses.dataclass
class Setting:
    """What all servers of a run have in common."""

    programs: pathlib.Path  # the folder of comparison_*
    root: pathlib.Path      # the site
    folder: pathlib.Path    # for what servers write
    cpu: int                # the processor of the server under measurement

    @property
    def program(self):
        """The program tessel."""
        return self.programs.parent / "tessel"


class Server:
    """One running server. Its folder holds its configuration and its logs."""

    _count = 0

    def __init__(self, setting, variant, features=(), arguments=()):
        Server._count += 1
        self.variant = variant
        self.setting = setting
        self.features = set(features)
        self.folder = setting.folder / ("%s-%d" % (variant.name, Server._count))
        self.folder.mkdir()
        self.log_file = self.folder / "access.log"
        self.port = 0
        self.output = subprocess.PIPE
        self.process = None
        self.first_line = {}  # what a program of ours says when it has started
        self._start(list(arguments))

    @property
    def pid(self):
        return self.process.pid

    def _start(self, arguments):
        make = getattr(self, "_" + self.variant.name.replace("-", "_"))
        command = ["taskset", "-c", str(self.setting.cpu)] + make() + arguments
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.output,
                                        stderr=open(self.folder / "stderr.txt", "wb"), start_new_session=True)
        try:
            if self.port:
                self._wait_for_port()
            else:
                self.first_line = self.read_line()
                self.port = self.first_line.get("port", 0)
        except Exception:
            self.stop()
            raise

    def read_line(self):
        """The next line of JSON that the program prints."""
        if not select.select([self.process.stdout], [], [], START_SECONDS)[0]:
            raise RuntimeError("%s says nothing" % self.variant.label)
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError("%s ended: %s" % (self.variant.label, self._complaint()))
        return json.loads(line)

    def _complaint(self):
        return (self.folder / "stderr.txt").read_text(errors="replace").strip()[-500:]

    def _wait_for_port(self):
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end:
            if self.process.poll() is not None:
                raise RuntimeError("%s ended: %s" % (self.variant.label, self._complaint()))
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.02)
        raise RuntimeError("%s does not listen" % self.variant.label)

    def stop(self):
        """Ends the process and waits for it."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(STOP_SECONDS)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        if self.process.stdout:
            self.process.stdout.close()

    def _own(self, name):
        return str(self.setting.programs / ("comparison_" + name))

    def _floor(self):
        size = [f.split("=")[1] for f in self.features if f.startswith("body=")]
        return [self._own("floor")] + (["--body-bytes", size[0]] if size else ["--missing"])

    def _tessel(self):
        command = [self._own("host"), "--root", str(self.setting.root), "--connections", str(CONNECTIONS)]
        if self.variant.log:
            command += ["--log", str(self.log_file)]
        if "ssi" in self.features:
            command += ["--ssi"]
        if "listing" in self.features:
            command += ["--browse"]
        if "cgi" in self.features:
            command += ["--cgi", str(self.setting.root / "cgi")]
        if "guarded" in self.features:
            command += ["--guarded"]
        return command

    def _program(self):
        self.port = free_port()
        self.output = open(self.log_file, "wb")  # the program's log is its standard output
        return [str(self.setting.program), "--server-port", str(self.port), "--server-name", "127.0.0.1",
                "--max-connections", str(CONNECTIONS), "--no-verbose-errors-enable", str(self.setting.root)]

    def _microhttpd(self):
        return self._library_host("microhttpd")

    def _civetweb(self):
        return self._library_host("civetweb")

    def _library_host(self, name):
        self.port = free_port()
        command = [self._own(name), "--root", str(self.setting.root), "--port", str(self.port)]
        return command + (["--log", str(self.log_file)] if self.variant.log else [])

    def _nginx(self, deferred="", more=()):
        self.port = free_port()
        features = {"ssi": "ssi on;", "listing": "autoindex on;"}
        lines = [features[f] for f in sorted(self.features) if f in features] + list(more)
        config = self._write("nginx.conf", {
            "deferred": deferred,
            "access_log": self.log_file if self.variant.log else "off",
            "error_log": self.folder / "error.log" if self.variant.log else "/dev/null crit",
            "log_not_found": "on" if self.variant.log else "off",
            "features": "\n    ".join(lines),
        })
        return ["nginx", "-p", str(self.folder), "-c", str(config), "-e", str(self.folder / "error.log")]

    def _nginx_deferred(self):
        return self._nginx(" deferred")

    def _nginx_open_file_cache(self):
        return self._nginx(more=["open_file_cache max=%d inactive=60s;" % CONNECTIONS])

    def _lighttpd(self):
        self.port = free_port()
        modules = {"ssi": "mod_ssi", "listing": "mod_dirlisting", "cgi": "mod_cgi"}
        features = {"ssi": 'ssi.extension = ( ".html" )', "listing": 'dir-listing.activate = "enable"',
                    "cgi": 'cgi.assign = ( ".exe" => "" )'}
        wanted = [f for f in sorted(self.features) if f in modules]
        names = [modules[f] for f in wanted]
        lines = [features[f] for f in wanted]
        if self.variant.log:
            names.append("mod_accesslog")
            lines.append('accesslog.filename = "%s"' % self.log_file)
        config = self._write("lighttpd.conf", {
            "modules": "".join(', "%s"' % name for name in names),
            "features": "\n".join(lines),
        })
        return ["lighttpd", "-D", "-f", str(config)]

    def _write(self, name, values):
        template = string.Template((HERE / (name + ".in")).read_text())
        path = self.folder / name
        path.write_text(template.substitute(values, folder=self.folder, port=self.port, root=self.setting.root,
                                            connections=CONNECTIONS, descriptors=descriptor_limit()))
        return path


def descriptor_limit():
    """What servers are told of descriptors: the hard limit of this process, or enough."""
    return min(resource.getrlimit(resource.RLIMIT_NOFILE)[1], 2 * CONNECTIONS)


def free_port():
    """A port of 127.0.0.1 that nobody has at this moment."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def available(setting, name):
    """Whether a server of this name can be started on this machine."""
    if name == "program":
        return setting.program.exists()
    programs = {"nginx": "nginx", "nginx-deferred": "nginx", "nginx-open-file-cache": "nginx", "lighttpd": "lighttpd"}
    if name in programs:
        path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
        return any(os.access(os.path.join(folder, programs[name]), os.X_OK) for folder in path.split(":"))
    return (setting.programs / ("comparison_" + ("host" if name == "tessel" else name))).exists()
