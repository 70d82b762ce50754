"""Writes the table and the chart of performance.md from the runs in performance.csv: bench_page.py DOCS-FOLDER.

Of each Debian release it keeps the last three runs. A cell shows the median of the runs and, for ratios, their range.
"""

import csv
import statistics
import sys

docs = sys.argv[1]
HEADER = ["moment", "debian", "work", "peer", "ours", "theirs", "unit", "ratio", "goal", "spread"]


def read():
    """Returns the rows of the last three runs of each Debian release, and writes the file without the others."""
    with open(docs + "/performance.csv", newline="") as file:
        rows = list(csv.DictReader(file))
    last = {debian: sorted({row["moment"] for row in rows if row["debian"] == debian})[-3:]
            for debian in {row["debian"] for row in rows}}
    rows = [row for row in rows if row["moment"] in last[row["debian"]]]
    with open(docs + "/performance.csv", "w", newline="") as file:
        writer = csv.DictWriter(file, HEADER, lineterminator="\n")
        writer.writeheader()
        writer.writerows(rows)
    return rows


def digits(value):
    """Returns a number with three digits, or more before the point."""
    return f"{value:,.{max(0, 3 - len(str(int(value)))) + (value < 1)}f}"


def ratios(rows, key, debian):
    return [float(row["ratio"]) for row in rows if (row["work"], row["peer"]) == key and row["debian"] == debian]


def table(rows, keys, releases):
    lines = ["| work | against | " + " | ".join(f"{release}: Veltra's | ratio" for release in releases) + " | goal |",
             "|---|---|" + "---:|---:|" * len(releases) + "---:|"]
    for key in keys:
        cells, goals = list(key), []
        for release in releases:
            of_key = [row for row in rows if (row["work"], row["peer"]) == key and row["debian"] == release]
            ours = statistics.median(float(row["ours"]) for row in of_key) if of_key else None
            values = ratios(rows, key, release)
            cells.append(f"{digits(ours)} {of_key[0]['unit']}" if of_key else "")
            cells.append(f"{statistics.median(values):.2f} ({min(values):.2f}–{max(values):.2f})" if values else "")
            goals += [(float(row["goal"]), statistics.median(values)) for row in of_key[-1:] if row["goal"]]
        missed = any(ratio < goal for goal, ratio in goals)
        shown = " / ".join(dict.fromkeys(f"{goal:.2f}" for goal, _ in goals))
        lines.append("| " + " | ".join(cells + [shown + (" (missed)" if missed else "")]) + " |")
    return "\n".join(lines) + "\n"


def chart(rows, keys, releases):
    """One bar for each ratio. On the scale 1 is the peer's own figure, and the largest ratio fits."""
    colours, left, width, bar = ("#3a7", "#68b"), 520, 960, 9
    step = bar * len(releases) + 6
    medians = {(key, release): statistics.median(values) for key in keys for release in releases
               if (values := ratios(rows, key, release))}
    scale = (width - left - 50) / max(medians.values())
    bottom = 30 + len(keys) * step
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{bottom + 34}" font-family="sans-serif" '
             'font-size="11">', '<rect width="100%" height="100%" fill="white"/>']
    for i, key in enumerate(keys):
        y = 30 + i * step
        parts.append(f'<text x="{left - 6}" y="{y + step / 2}" text-anchor="end">{key[0]} / {key[1]}</text>')
        for j, release in enumerate(releases):
            if (ratio := medians.get((key, release))) is not None:
                top = y + j * bar
                parts.append(f'<rect x="{left}" y="{top}" width="{ratio * scale:.1f}" height="{bar - 1}" '
                             f'fill="{colours[j]}"/>')
                parts.append(f'<text x="{left + ratio * scale + 4:.1f}" y="{top + bar - 1}" font-size="9">{ratio:.2f}</text>')
    for j, release in enumerate(releases):
        parts.append(f'<rect x="{left + j * 110}" y="{bottom + 14}" width="20" height="9" fill="{colours[j]}"/>')
        parts.append(f'<text x="{left + 26 + j * 110}" y="{bottom + 23}">{release}</text>')
    parts.append(f'<line x1="{left + scale:.1f}" y1="20" x2="{left + scale:.1f}" y2="{bottom}" stroke="black"/>')
    parts.append(f'<text x="{left + scale:.1f}" y="15" text-anchor="middle">the other = 1; longer is better</text></svg>')
    return "\n".join(parts) + "\n"


def main():
    rows = read()
    releases = sorted({row["debian"] for row in rows})
    keys = list(dict.fromkeys((row["work"], row["peer"]) for row in rows))
    with open(docs + "/performance.md") as page:
        text = page.read()
    start, end = "<!-- table -->\n", "<!-- end of table -->"
    head, tail = text.split(start)[0], text.split(end)[1]
    with open(docs + "/performance.md", "w") as page:
        page.write(head + start + table(rows, keys, releases) + end + tail)
    with open(docs + "/performance.svg", "w") as svg:
        svg.write(chart(rows, keys, releases))


main()
