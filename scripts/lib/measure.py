"""Runs commands alternately, and keeps one row for each ratio of a peer's figure to ours; see scripts/bench.sh."""

import csv
import datetime
import os
import re
import resource
import statistics
import subprocess
import sys
import time

NOISY = 0.15  # a row whose ratios spread by more is measured again
quick = "--quick" in sys.argv
rounds = 3 if quick else 5
rows = []


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
    return {"seconds": seconds, "cpu": own_cpu, "kib": kib, "whole": whole}


def spread(values):
    """Returns the distance between the rounds without the highest and the lowest, as a part of their median."""
    inner = sorted(values)[1:-1] if len(values) > 3 else values
    return (max(inner) - min(inner)) / statistics.median(values)


def ratios(results, peer, key):
    return [theirs[key] / ours[key] for ours, theirs in zip(results["ours"], results[peer])]


def alternate(commands, key, prepare=None):
    """Returns each command's results of several rounds. Each command runs once in a round. The first is "ours"."""
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


def row(work, results, peer, peer_name, key, unit, scale=1.0, count=0, goal=None):
    """Adds the medians, and the median of the rounds' ratios; with a count, its rate instead of the seconds."""
    def shown(name):
        value = statistics.median(one[key] for one in results[name])
        return count / value if count else value * scale
    of_rounds = ratios(results, peer, key)
    add(work, peer_name, shown("ours"), shown(peer), statistics.median(of_rounds), unit, goal, spread(of_rounds))


def add(work, peer_name, ours, peer, ratio, unit, goal=None, noise=None):
    rows.append((work, peer_name, f"{ours:.4g}", f"{peer:.4g}", unit, f"{ratio:.4g}", goal or "",
                 "" if noise is None else f"{noise:.3f}"))
    mark = "" if goal is None else f"  (goal {goal}: {'reached' if ratio >= goal else 'MISSED'})"
    rounds_ = "" if noise is None else f", rounds spread by {noise:.0%}"
    print(f"{work:46} {peer_name:38} {ours:10.3g} {peer:10.3g} {unit:10} ratio {ratio:5.2f}{rounds_}{mark}", flush=True)


def save(path):
    """Appends the rows to a file, each with the moment and the Debian release."""
    with open("/etc/debian_version") as version:
        debian = "Debian " + version.read().split(".")[0].strip()
    moment = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
    with open(path, "a", newline="") as file:
        csv.writer(file, lineterminator="\n").writerows((moment, debian) + one for one in rows)
