"""Measures the library against its peers on loopback: bench.py BUILD HTTP-PORT HTTPS-PORT SILENT-PORT MEMORY-FOLDER
RESULTS [--quick] [--works NAME,...]. It appends its rows to RESULTS; see bench.sh."""

import os
import re
import shutil
import statistics
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib"))
from links import OverLinks  # pylint: disable=wrong-import-position
from measure import add, alternate, quick, row, save  # pylint: disable=wrong-import-position

build, http_port, https_port, silent_port, memory_folder, results_file = sys.argv[1:7]
urls = {"http": f"http://127.0.0.1:{http_port}", "https": f"https://127.0.0.1:{https_port}"}
authority = build + "/tests/loopback/certificates/ca.pem"
FRESH, THREAD = {"BENCH_FRESH": "1"}, {"BENCH_THREAD": "1"}


def handles():
    """Returns the environment of a peer that treats its handles as the engine does with this libcurl."""
    version = subprocess.run(["pkg-config", "--modversion", "libcurl"], stdout=subprocess.PIPE, text=True, check=True)
    return {} if tuple(int(part) for part in version.stdout.strip().split(".")) >= (8, 1, 0) else FRESH


def command(name, url, count, in_flight, *more):
    return [f"{build}/bench/{name}", url, str(count), str(in_flight), authority, *more]


def requests():
    for scheme in ("http", "https"):
        url, count = urls[scheme] + "/1k", 4000 if quick else 20000
        work = scheme + " GETs of 1 KiB, {}, processor time"
        few = {"ours": command("veltra_async", url, count, 64),
               "libcurl, 64 connections": (command("curl_poll", url, count, 64), handles())}
        if scheme == "http":
            few["the same on a second thread"] = (command("curl_poll", url, count, 64), {**handles(), **THREAD})
            few["libsoup 3, 64 connections"] = command("soup_async", url, count, 64)
        many = {"ours": command("veltra_async", url, count, 1000),
                "libcurl, 1,000 connections": (command("curl_poll", url, count, 1000), handles()),
                "libcurl, 64 in flight": (command("curl_poll", url, count, 64), handles())}
        goals = {"http": (0.92 if not handles() else 1.0, 1.25), "https": (1.0, 1.05)}[scheme]
        for commands, number, goal in ((few, "64 in flight", goals[0]), (many, "1,000 in flight", goals[1])):
            results = alternate(commands, "cpu")
            for peer in list(commands)[1:]:
                row(work.format(number), results, peer, peer, "cpu", "us", 1e6 / count,
                    goal=goal if peer.endswith("connections") and "soup" not in peer else None)


def synchronous():
    peer, floor = "libcurl, one handle, same thread", "libcurl, one handle on a GLib worker"
    for scheme, threads in (("http", 1), ("https", 1), ("http", 8)):
        url, count = urls[scheme] + "/1k", (2000 if quick else 8000) * (1 if threads == 1 else 2)
        commands = {"ours": command("veltra_sync", url, count, threads), peer: command("curl_easy", url, count, threads)}
        if threads == 1:
            commands[floor] = command("sync_floor", url, count, threads)
        results = alternate(commands, "seconds")
        work = f"{scheme} GETs of 1 KiB, synchronous, {threads} thread{'s' if threads > 1 else ''}"
        for name in list(commands)[1:]:
            if name == floor or scheme == "http":
                row(work, results, name, name, "seconds", "requests/s", count=count,
                    goal=0.95 if name == floor and scheme == "http" else None)


def stalled():
    """The clients take the time when as many requests as there are stalled ones have ended."""
    held, count = 1000, 4000 if quick else 20000
    more = (urls["http"] + "/1k", count + held, 16, str(held), f"http://127.0.0.1:{silent_port}/stall")
    commands = {"ours": command("veltra_async", *more), "libcurl, poll": (command("curl_poll", *more), handles()),
                "libcurl, epoll": (command("curl_epoll", *more), handles())}
    results = alternate(commands, "seconds")
    for peer, goal in (("libcurl, poll", 4.0), ("libcurl, epoll", 1.0)):
        row("16 GETs in flight beside 1,000 held ones", results, peer, peer, "seconds", "requests/s", count=count,
            goal=goal)


def memory():
    """Compares the peak of a thousand in flight with that of one."""
    url, peak = urls["http"] + "/1k", {}
    for number, count in ((1, 1000), (1000, 40000)):
        results = alternate({"ours": command("veltra_async", url, count, number),
                             "peer": (command("curl_poll", url, count, number), FRESH)}, "kib")
        peak[number] = {name: statistics.median(one["kib"] for one in results[name]) for name in results}
    ours, peer = ((peak[1000][name] - peak[1][name]) / 1000 for name in ("ours", "peer"))
    add("memory for each of 1,000 GETs in flight", "libcurl, fresh handles", ours, peer, peer / ours, "KiB", 1.5)


def empty_folder():
    folder = memory_folder + "/got"
    shutil.rmtree(folder, ignore_errors=True)
    os.mkdir(folder)
    return folder


def downloads():
    folder, large = empty_folder(), os.path.getsize(memory_folder + "/large")
    with open(folder + "/warm", "wb") as file:  # the first use of memory costs more than the next
        for _ in range(large >> 20):
            file.write(bytes(1 << 20))
    for number, name, size in ((1, "large", f"{large >> 20:,} MiB"), (8, "medium", "128 MiB")):
        url = f"{urls['http']}/{name}"
        several = [word for i in range(number) for word in ("-o", f"{folder}/{i}", url)]
        peer = "curl" + (" --parallel" if number > 1 else "")
        commands = {"ours": [f"{build}/bench/veltra_download", url, str(number), folder, str(number)],
                    peer: ["curl", "-sS"] + (["--parallel"] if number > 1 else []) + several}
        if number == 1:
            commands["aria2c"] = ["aria2c", "-q", "-d", folder, "-o", "file", "--file-allocation=none", url]
        results = alternate(commands, "whole", empty_folder)
        work = f"{number} download{'s at once' if number > 1 else ''} of {size}"
        for name in list(commands)[1:]:
            row(work, results, name, name, "whole", "s", goal=1.35 if name == "curl" else None)
    empty_folder()


def files():
    """Many small files, the process's start and end included."""
    url, folder, count = urls["http"] + "/10k", empty_folder(), 1000
    with open(memory_folder + "/curl", "w") as wanted:
        wanted.write("".join(f'url = "{url}?{i}"\noutput = "{folder}/{i}"\n' for i in range(count)))
    with open(memory_folder + "/aria2", "w") as wanted:
        wanted.write("".join(f"{url}?{i}\n out={i}\n" for i in range(count)))
    curl = ["curl", "-sS", "--parallel", "--parallel-max", "50", "-K", memory_folder + "/curl"]
    few = {"libcurl writing files": (command("curl_poll", url, count, 50), {**handles(), "BENCH_FOLDER": folder}),
           "curl --parallel-max 50": curl,
           "aria2c -j 50": ["aria2c", "-q", "-d", folder, "-j", "50", "--file-allocation=none", "-i",
                            memory_folder + "/aria2"]}
    for at_once, peers, goal in ((50, few, 1.30), (count, {"curl --parallel-max 50": curl}, 0.90)):
        ours = [f"{build}/bench/veltra_download", url, str(count), folder, str(at_once)]
        results = alternate({"ours": ours, **peers}, "whole", empty_folder)
        for peer in peers:
            row(f"1,000 files of 10 KiB, {at_once:,} at once", results, peer, peer, "whole", "files/s", count=count,
                goal=goal if "curl -" in peer else None)
    empty_folder()


def first_answer():
    arguments = (urls["http"] + "/1k", 1, 1)
    results = alternate({"ours": command("veltra_sync", *arguments), "easy": command("curl_easy", *arguments)}, "whole")
    row("first answer, from the process's start to its end", results, "easy", "libcurl", "whole", "ms", 1e3)


def instructions():
    def each(name, env):
        totals = []
        for number in (200, 1000):
            done = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"] +
                                  command(name, urls["http"] + "/1k", number, 1), stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE, text=True, check=True, env={**os.environ, **env})
            totals.append(int(re.search(r"Collected : (\d+)", done.stderr)[1]))
        return (totals[1] - totals[0]) / 800 / 1000
    for work, name, peer, peer_name, env in (
            ("instructions of one asynchronous GET", "veltra_async", "curl_epoll", "libcurl, epoll", handles()),
            ("instructions of one synchronous GET", "veltra_sync", "sync_floor", "libcurl on a GLib worker", {})):
        ours, theirs = each(name, {}), each(peer, env)
        add(work, peer_name, ours, theirs, theirs / ours, "thousands")


def links():
    OverLinks(build, memory_folder).write(os.path.dirname(results_file) + "/links.md")


def main():
    wanted = sys.argv[sys.argv.index("--works") + 1].split(",") if "--works" in sys.argv else None
    for work in (requests, synchronous, stalled, memory, downloads, files, first_answer, instructions, links):
        if wanted is None or work.__name__ in wanted:
            work()
    save(results_file)


main()
