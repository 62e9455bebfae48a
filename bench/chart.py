"""Draws the first table of docs/performance.md with gnuplot: chart.py PAGE PICTURE [--check]

--check: draws nothing, and fails where the figures in PICTURE are not those of PAGE.
"""

import re
import shutil
import subprocess
import sys
from xml.sax.saxutils import escape

STYLE = """
    svg { color: #1f2328; }
    .ground { fill: #ffffff; }
    @media (prefers-color-scheme: dark) {
      svg { color: #e6edf3; }
      .ground { fill: #0d1117; }
    }
"""
BAR, LINE = "#2f81f7", "#d1242f"  # to be seen on white and on black

PLOT = """
set terminal svg size 760,{height} fixed font 'system-ui,sans-serif,14'
set yrange [{rows} - 0.5:-0.7]
set xrange [0:1.45]
set ytics nomirror scale 0 ({tics})
set xtics out nomirror 0,0.2,1
set xlabel 'median time; 1: the same work on bare libzmq and JsonCpp'
set lmargin at screen 0.4
set rmargin at screen 0.98
set border 1
unset key
set style fill solid noborder
set arrow from 1, graph 0 to 1, graph 1 nohead front linecolor rgb '{line}' linewidth 2
plot '-' using (0):0:(0):1:($0 - 0.32):($0 + 0.32) with boxxyerror linecolor rgb '{bar}', \\
     '-' using ($1 > 1 ? $1 + 0.02 : 1.02):0:2 with labels left
{ratios}
e
{labels}
e
"""


def rows_of(page):
    """(job, library's time, floor's time, ratio) of each row that has them."""
    with open(page, encoding="utf-8") as file:
        table = file.read().split("| job | median | ratio |", 1)[1].split("\n\n", 1)[0]
    figure = r"([\d.]+)"
    return re.findall(rf"^\| ([^|]+?) \| {figure}, {figure} \| \**{figure}\** \|", table.replace("`", ""), re.MULTILINE)


def description(rows):
    return "\n".join(f"{job}: {ratio} ({library} to {floor} microseconds)" for job, library, floor, ratio in rows)


def drawn(rows):
    if not shutil.which("gnuplot"):
        sys.exit("apt-get install gnuplot-nox")
    plot = PLOT.format(
        height=70 + 30 * len(rows), rows=len(rows), bar=BAR, line=LINE,
        tics=", ".join("'" + job.replace("'", "''") + f"' {number}" for number, (job, *_) in enumerate(rows)),
        ratios="\n".join(ratio for *_, ratio in rows),
        labels="\n".join(f'{ratio} "{ratio}  ({library} us)"' for _, library, _, ratio in rows))
    svg = subprocess.run(["gnuplot"], input=plot, capture_output=True, text=True, check=True).stdout
    svg = re.sub(r"<title>.*</desc>", "", svg, flags=re.DOTALL)
    svg = re.sub(r"rgb\(\s*0,\s*0,\s*0\)|black", "currentColor", svg)
    svg = svg.replace('fill="none"/>', 'rx="8" class="ground"/>', 1)  # the canvas
    head = (f'<title id="title">Time of the library beside bare libzmq and JsonCpp</title>\n<desc id="figures">\n'
            f"{escape(description(rows))}\n</desc>\n<style>{STYLE}</style>\n")
    svg = re.sub(r"(<svg [^>]*)>", r'\1 role="img" aria-labelledby="title figures">' + "\n" + head, svg, count=1)
    return "".join(line.rstrip() + "\n" for line in svg.splitlines() if line.strip())


def main():
    page, picture, *check = sys.argv[1:]
    rows = rows_of(page)
    if not rows:
        sys.exit(f"{page} has no table of figures")
    if not check:
        made = drawn(rows)
        with open(picture, "w", encoding="utf-8") as file:
            file.write(made)
        return
    with open(picture, encoding="utf-8") as file:
        kept = re.search(r'<desc id="figures">\n(.*?)\n</desc>', file.read(), re.DOTALL)
    if not kept or kept.group(1) != escape(description(rows)):
        sys.exit(f"{picture} has other figures than {page}: scripts/bench chart")
    print(f"{len(rows)} rows of {page} are in {picture}")


if __name__ == "__main__":
    main()
