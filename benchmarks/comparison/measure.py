"""What is read off a running server: processor time, memory, system calls; and the client that loads it."""

import json
import os
import re
import signal
import socket
import subprocess
import time

import site_tree

TICK = os.sysconf("SC_CLK_TCK")
SETTLE_SECONDS = 0.01       # until a server has slept after its last request
SILENCE_SECONDS = 120


def processor_nanoseconds(pid):
    """Processor time of all threads of a process, and of its children that have ended."""
    total = 0
    for thread in os.listdir("/proc/%d/task" % pid):
        with open("/proc/%d/task/%s/schedstat" % (pid, thread)) as file:
            total += int(file.read().split()[0])
    with open("/proc/%d/stat" % pid) as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return total + (int(fields[13]) + int(fields[14])) * 1_000_000_000 // TICK


def memory_kib(pid, name):
    """A line of /proc/PID/status, such as VmRSS, in KiB."""
    with open("/proc/%d/status" % pid) as file:
        return int(re.search(r"^%s:\s+(\d+) kB" % name, file.read(), re.MULTILINE).group(1))


class Client:
    """The load generator, on a processor of its own."""

    def __init__(self, program, cpu, folder):
        self.command = ["taskset", "-c", str(cpu), str(program)]
        self.folder = folder
        self.labels = {}  # port -> whose it is, for complaints

    def ask(self, port, path):
        """One request: (status, body)."""
        with socket.create_connection(("127.0.0.1", port), timeout=SILENCE_SECONDS) as connection:
            connection.sendall(("GET %s HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n" % path).encode())
            answer = b"".join(iter(lambda: connection.recv(1 << 20), b""))
        head, _, body = answer.partition(b"\r\n\r\n")
        return head.split(b" ")[1].decode(), body

    def learn(self, server, workload):
        """Asks once, checks the answer, and keeps its body as what all further answers must be. Of a workload of many
        files it asks for the one behind the last."""
        self.labels[str(server.port)] = "%s, %s" % (server.variant.label, workload.title)
        path = workload.path_for(server.variant.name)
        status, body = self.ask(server.port, site_tree.numbered(path, workload.numbers))
        has_files = server.variant.name != "floor"  # the floor has one answer
        wrong = "status %s" % status if status != workload.status else workload.check(body) if has_files else ""
        if workload.numbers > 1 and has_files:
            body = site_tree.cold_body()
        if wrong:
            raise RuntimeError("%s: %s" % (self.labels[str(server.port)], wrong))
        file = self.folder / ("body-%d" % server.pid)
        file.write_bytes(body)
        return ["--port", str(server.port), "--path", path, "--status", status, "--body", str(file), "--numbers",
                str(workload.numbers)], len(body)

    def run(self, *arguments):
        """Runs the generator; its finding. Raises when any answer was wrong."""
        done = subprocess.run(self.command + list(arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=SILENCE_SECONDS, text=True)
        if done.returncode != 0:
            port = arguments[arguments.index("--port") + 1]
            raise RuntimeError("%s: %s %s" % (self.labels[port], done.stdout.strip(), done.stderr.strip()))
        return json.loads(done.stdout)

    def hold(self, port, connections, source="127.0.0.3"):
        """Starts a process that holds connections with half a request on each."""
        process = subprocess.Popen(self.command + ["--mode", "hold", "--port", str(port), "--connections",
                                                   str(connections), "--source", source],
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        held = process.stdout.readline()
        if not held or json.loads(held)["held"] != connections:
            process.kill()
            process.wait()
            raise RuntimeError("could not hold %d connections" % connections)
        return process

    def release(self, process):
        """Ends such a process; how many connections the server had kept."""
        out, _ = process.communicate("", timeout=SILENCE_SECONDS)
        return json.loads(out)["still_held"]


def loaded(client, server, arguments, amount):
    """One measurement: microseconds of processor time a request, requests and body bytes a second."""
    before = processor_nanoseconds(server.pid)
    found = client.run("--mode", "load", *arguments, *amount)
    time.sleep(SETTLE_SECONDS)
    used = processor_nanoseconds(server.pid) - before
    return {
        "cpu_us": used / 1000 / found["requests"],
        "requests_s": found["requests"] / found["seconds"],
        "mib_s": found["body_bytes"] / found["seconds"] / (1 << 20),
    }


def system_calls(client, server, arguments, requests):
    """System calls a request, counted by strace over a run of its own."""
    report = server.folder / "calls.txt"
    tracer = subprocess.Popen(["strace", "-f", "-c", "-o", str(report), "-p", str(server.pid)],
                              stderr=subprocess.PIPE, text=True)
    try:
        tracer.stderr.readline()  # "attached"
        time.sleep(0.1)
        client.run("--mode", "load", *arguments, "--requests", str(requests))
        time.sleep(0.1)
    finally:
        tracer.send_signal(signal.SIGINT)
        tracer.wait(SILENCE_SECONDS)
        tracer.stderr.close()
    calls = 0
    for line in report.read_text().splitlines():
        fields = line.split()
        if len(fields) >= 5 and re.fullmatch(r"[\d.]+", fields[0]) and fields[-1] != "total":
            calls += int(fields[3])
    return calls / requests
