"""Runs each work alternately for ours and the peers, and writes the table of ratios and its charts; see bench.sh."""

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
rounds = 3 if quick else 5
NOISY = 0.15  # a row whose ratios spread by more is measured again, and marked if that is no better
FRESH, THREAD = ", fresh handles", ", second thread"
ENVIRONMENTS = {"": {}, FRESH: {"BENCH_FRESH": "1"}, THREAD: {"BENCH_THREAD": "1"},
                THREAD + FRESH: {"BENCH_THREAD": "1", "BENCH_FRESH": "1"}}
certificates = build + "/tests/loopback/certificates"
rows = []  # as add() makes them


def client(name):
    return f"{build}/bench/{name}"


def run(command, env=None):
    """Returns seconds, CPU seconds and peak KiB, as a client prints them, and those of the whole process."""
    start, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120,
                          env={**os.environ, **(env or {})})
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        sys.exit(f"{command}: exit {done.returncode}\n{done.stderr}")
    whole = time.monotonic() - start
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    line = re.fullmatch(r"([\d.]+) ([\d.]+) (\d+) (\d+)\n", done.stdout)
    if line and int(line[4]) != 0:
        sys.exit(f"{command}: {line[4]} requests failed")
    seconds, own_cpu, kib = (float(line[1]), float(line[2]), int(line[3])) if line else (whole, cpu, 0)
    return {"seconds": seconds, "cpu": own_cpu, "kib": kib, "whole": whole, "whole_cpu": cpu}


def spread(values):
    """How far the rounds lie apart, without the highest and the lowest, as a part of their median."""
    inner = sorted(values)[1:-1] if len(values) > 3 else values
    return (max(inner) - min(inner)) / statistics.median(values)


def ratios(results, peer, key):
    return [theirs[key] / ours[key] for ours, theirs in zip(results["ours"], results[peer])]


def alternate(commands, key, prepare=None):
    """Each command's results of several rounds, in each of which every one runs once. The first is "ours"."""
    def measure():
        results = {name: [] for name in commands}
        for _ in range(rounds):
            for name, command in commands.items():
                command, env = command if isinstance(command, tuple) else (command, None)
                if prepare:
                    prepare()
                results[name].append(run(command, env))
        return results

    def noise(results):
        return max(spread(ratios(results, peer, key)) for peer in list(commands)[1:])

    first = measure()
    return first if noise(first) <= NOISY or quick else min((first, measure()), key=noise)


def row(work, results, peer, peer_name, key, unit, scale=1.0, count=0, target=None):
    """One line: medians, and the median of the rounds' ratios; with a count, its rate instead of the seconds."""
    def shown(name):
        value = statistics.median(one[key] for one in results[name])
        return count / value if count else value * scale
    of_rounds = ratios(results, peer, key)
    add(work, peer_name, shown("ours"), shown(peer), statistics.median(of_rounds), unit, target, spread(of_rounds))


def add(work, peer_name, ours, peer, ratio, unit, target=None, noise=None):
    rows.append(types.SimpleNamespace(work=work, peer_name=peer_name, ours=ours, peer=peer, ratio=ratio, unit=unit,
                                      target=target, noise=noise))
    mark = "" if target is None else f"  (at least {target}: {'yes' if ratio >= target else 'NO'})"
    rounds_ = "" if noise is None else f", rounds spread by {noise:.0%}"
    print(f"{work:58} {peer_name:34} {ours:12.2f} {peer:12.2f} {unit:10} ratio {ratio:6.2f}{rounds_}{mark}", flush=True)


def uses_handles_again():
    """Whether the engine does, with this libcurl."""
    done = subprocess.run(["pkg-config", "--modversion", "libcurl"], stdout=subprocess.PIPE, text=True, check=True)
    return tuple(int(part) for part in done.stdout.strip().split(".")) >= (8, 1, 0)


def requests():
    scale = 0.2 if quick else 1
    for scheme, port in (("http", servers.port), ("https", servers.tls_port)):
        url = f"{scheme}://127.0.0.1:{port}/1k"
        for in_flight in (1, 16, 64, 1000):
            asynchronous(scheme, url, in_flight, int((5000 if in_flight == 1 else 20000) * scale))
        synchronous(scheme, url, 1, int(8000 * scale))
        synchronous(scheme, url, 8, int(16000 * scale))


def asynchronous(scheme, url, in_flight, count):
    arguments = [url, str(count), str(in_flight), certificates + "/ca.pem"]
    peers = {"curl_poll" + kind: ("curl_poll", kind) for kind in ENVIRONMENTS}
    if in_flight in (64, 1000):
        peers.update({"curl_epoll" + kind: ("curl_epoll", kind) for kind in ("", FRESH)})
    commands = {"ours": [client("veltra_async")] + arguments}
    commands.update({peer: ([client(name)] + arguments, ENVIRONMENTS[kind]) for peer, (name, kind) in peers.items()})
    if in_flight == 64:
        commands["soup"] = [client("soup_async")] + arguments
    results = alternate(commands, "cpu")
    alike = "curl_poll" + ("" if uses_handles_again() else FRESH)
    fastest = max(peers, key=lambda peer: statistics.median(ratios(results, "ours", "cpu")) /
                  statistics.median(ratios(results, peer, "cpu")))
    aims = {("http", 16): {alike: 0.92 if uses_handles_again() else 1.0}, ("https", 64): {fastest: 1.0},
            ("http", 1000): {fastest: 1.25}, ("https", 1000): {fastest: 1.05}}
    aims["http", 64] = aims["http", 16]
    work = f"{scheme} GET of 1 KiB, {in_flight:,} in flight"
    for peer, (name, kind) in peers.items():
        row(work + ", CPU", results, peer, f"libcurl, {name[5:]}{kind}", "cpu", "us each", 1e6 / count,
            target=aims.get((scheme, in_flight), {}).get(peer))
    row(work, results, alike, f"libcurl, {alike[5:]}", "seconds", "requests/s", count=count)
    if "soup" in commands:
        row(work, results, "soup", "libsoup-3", "seconds", "requests/s", count=count)


def synchronous(scheme, url, threads, count):
    arguments = [url, str(count), str(threads), certificates + "/ca.pem"]
    commands = {"ours": [client("veltra_sync")] + arguments, "easy": [client("curl_easy")] + arguments}
    peers = {"easy": "libcurl, one handle on the same thread"}
    if threads == 1:
        commands["handed over"] = (commands["easy"], {"BENCH_HAND_OVER": "1"})
        commands["floor"] = [client("sync_floor")] + arguments
        peers.update({"handed over": "libcurl, one handle, handed over", "floor": "the floor: GLib loop, multi handle"})
    results = alternate(commands, "seconds")
    work = f"{scheme} GET of 1 KiB, synchronous, " + ("one after the other" if threads == 1 else "8 threads")
    for peer, name in peers.items():
        row(work, results, peer, name, "seconds", "requests/s", count=count,
            target=0.95 if peer == "floor" and scheme == "http" else None)


def stalled():
    url, silent = f"http://127.0.0.1:{servers.port}/1k", f"http://127.0.0.1:{servers.silent_port}/stall"
    count = 8000 if quick else 20000
    for number in (0, 1000):
        arguments = [url, str(count), "16", certificates + "/ca.pem", str(number), silent]
        results = alternate({"ours": [client("veltra_async")] + arguments, "epoll": [client("curl_epoll")] + arguments,
                             "poll": [client("curl_poll")] + arguments}, "seconds")
        for peer, target in (("epoll", 1.0), ("poll", 4.0)):
            row(f"16 active beside {number:,} stalled", results, peer, f"libcurl, {peer}", "seconds", "requests/s",
                count=count, target=target if number == 1000 else None)


def memory():
    """What a transfer adds to the peak: with a thousand at work or silent, less what one at work takes."""
    url, silent = f"http://127.0.0.1:{servers.port}/1k", f"http://127.0.0.1:{servers.silent_port}/stall"
    loads = {"one": [url, "1000", "1", certificates + "/ca.pem"],
             "in flight": [url, "40000", "1000", certificates + "/ca.pem"],
             "stalled": [url, "1000", "1", certificates + "/ca.pem", "1000", silent]}
    clients = {"ours": "veltra_async", "poll": "curl_poll", "epoll": "curl_epoll"}
    peak = {}
    for load, arguments in loads.items():
        results = alternate({name: ([client(program)] + arguments, ENVIRONMENTS[FRESH])
                             for name, program in clients.items()}, "kib")
        peak[load] = {name: statistics.median(one["kib"] for one in results[name]) for name in clients}
    for load, target in (("in flight", 1.5), ("stalled", None)):
        each = {name: (peak[load][name] - peak["one"][name]) / 1000 for name in clients}
        for peer in ("poll", "epoll"):
            add(f"memory for each of 1,000 {load}", f"libcurl, {peer}{FRESH}", each["ours"], each[peer],
                each[peer] / each["ours"], "KiB", target if peer == "poll" else None)


def empty_folder():
    folder = servers.memory + "/got"
    shutil.rmtree(folder, ignore_errors=True)
    os.mkdir(folder)
    return folder


def downloads():
    folder = empty_folder()
    for number, name, size in ((1, "1g", "128 MiB" if quick else "1 GiB"), (8, "128m", "128 MiB")):
        url = f"http://127.0.0.1:{servers.port}/{name}"
        several = [word for i in range(number) for word in ("-o", f"{folder}/{i}", url)]
        commands = {"ours": [client("veltra_download"), url, str(number), folder, str(number)],
                    "curl": ["curl", "-sS"] + (["--parallel"] if number > 1 else []) + several}
        peers = {"curl": "curl --parallel" if number > 1 else "curl -o"}
        if number == 1:
            commands["aria2c"] = ["aria2c", "-q", "-d", folder, "-o", "file", "--file-allocation=none", url]
            peers["aria2c"] = "aria2c"
        results = alternate(commands, "whole", empty_folder)
        empty_folder()
        work = f"{number} download{'s at once' if number > 1 else ''} of {size}"
        for peer, name in peers.items():
            row(f"{work}, wall", results, peer, name, "whole", "s", target=1.35 if name == "curl -o" else None)
            row(f"{work}, CPU", results, peer, name, "whole_cpu", "s")


def files():
    """Many small files, the process's start and end included: ours all at once and 50 at once, the peers 50 at once."""
    url, folder, count = f"http://127.0.0.1:{servers.port}/10k", empty_folder(), 1000
    with open(servers.memory + "/curl", "w") as wanted:
        wanted.write("".join(f'url = "{url}?{i}"\noutput = "{folder}/{i}"\n' for i in range(count)))
    with open(servers.memory + "/aria2", "w") as wanted:
        wanted.write("".join(f"{url}?{i}\n out={i}\n" for i in range(count)))
    commands = {"curl": ["curl", "-sS", "--parallel", "--parallel-max", "50", "-K", servers.memory + "/curl"],
                "aria2c": ["aria2c", "-q", "-d", folder, "-j", "50", "--file-allocation=none", "-i",
                           servers.memory + "/aria2"]}
    for at_once, target in ((count, 0.90), (50, 1.30)):
        ours = [client("veltra_download"), url, str(count), folder, str(at_once)]
        results = alternate({"ours": ours, **commands}, "whole", empty_folder)
        for peer, name in (("curl", "curl --parallel-max 50"), ("aria2c", "aria2c -j 50")):
            row(f"1,000 files of 10 KiB, {at_once:,} at once", results, peer, name, "whole", "files/s", count=count,
                target=target if peer == "curl" else None)
    empty_folder()


def system_calls():
    """Those of one small file more, by the difference between two numbers of them."""
    url, each = f"http://127.0.0.1:{servers.port}/10k", {}
    for name in ("ours", "curl"):
        totals = []
        for count in (100, 300):
            folder = empty_folder()
            several = [word for i in range(count) for word in ("-o", f"{folder}/{i}", f"{url}?{i}")]
            command = [client("veltra_download"), url, str(count), folder, "1"] if name == "ours" else \
                ["curl", "-sS"] + several
            counts = servers.memory + "/counts"
            subprocess.run(["strace", "-f", "-c", "-o", counts] + command, stdout=subprocess.DEVNULL, check=True)
            with open(counts) as text:
                totals.append(int(re.search(r"^ *[\d.]+ +[\d.]+ +\d+ +(\d+)(?: +\d+)? +total$", text.read(), re.M)[1]))
        each[name] = (totals[1] - totals[0]) / 200
    add("system calls for one file of 10 KiB", "curl -o", each["ours"], each["curl"], each["curl"] / each["ours"], "")


def first_byte():
    arguments = [f"http://127.0.0.1:{servers.port}/1k", "1", "1", certificates + "/ca.pem"]
    results = alternate({"ours": [client("veltra_sync")] + arguments, "easy": [client("curl_easy")] + arguments},
                        "seconds")
    peer = "libcurl, one handle on the same thread"
    row("first answer, from the request", results, "easy", peer, "seconds", "ms", 1e3)
    row("first answer, from the process's start to its end", results, "easy", peer, "whole", "ms", 1e3)


def instructions():
    counts = {}
    for name in ("veltra_sync", "curl_easy", "sync_floor"):
        totals = []
        for number in (100, 300):
            command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", client(name),
                       f"http://127.0.0.1:{servers.port}/1k", str(number), "1", certificates + "/ca.pem"]
            done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
            totals.append(int(re.search(r"Collected : (\d+)", done.stderr)[1]))
        counts[name] = (totals[1] - totals[0]) / 200
    ours = counts.pop("veltra_sync")
    for peer, name in (("curl_easy", "libcurl, one handle on the same thread"), ("sync_floor", "the floor")):
        add("instructions of one synchronous GET", name, ours, counts[peer], counts[peer] / ours, "")
    add("instructions of one synchronous GET", "what is aimed at", ours, 85000, 85000 / ours, "", 1.0)


def readers():
    done = subprocess.run([client("in_process"), "--benchmark_format=csv", "--benchmark_repetitions=3",
                           "--benchmark_report_aggregates_only=true"], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, check=True)
    each = {}
    for name, value in re.findall(r'"(\w+(?:/\w+?)?)_median",[^,]*,([\d.e+]+)', done.stdout):
        _, _, size = name.partition("/")
        each[name] = float(value) / (int(size) if size.isdigit() else 1)
    few, many = each["ReadInformation/1000"], each["ReadInformation/100000"]
    add("information document of 100,000 entries, each", "one of 1,000 entries", many, few, few / many, "ns", 1 / 1.5)
    for name in ("SubmitAndFinish/real_time", "RecordBelowThreshold"):
        add(name, "", each[name], each[name], 1, "ns")


def table(shown):
    lines = ["| work | against | ours | the other | unit | ratio | rounds spread by | at least |",
             "|---|---|---:|---:|---|---:|---:|---:|"]
    for one in shown:
        noise = "" if one.noise is None else f"{one.noise:.0%}" + (" (noisy)" if one.noise > NOISY else "")
        aim = "" if one.target is None else f"{one.target:.2f}" + ("" if one.ratio >= one.target else " (missed)")
        peer = (one.peer_name, f"{one.peer:,.2f}", f"{one.ratio:.2f}") if one.peer_name else ("", "", "")
        cells = (one.work, peer[0], f"{one.ours:,.2f}", peer[1], one.unit, peer[2], noise, aim)
        lines.append(f"| {' | '.join(cells)} |")
    return "\n".join(lines) + "\n"


def of_interest(one):
    """The aims, the floors and the programs that people know."""
    return one.ratio and one.peer_name and (
        one.target is not None or "floor" in one.peer_name or one.peer_name == "libsoup-3" or
        one.peer_name.startswith(("curl", "aria2c")) and "CPU" not in one.work or
        THREAD in one.peer_name and ("64 in flight" in one.work or "1,000 in flight" in one.work))


MISSED, FLOOR, ELSE = "#c55", "#68b", "#3a7"
LEGEND = ((MISSED, "an aim that is missed"), (FLOOR, "beside the floor"), (ELSE, "all else"))


def chart(shown):
    """One bar for each ratio, on a scale on which 1 is the other's own figure and the largest ratio fits."""
    width, left, step = 900, 520, 18
    scale = (width - left - 60) / max(one.ratio for one in shown)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{len(shown) * step + 64}" '
             'font-family="sans-serif" font-size="11">', '<rect width="100%" height="100%" fill="white"/>']
    for i, one in enumerate(shown):
        y, length = 30 + i * step, one.ratio * scale
        colour = MISSED if one.target is not None and one.ratio < one.target else \
            FLOOR if "floor" in one.peer_name or THREAD in one.peer_name else ELSE
        parts.append(f'<text x="{left - 6}" y="{y + 11}" text-anchor="end">{one.work} / {one.peer_name}</text>')
        parts.append(f'<rect x="{left}" y="{y}" width="{length:.1f}" height="13" fill="{colour}"/>')
        parts.append(f'<text x="{left + length + 4:.1f}" y="{y + 11}">{one.ratio:.2f}</text>')
    for i, (colour, meaning) in enumerate(LEGEND):
        x, y = 230 + i * 180, len(shown) * step + 45
        parts.append(f'<rect x="{x}" y="{y}" width="26" height="13" fill="{colour}"/>')
        parts.append(f'<text x="{x + 32}" y="{y + 11}">{meaning}</text>')
    one_x = left + scale
    parts.append(f'<line x1="{one_x:.1f}" y1="20" x2="{one_x:.1f}" y2="{len(shown) * step + 34}" stroke="black"/>')
    parts.append(f'<text x="{one_x:.1f}" y="15" text-anchor="middle">the other = 1; longer is better</text></svg>')
    return "\n".join(parts) + "\n"


def write():
    with open(docs + "/performance.svg", "w") as svg:
        svg.write(chart([one for one in rows if of_interest(one)]))
    path = docs + "/performance.md"
    with open(path) as page:
        text = page.read()
    start, end = "<!-- table -->\n", "<!-- end of table -->"
    head, tail = text.split(start)[0], text.split(end)[1]
    with open(path, "w") as page:
        page.write(head + start + table(rows) + end + tail)


def main():
    works = (requests, stalled, memory, downloads, files, system_calls, first_byte, instructions, readers)
    wanted = sys.argv[sys.argv.index("--works") + 1].split(",") if "--works" in sys.argv else None
    for work in works:
        if wanted is None or work.__name__ in wanted:
            work()
    if quick or wanted or "--shown" in sys.argv:
        print(table([one for one in rows if one.target is not None]))
    else:
        write()
    missed = [one for one in rows if one.target is not None and one.ratio < one.target]
    print(f"{sum(one.target is not None for one in rows) - len(missed)} of the aims reached, {len(missed)} missed")


main()
