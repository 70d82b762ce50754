"""Measures over two slow links, for scripts/bench.py. As a program it puts the table into a page: links.py PAGE TABLE.

The server is nginx on two Unix sockets in one folder, link.sock and, by TLS, link-tls.sock; its root is the folder
"link". Each run has a relay of its own (slow_link.py) between client and server.
"""

import contextlib
import math
import os
import shutil
import signal
import statistics
import subprocess
import sys
import time
import types

from measure import NOISY, quick, run

LINKS = (types.SimpleNamespace(rtt=0.020, mbit=50, name="20 ms, 50 Mbit/s"),
         types.SimpleNamespace(rtt=0.100, mbit=20, name="100 ms, 20 Mbit/s"))
KIB, MIB = 1 << 10, 1 << 20
QUERY_HOST, FILES_HOST = "query.veltra.example", "query-test.veltra.example"  # names of the server's certificate
SCRIPT = r"""set -e
get() { curl -sS --cacert "$ca" "$protocol" --connect-to "::127.0.0.1:$port" "$@"; }
get -o servers.xml -H 'DUID: BENCH' "https://$query_host/openapi/device/auth/query"
get -o info.xml "$(sed -n 's/.*<server url="\([^"]*\)".*/\1/p' servers.xml)"
sed -n 's/.*<file id="\([^"]*\)".* url="\([^"]*\)".*/url = "\2"\noutput = "\1"/p' info.xml >wanted
get --parallel --parallel-max 8 -K wanted
rm servers.xml info.xml wanted
"""


class Link:
    """A relay that runs, with the clients' folder for files."""

    def __init__(self, server, link, hold):
        program = os.path.dirname(os.path.abspath(__file__)) + "/slow_link.py"
        self.relay = subprocess.Popen([sys.executable, program, server, str(link.rtt * 1e3), str(link.mbit),
                                       *map(str, hold)], stdout=subprocess.PIPE, text=True)
        self.port = int(self.relay.stdout.readline())

    def end(self):
        """Returns the numbers of connections, exchanges and bytes."""
        self.relay.send_signal(signal.SIGTERM)
        counts = self.relay.stdout.read().split()
        self.relay.wait()
        return [int(count) for count in counts]


class OverLinks:
    """The jobs, their peers and their limits."""

    def __init__(self, build, memory):
        self.build, self.memory = os.path.abspath(build), memory
        self.ca = self.build + "/tests/loopback/certificates/ca.pem"
        self.got = memory + "/got"
        self.lines = []
        self.missed = []
        self.scale = 4 if quick else 1

    def make_files(self):
        root = self.memory + "/link"
        os.mkdir(root)
        self.sizes = [(1 + i % 5) * MIB // self.scale for i in range(10)]
        self.large = 100 * MIB // self.scale
        for name, size in (("1k", KIB), ("10k", 10 * KIB), ("large", self.large), ("endless", 1 << 30),
                           *((f"app{i}", size) for i, size in enumerate(self.sizes))):
            with open(f"{root}/{name}", "wb") as file:
                file.truncate(size)
        with open(root + "/servers.xml", "w", encoding="ascii") as file:
            file.write(f'<rsp stat="ok"><rm><queryinfo><notice>\n<server url="https://{FILES_HOST}/info.xml"/>\n'
                       "</notice></queryinfo></rm></rsp>\n")
        with open(root + "/info.xml", "w", encoding="ascii") as file:
            file.write("<emplist>\n" + "".join(
                f'<file id="app{i}" name="app{i}" version="1" url="https://{FILES_HOST}/app{i}" size="{size}" '
                'type="app" boot="yes"><signature>0</signature></file>\n'
                for i, size in enumerate(self.sizes)) + "</emplist>\n")

    @contextlib.contextmanager
    def link(self, link, hold=(), tls=True):
        shutil.rmtree(self.got, ignore_errors=True)
        os.mkdir(self.got)
        relay = Link(f"{self.memory}/link{'-tls' if tls else ''}.sock", link, hold)
        try:
            yield relay
        finally:
            relay.counts = relay.end()

    def alternate(self, link, commands, rounds, key="whole", expected=None, hold=(), tls=True):
        """Seconds of each command, by rounds. A command is a function of the relay's port. Ours begin with "ours"."""
        def measure():
            seconds = {name: [] for name in commands}
            for _ in range(rounds):
                for name, command in commands.items():
                    with self.link(link, hold, tls) as relay:
                        command, env = command(relay.port)
                        seconds[name].append(run(command, env)[key])
                        got = sorted(os.path.getsize(entry.path) for entry in os.scandir(self.got)
                                     if not entry.name.startswith("."))
                        if expected and got != sorted(expected):
                            sys.exit(f"{command}: the files have other sizes: {got}")
            return seconds

        def noise(seconds):
            ratios = self.ratios(seconds, "ours", self.best(seconds))
            return (max(ratios) - min(ratios)) / statistics.median(ratios)

        first = measure()
        return first if noise(first) <= NOISY or quick else min((first, measure()), key=noise)

    @staticmethod
    def best(seconds):
        peers = [name for name in seconds if not name.startswith("ours")]
        return min(peers, key=lambda name: statistics.median(seconds[name]))

    @staticmethod
    def ratios(seconds, name, peer):
        return [ours / theirs for ours, theirs in zip(seconds[name], seconds[peer])]

    def row(self, job, link, seconds, limit, goal=None, goal_of_limit=None, name="ours"):
        """One line: medians, the median of the rounds' own ratios to the best peer, and the ratio to the limit."""
        ours, peer = statistics.median(seconds[name]), self.best(seconds)
        ratios = self.ratios(seconds, name, peer)
        ratio, of_limit = round(statistics.median(ratios), 2), round(ours / limit, 2)
        cells = [job, link.name, f"{ours:.3f}", peer, f"{statistics.median(seconds[peer]):.3f}",
                 f"{ratio:.2f} ({min(ratios):.2f} to {max(ratios):.2f})", self.goal(job, link, ratio, goal),
                 f"{limit:.3f}", f"{of_limit:.2f}", self.goal(job, link, of_limit, goal_of_limit)]
        self.add(cells)
        for other in seconds:
            if other != peer and not other.startswith("ours"):
                print(f"    {other}: {statistics.median(seconds[other]):.3f} s")

    def goal(self, job, link, value, goal):
        if goal is not None and value > goal:
            self.missed.append(f"{job}, {link.name}")
        return "" if goal is None else f"{goal:.2f}" + (" (missed)" if value > goal else "")

    def add(self, cells):
        self.lines.append(f"| {' | '.join(cells)} |")
        print(self.lines[-1], flush=True)

    def fetch(self, link):
        """Limit: three round trips for the query, three for another host's document, one for the files, and bytes."""
        limit = 7 * link.rtt + sum(self.sizes) * 8 / link.mbit / 1e6

        def ours(*options):
            return lambda port: ([self.build + "/tools/veltra", "--cacert", self.ca, "--chipset", "BENCH",
                                  "--query-host", f"127.0.0.1:{port}", *options, "fetch", "-q", self.got, "--default"], {})

        def script(protocol):
            return lambda port: (["sh", "-c", f'cd "{self.got}"\n' + SCRIPT],
                                 {"ca": self.ca, "protocol": protocol, "port": str(port), "query_host": QUERY_HOST})
        commands = {"ours": ours(), "ours, HTTP/2": ours("--http2"), "script, HTTP/1.1": script("--http1.1"),
                    "script, HTTP/2": script("--http2")}
        seconds = self.alternate(link, commands, 3, expected=self.sizes)
        for name, protocol in (("ours", "HTTP/1.1"), ("ours, HTTP/2", "HTTP/2")):
            self.row(f"fetch: query, document, 10 files, {protocol}", link, seconds, limit, 0.90, 1.15, name)

    def small_files(self, link):
        """Limit: the round trips and bytes of those that follow each other, or of all bytes through the link."""
        count, size = 200, 10 * KIB
        transmission = size * 8 / link.mbit / 1e6

        def listed(port, line):
            path = self.memory + "/list"
            with open(path, "w", encoding="ascii") as file:
                file.write("".join(line.format(url=f"https://127.0.0.1:{port}/10k?{i}", folder=self.got, i=i)
                                   for i in range(count)))
            return path

        def ours(jobs, *options):
            return lambda port: ([self.build + "/tools/veltra", "--cacert", self.ca, *options, "download", "-q",
                                  "--jobs", str(jobs), "-i", listed(port, "{url} {folder}/{i}\n")], {})

        def curl(jobs, protocol):
            return lambda port: (["curl", "-sS", "--cacert", self.ca, protocol, "--parallel", "--parallel-max",
                                  str(jobs), "-K", listed(port, 'url = "{url}"\noutput = "{folder}/{i}"\n')], {})

        def aria2(jobs):
            return lambda port: (["aria2c", "-q", "--ca-certificate", self.ca, "-d", self.got, "-j", str(jobs),
                                  "--file-allocation=none", "-i", listed(port, "{url}\n out={i}\n")], {})
        for jobs in (8, 32):
            in_turn = math.ceil(count / jobs)
            limit = max(2 * link.rtt + in_turn * (link.rtt + transmission), 3 * link.rtt + count * transmission)
            for name, commands in (
                    ("HTTP/1.1", {"ours": ours(jobs), "curl --parallel": curl(jobs, "--http1.1"),
                                  "aria2c": aria2(jobs)}),
                    ("HTTP/2", {"ours": ours(jobs, "--http2"), "curl --parallel": curl(jobs, "--http2")})):
                seconds = self.alternate(link, commands, 3 if quick else 5, expected=[size] * count)
                self.row(f"200 files of 10 KiB, {jobs} at once, {name}", link, seconds, limit, 1.00)

    def held(self, link):
        """Limit: three round trips, the bytes, and each time that the link carries nothing."""
        hold, hold_after = 200, 10
        limit = 3 * link.rtt + self.large * 8 / link.mbit / 1e6 + self.large // (hold_after * MIB) * hold / 1e3
        commands = {
            "ours": lambda port: ([self.build + "/tools/veltra", "--cacert", self.ca, "download", "-q",
                                   f"https://127.0.0.1:{port}/large", self.got + "/large"], {}),
            "curl": lambda port: (["curl", "-sS", "--cacert", self.ca, "--http1.1", "-o", self.got + "/large",
                                   f"https://127.0.0.1:{port}/large"], {}),
            "aria2c": lambda port: (["aria2c", "-q", "--ca-certificate", self.ca, "-d", self.got, "-o", "large",
                                     "--file-allocation=none", f"https://127.0.0.1:{port}/large"], {})}
        seconds = self.alternate(link, commands, 3, expected=[self.large], hold=(hold, hold_after))
        job = f"one file of {self.large // MIB} MiB, {hold} ms of nothing after each {hold_after} MiB"
        self.row(job, link, seconds, limit, 1.00)

    def first_answer(self, link):
        """Limit: TCP, TLS 1.3 and the request take a round trip each; a warm connection takes that of the request."""
        needed = {"cold": 3, "on a warm connection": 1, "after NetworkChanged()": 3}
        times, round_trips = [], []
        for _ in range(5):
            with self.link(link) as relay:
                done = subprocess.run([self.build + "/bench/veltra_first_answer", f"https://127.0.0.1:{relay.port}/1k",
                                       self.ca], stdout=subprocess.PIPE, text=True, timeout=60, check=True)
            times.append([float(word) for word in done.stdout.split()])
            round_trips.append(sum(relay.counts[:2]))
        for i, (name, count) in enumerate(needed.items()):
            values = [one[i] for one in times]
            self.add([f"https answer, {name}", link.name,
                      f"{statistics.median(values):.3f} ({min(values):.3f} to {max(values):.3f})", "", "", "", "",
                      f"{count * link.rtt:.3f}", f"{statistics.median(values) / count / link.rtt:.2f}", ""])
        most, limit = max(round_trips), sum(needed.values())
        self.add(["the three: round trips, counted by the relay", link.name, str(most), "", "", "",
                  "", str(limit), f"{most / limit:.2f}", self.goal("round trips", link, most / limit, 1.0)])

    def beside(self, link):
        """Limit: the round trips alone; an answer also waits in the link's queue, which the downloads fill."""
        count, downloads = 20, 8

        def command(program):
            return lambda port: ([f"{self.build}/bench/{program}", f"http://127.0.0.1:{port}/1k", str(count + downloads),
                                  "1", self.ca, str(downloads), f"http://127.0.0.1:{port}/endless"],
                                 {"BENCH_FOLDER": self.got})
        seconds = self.alternate(link, {"ours": command("veltra_beside"), "libcurl": command("curl_poll")},
                                 3 if quick else 5, key="seconds", tls=False)
        job = f"{count} GETs, one after the other, beside {downloads} downloads, http"
        self.row(job, link, seconds, count * link.rtt, 1.10)

    def relay_itself(self):
        """Returns sentences that tell how exactly the relay keeps to its figures, by curl without TLS."""
        def get(link, *names):
            with self.link(link, tls=False) as relay:
                done = subprocess.run(["curl", "-sS", "-w", "%{time_total} %{size_download}\n"] +
                                      [word for name in names
                                       for word in ("-o", self.got + "/file", f"http://127.0.0.1:{relay.port}/{name}")],
                                      stdout=subprocess.PIPE, text=True, timeout=60, check=True)
            return [[float(word) for word in line.split()] for line in done.stdout.splitlines()]
        seconds, size = get(types.SimpleNamespace(rtt=0.0, mbit=0), "large")[0]
        sentences = [f"Without delay and limit the relay copied {size * 8 / seconds / 1e6:,.0f} Mbit/s."]
        for link in LINKS:
            trips = [one[0] for one in get(link, *["1k"] * 11)]
            [(seconds, size)] = get(link, "app4")
            share = size * 8 / link.mbit / 1e6 / (seconds - 2 * link.rtt)
            sentences.append(f"With {link.name} a round trip took {statistics.median(trips[1:]) * 1e3:.1f} ms, the first "
                             f"answer {trips[0] * 1e3:.1f} ms, and a file, after its two round trips, came with "
                             f"{share:.1%} of the bandwidth.")
        return sentences

    def write(self, path):
        """Prints the table, and writes it in Markdown if all is measured in full."""
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # which ends the relay, too
        self.make_files()
        sentences = self.relay_itself()
        print("\n".join(sentences))
        start = time.monotonic()
        for work in (self.fetch, self.small_files, self.held, self.first_answer, self.beside):
            for link in LINKS[:1] if work == self.held else LINKS:  # 100 MiB take 40 s over the other one
                work(link)
        print(f"links: {time.monotonic() - start:.0f} s, goals missed: {'; '.join(self.missed) or 'none'}")
        head = ["| job | link | ours, s | best peer | its, s | ours / peer (rounds) | goal | limit, s | ours / limit "
                "| goal |",
                "|---|---|---:|---|---:|---:|---:|---:|---:|---:|"]
        if not quick:
            with open(path, "w", encoding="utf-8") as file:
                file.write("\n".join(head + self.lines) + "\n\n" + "\n".join(sentences) + "\n")


def insert(page, table):
    with open(table, encoding="utf-8") as file:
        text = file.read()
    with open(page, encoding="utf-8") as file:
        head, start, rest = file.read().partition("<!-- links -->\n")
    _, end, tail = rest.partition("<!-- end of links -->")
    with open(page, "w", encoding="utf-8") as file:
        file.write(head + start + text + end + tail)


if __name__ == "__main__":
    insert(*sys.argv[1:])
