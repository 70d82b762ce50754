"""Runs each work alternately for ours and the peers, and writes the table of ratios and its chart; see bench.sh."""

import os
import re
import resource
import shutil
import statistics
import subprocess
import sys
import time
import types

build, docs = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
# nginx, plain and with TLS; a server that accepts and never answers; where nginx's large file is, and room for more
servers = types.SimpleNamespace(port=sys.argv[3], tls_port=sys.argv[4], silent_port=sys.argv[5], memory=sys.argv[6])
quick = "--quick" in sys.argv
rounds = 3 if quick else 7
FRESH = ", fresh handles"
certificates = build + "/loopback/certificates"
rows = []  # work, peer's name, ours, peer's, ratio, unit, target ratio or None


def client(name):
    return f"{build}/bench/{name}"


def run(command, env=None):
    """Returns seconds, CPU seconds, peak KiB and failures, as a client prints them or the system counts them."""
    start, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120,
                          env={**os.environ, **(env or {})})
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        sys.exit(f"{command}: exit {done.returncode}\n{done.stderr}")
    whole = time.monotonic() - start
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    line = re.fullmatch(r"([\d.]+) ([\d.]+) (\d+) (\d+)\n", done.stdout)
    if not line:
        return {"seconds": whole, "cpu": cpu, "process_cpu": cpu, "kib": 0}
    if int(line[4]) != 0:
        sys.exit(f"{command}: {line[4]} requests failed")
    return {"seconds": float(line[1]), "cpu": float(line[2]), "process_cpu": cpu, "kib": int(line[3])}


def alternate(commands):
    """The medians of several rounds, in each of which every command runs once."""
    results = {name: [] for name in commands}
    for _ in range(rounds):
        for name, command in commands.items():
            prepare, command, env = (command + (None,) * 3)[:3] if isinstance(command, tuple) else (None, command, None)
            if prepare:
                prepare()
            results[name].append(run(command, env))
    return {name: {key: statistics.median(one[key] for one in all_) for key in all_[0]}
            for name, all_ in results.items()}


def row(work, ours, peer, peer_name, unit, higher_is_better, target=None):
    ratio = ours / peer if higher_is_better else peer / ours
    rows.append((work, peer_name, ours, peer, ratio, unit, target))
    mark = "" if target is None else f"  (at least {target}: {'yes' if ratio >= target else 'NO'})"
    print(f"{work:58} {peer_name:24} {ours:12.2f} {peer:12.2f} {unit:10} ratio {ratio:6.2f}{mark}", flush=True)


def requests():
    scale = 0.2 if quick else 1
    for scheme, port in (("http", servers.port), ("https", servers.tls_port)):
        url = f"{scheme}://127.0.0.1:{port}/1k"
        for in_flight in (1, 16, 64, 256, 1000):
            count = int((20000 if in_flight == 1 else 40000) * scale)
            arguments = [url, str(count), str(in_flight), certificates + "/ca.pem"]
            commands = {name: [client(name)] + arguments for name in ("veltra_async", "curl_poll", "curl_epoll")}
            if in_flight in (64, 1000):
                commands.update({name + FRESH: (None, commands[name], {"BENCH_FRESH": "1"})
                                 for name in ("curl_poll", "curl_epoll")})
            if in_flight == 64:
                commands["soup_async"] = [client("soup_async")] + arguments
            medians = alternate(commands)
            work = f"{scheme} GET of 1 KiB, asynchronous, {in_flight} in flight"
            rate = {name: count / one["seconds"] for name, one in medians.items()}
            target = 0.95 if in_flight in (64, 1000) else None
            for handles, aim in (("", target), (FRESH, None)):
                peers = [name for name in ("curl_poll" + handles, "curl_epoll" + handles) if name in rate]
                if peers:
                    best = max(peers, key=rate.get)
                    row(work, rate["veltra_async"], rate[best], f"libcurl, {best[5:]}", "requests/s", True, aim)
                    row(work + ", CPU", medians["veltra_async"]["cpu"] / count * 1e6,
                        medians[best]["cpu"] / count * 1e6, f"libcurl, {best[5:]}", "us each", False)
            if "soup_async" in rate:
                row(work, rate["veltra_async"], rate["soup_async"], "libsoup-3", "requests/s", True,
                    3.5 if scheme == "http" else None)
        for threads in (1, 8):
            count = int(20000 * scale)
            arguments = [url, str(count), str(threads), certificates + "/ca.pem"]
            commands = {name: [client(name)] + arguments for name in ("veltra_sync", "curl_easy")}
            if threads == 1:
                commands["handed over"] = (None, commands["curl_easy"], {"BENCH_HAND_OVER": "1"})
            rate = {name: count / one["seconds"] for name, one in alternate(commands).items()}
            work = f"{scheme} GET of 1 KiB, synchronous, " + ("one after the other" if threads == 1 else "8 threads")
            row(work, rate["veltra_sync"], rate["curl_easy"], "libcurl, reused handle", "requests/s", True,
                0.90 if threads == 1 and scheme == "http" else None)
            if threads == 1:
                row(work, rate["veltra_sync"], rate["handed over"], "libcurl, handed over", "requests/s", True)


def stalled():
    url, silent = f"http://127.0.0.1:{servers.port}/1k", f"http://127.0.0.1:{servers.silent_port}/stall"
    count = 8000 if quick else 40000
    for number in (0, 200, 1000):
        arguments = [url, str(count), "16", certificates + "/ca.pem", str(number), silent]
        medians = alternate({name: [client(name)] + arguments for name in ("veltra_async", "curl_poll", "curl_epoll")})
        rate = {name: count / one["seconds"] for name, one in medians.items()}
        for peer, target in (("curl_epoll", 0.95), ("curl_poll", 2.0)):
            row(f"16 active beside {number} stalled", rate["veltra_async"], rate[peer], f"libcurl, {peer[5:]}",
                "requests/s", True, target if number == 1000 else None)


def memory():
    """What a transfer adds to the peak: with a thousand at work or silent, less what one at work takes."""
    url, silent = f"http://127.0.0.1:{servers.port}/1k", f"http://127.0.0.1:{servers.silent_port}/stall"
    loads = {"one": [url, "1000", "1", certificates + "/ca.pem"],
             "in flight": [url, "40000", "1000", certificates + "/ca.pem"],
             "stalled": [url, "1000", "1", certificates + "/ca.pem", "1000", silent]}
    peak = {load: {name: one["kib"] for name, one in alternate(
                {name: (None, [client(name)] + arguments, {"BENCH_FRESH": "1"})
                 for name in ("veltra_async", "curl_poll", "curl_epoll")}).items()}
            for load, arguments in loads.items()}
    for load, target in (("in flight", 1.0), ("stalled", None)):
        each = {name: (peak[load][name] - peak["one"][name]) / 1000 for name in peak[load]}
        for peer in ("curl_poll", "curl_epoll"):
            row(f"memory per transfer, 1,000 {load}", each["veltra_async"], each[peer], f"libcurl, {peer[5:]}{FRESH}",
                "KiB", False, target)


def downloads():
    url, folder = f"http://127.0.0.1:{servers.port}/1g", servers.memory + "/got"

    def clean():
        shutil.rmtree(folder, ignore_errors=True)
        os.mkdir(folder)

    for number in (1, 8):
        several = [word for i in range(number) for word in ("-o", f"{folder}/{i}", url)]
        commands = {"ours": (clean, [client("veltra_download"), url, str(number), folder, "-"]),
                    "curl -o": (clean, ["curl", "-sS"] + (["--parallel"] if number > 1 else []) + several)}
        if number == 1:
            commands["aria2c"] = (clean, ["aria2c", "-q", "-d", folder, "-o", "file", "--file-allocation=none", url])
        medians = alternate(commands)
        clean()
        size = "128 MiB" if quick else "1 GiB"
        for peer in list(commands)[1:]:
            name = "curl --parallel" if number > 1 else peer
            target = 1.3 if peer == "curl -o" and number == 1 else None
            for key, what in (("seconds", "wall"), ("process_cpu", "CPU")):
                row(f"{number} download{'s at once' if number > 1 else ''} of {size}, {what}", medians["ours"][key],
                    medians[peer][key], name, "s", False, target)


def first_byte():
    arguments = [f"http://127.0.0.1:{servers.port}/1k", "1", "1", certificates + "/ca.pem"]
    medians = alternate({name: [client(name)] + arguments for name in ("veltra_sync", "curl_easy")})
    row("start-up to the first answer", medians["veltra_sync"]["seconds"] * 1e3, medians["curl_easy"]["seconds"] * 1e3,
        "libcurl", "ms", False)


def instructions():
    counts = {}
    for name in ("veltra_sync", "curl_easy"):
        totals = []
        for number in (100, 300):
            command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", client(name),
                       f"http://127.0.0.1:{servers.port}/1k", str(number), "1", certificates + "/ca.pem"]
            done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
            totals.append(int(re.search(r"Collected : (\d+)", done.stderr)[1]))
        counts[name] = (totals[1] - totals[0]) / 200
    row("instructions of one synchronous GET", counts["veltra_sync"], counts["curl_easy"], "libcurl, reused handle",
        "", False)


def readers():
    done = subprocess.run([client("in_process"), "--benchmark_format=csv", "--benchmark_repetitions=3",
                           "--benchmark_report_aggregates_only=true"], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, check=True)
    each = {}
    for name, value in re.findall(r'"(\w+(?:/\w+?)?)_median",[^,]*,([\d.e+]+)', done.stdout):
        work, _, size = name.partition("/")
        each[name] = float(value) / (int(size) if size.isdigit() else 1)
        print(f"{name:58} {each[name]:12.1f} ns each")
    row("information document in order, 100,000 entries, per entry", each["ReadInformation/100000"],
        each["ReadInformation/1000"], "1,000 entries", "ns", False, 1 / 1.5)
    rows.extend((f"{name}", "", value, None, None, "ns each", None) for name, value in each.items())


def table():
    lines = ["| work | ours against | ours | peer | unit | ratio | at least |", "|---|---|---:|---:|---|---:|---:|"]
    for work, peer_name, ours, peer, ratio, unit, target in rows:
        shown = [f"{peer:,.2f}", f"{ratio:.2f}"] if peer is not None else ["", ""]
        lines.append(f"| {work} | {peer_name} | {ours:,.2f} | {shown[0]} | {unit} | {shown[1]} | "
                     f"{'' if target is None else f'{target:.2f}'} |")
    return "\n".join(lines)


def chart():
    """One bar a ratio, on a scale on which 1 is the peer's own figure."""
    shown = [one for one in rows if one[4] is not None]
    width, left, step = 900, 520, 18
    scale = (width - left - 60) / max(min(one[4], 8) for one in shown)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{len(shown) * step + 40}" '
             'font-family="sans-serif" font-size="11">', '<rect width="100%" height="100%" fill="white"/>']
    for i, (work, peer_name, _, _, ratio, _, target) in enumerate(shown):
        y = 30 + i * step
        good = target is None or ratio >= target
        parts.append(f'<text x="{left - 6}" y="{y + 11}" text-anchor="end">{work} / {peer_name}</text>')
        parts.append(f'<rect x="{left}" y="{y}" width="{min(ratio, 8) * scale:.1f}" height="13" '
                     f'fill="{"#3a7" if good else "#c55"}"/>')
        parts.append(f'<text x="{left + min(ratio, 8) * scale + 4:.1f}" y="{y + 11}">{ratio:.2f}</text>')
    one_x = left + scale
    parts.append(f'<line x1="{one_x:.1f}" y1="20" x2="{one_x:.1f}" y2="{len(shown) * step + 34}" stroke="black"/>')
    parts.append(f'<text x="{one_x:.1f}" y="15" text-anchor="middle">the peer = 1; longer is better</text></svg>')
    return "\n".join(parts)


def write():
    with open(docs + "/performance.svg", "w") as svg:
        svg.write(chart() + "\n")
    path = docs + "/performance.md"
    with open(path) as page:
        text = page.read()
    start, end = "<!-- table -->\n", "<!-- end of table -->"
    head, tail = text.split(start)[0], text.split(end)[1]
    with open(path, "w") as page:
        page.write(head + start + table() + "\n" + end + tail)


def main():
    for work in (requests, stalled, memory, downloads, first_byte, instructions, readers):
        work()
    if not quick:
        write()
    missed = [one for one in rows if one[6] is not None and one[4] < one[6]]
    print(f"{sum(one[6] is not None for one in rows) - len(missed)} of the aims reached, {len(missed)} missed")


main()
