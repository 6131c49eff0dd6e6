"""Starts well-known proxies with the recipes of examples/deployment, on ports of loopback and in a temporary folder.

A recipe is used as it is; only its ports, its certificate's folder and the like are replaced, and each of these must be
in it.
"""

import os
import pathlib
import re
import signal
import socket
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
RECIPES = ROOT / "examples" / "deployment"
NAME = "tessel.example.org"
SECONDS = 30  # what is waited for comes in a few seconds; a busy machine takes longer
ENVIRONMENT = dict(os.environ, PATH=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")


def recipe(name, replacements):
    """The text of a recipe with every key of `replacements` replaced."""
    text = (RECIPES / name).read_text()
    for old, new in replacements.items():
        if old not in text:
            raise AssertionError("%s has no %r" % (name, old))
        text = text.replace(old, str(new))
    return text


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def wait_for(find, what):
    """The first true answer of `find`."""
    limit = time.monotonic() + SECONDS
    while time.monotonic() < limit:
        found = find()
        if found:
            return found
        time.sleep(0.05)
    raise AssertionError("no %s in %d seconds" % (what, SECONDS))


def make_certificate(folder):
    """cert.pem, key.pem and cert-and-key.pem for NAME."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "2", "-subj", "/CN=" + NAME, "-addext", "subjectAltName=DNS:" + NAME,
                    "-keyout", folder / "key.pem", "-out", folder / "cert.pem"], check=True, capture_output=True)
    both = (folder / "cert.pem").read_bytes() + (folder / "key.pem").read_bytes()
    (folder / "cert-and-key.pem").write_bytes(both)


class Proxy:
    """A proxy from its start to the end of the block, before the processes on two ports.

    A kind of proxy has RECIPE, COMMAND, REPLACED (texts of the recipe and what takes their places), MAIN where its own
    configuration only includes the recipe, and DOWN, a pattern of what its log says when a process was found dead.
    """

    MAIN = ""
    REPLACED = {}

    def __init__(self, folder, backends):
        self._folder = folder
        self.port = free_port()
        make_certificate(folder)
        values = {"folder": folder, "port": self.port, "other_port": free_port()}
        replaced = {"127.0.0.1:8081": "127.0.0.1:%d" % backends[0], "127.0.0.1:8082": "127.0.0.1:%d" % backends[1],
                    "/etc/ssl/tessel": folder, **{old: new % values for old, new in self.REPLACED.items()}}
        (folder / "recipe").write_text(recipe(self.RECIPE, replaced))
        (folder / "main").write_text(self.MAIN % values)
        environment = dict(ENVIRONMENT, XDG_DATA_HOME=str(folder), XDG_CONFIG_HOME=str(folder), HOME=str(folder))
        with open(folder / "log", "wb") as log:
            self._process = subprocess.Popen([part % values for part in self.COMMAND], cwd=folder, env=environment,
                                             stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        try:
            wait_for(self._listens, "proxy on port %d" % self.port)
        except BaseException:
            self.__exit__()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGTERM)
            try:
                self._process.wait(SECONDS)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()

    def log(self):
        return (self._folder / "log").read_text(errors="backslashreplace")

    def wait_until_one_is_down(self):
        wait_for(lambda: re.search(self.DOWN, self.log()), "%r in the proxy's log" % self.DOWN)

    def _listens(self):
        if self._process.poll() is not None:
            raise AssertionError("the proxy ended with %d: %s" % (self._process.returncode, self.log()))
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", self.port)) == 0


class Nginx(Proxy):
    RECIPE = "nginx.conf"
    REPLACED = {"listen 443 ": "listen 127.0.0.1:%(port)d "}
    COMMAND = ["nginx", "-c", "%(folder)s/main", "-e", "stderr"]
    DOWN = "upstream server temporarily disabled"
    MAIN = """
daemon off;
pid %(folder)s/pid;
error_log stderr warn;
user root root;
events {}
http {
  access_log off;
  client_body_temp_path %(folder)s/body;
  proxy_temp_path %(folder)s/proxy;
  fastcgi_temp_path %(folder)s/fastcgi;
  uwsgi_temp_path %(folder)s/uwsgi;
  scgi_temp_path %(folder)s/scgi;
  include %(folder)s/recipe;
}
"""


class HAProxy(Proxy):
    RECIPE = "haproxy.cfg"
    REPLACED = {"bind :443 ": "bind 127.0.0.1:%(port)d "}
    COMMAND = ["haproxy", "-db", "-f", "%(folder)s/recipe"]
    DOWN = "Server tessel/one is DOWN"


class Apache(Proxy):
    RECIPE = "apache.conf"
    REPLACED = {"<VirtualHost *:443>": "<VirtualHost *:%(port)d>"}
    COMMAND = ["apache2", "-f", "%(folder)s/main", "-DFOREGROUND"]
    DOWN = "Health check DISABLING|disabling worker for"
    _MODULES = ("mpm_event authz_core ssl http2 headers setenvif env proxy proxy_http proxy_balancer proxy_hcheck "
                "slotmem_shm lbmethod_byrequests socache_shmcb").split()
    _LOAD = "".join("LoadModule %s_module modules/mod_%s.so\n" % (name, name) for name in _MODULES)
    MAIN = "ServerRoot /usr/lib/apache2\n" + _LOAD + """
DefaultRuntimeDir %(folder)s
PidFile %(folder)s/pid
ErrorLog /dev/stderr
LogLevel warn proxy_hcheck:info
ServerName localhost
User www-data
Group www-data
Listen 127.0.0.1:%(port)d
Include %(folder)s/recipe
"""


class Caddy(Proxy):
    RECIPE = "Caddyfile"
    REPLACED = {"http_port 80\n": "http_port %(other_port)d\n",
                NAME + ":443 {": NAME + ":%(port)d {\n\tbind 127.0.0.1"}
    COMMAND = ["caddy", "run", "--adapter", "caddyfile", "--config", "%(folder)s/recipe"]
    DOWN = "health_checker"
