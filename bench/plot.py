"""Draws curves and bars with gnuplot, as SVG files."""
import re
import subprocess

HEAD = """set terminal svg size {width},{height} font "sans-serif,12" background "#ffffff"
set output "{path}"
set border 3 lc rgb "#777777"
set tics nomirror
set grid ytics lc rgb "#dddddd"
set title "{title}"
"""
COLOURS = ("#1b6ca8", "#c8553d", "#2e8b57", "#8e44ad", "#b8860b", "#555555")


def quoted(text):
    return text.replace("\\", "\\\\").replace('"', '\\"').replace("_", "\\\\_")


def gnuplot(script):
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def block(name, points):
    return f"${name} << EOD\n" + "".join(f"{a} {b}\n" for a, b in points) + "EOD\n"


def draw_curves(path, title, across, up, curves, logarithmic=False):
    """Curves {label: [(number, value)]} over numbers that grow by factors."""
    script = HEAD.format(width=720, height=380, path=path, title=quoted(title))
    script += f'set xlabel "{quoted(across)}"\nset ylabel "{quoted(up)}"\nset logscale x\n'
    script += "set logscale y\n" if logarithmic else "set yrange [0:*]\n"
    marks = sorted({number for points in curves.values() for number, _ in points})
    script += f"set xrange [{marks[0] / 1.3:g}:{marks[-1] * 1.3:g}]\n"
    script += "set xtics (" + ", ".join(f'"{mark:,}" {mark}' for mark in marks) + ")\nset key outside bottom center horizontal\n"
    script += "".join(block(f"c{i}", points) for i, points in enumerate(curves.values()))
    script += "plot " + ", ".join(f'$c{i} using 1:2 with linespoints lw 2 pt 7 ps 0.5 lc rgb "{COLOURS[i % len(COLOURS)]}" '
                                  f'title "{quoted(label)}"' for i, label in enumerate(curves)) + "\n"
    gnuplot(script)


def draw_bars(path, title, up, bars):
    """Bars [(label, value)], each with its value."""
    script = HEAD.format(width=720, height=380, path=path, title=quoted(title))
    script += f'set ylabel "{quoted(up)}"\nset yrange [0:*]\nset xrange [-0.6:{len(bars) - 0.4}]\nset boxwidth 0.6\nunset key\n'
    script += 'set style fill solid\n'
    script += "set xtics (" + ", ".join(f'"{quoted(label)}" {i}' for i, (label, _) in enumerate(bars)) + ")\n"
    script += block("bars", enumerate(value for _, value in bars))
    script += f'plot $bars with boxes lc rgb "{COLOURS[0]}", $bars using 1:2:(sprintf("%.4g", $2)) with labels offset 0,0.7\n'
    gnuplot(script)


def curve(rows, pattern):
    """The values of all rows whose names have a number where the pattern does: [(number, value)]."""
    found = ((re.match(pattern, name), row) for name, row in rows.items())
    return sorted((int(match[1]), row["value"]) for match, row in found if match)


def plot_growth(rows, path):
    """How the cost of one thing grows with the number of things, each as a ratio to the fewest."""
    patterns = {
        "message, by symbols": r"Growth, symbols: (\d+)$",
        "message, by hubs": r"Growth, hubs: (\d+)$",
        "message, by feeds": r"Growth, feeds: (\d+)$",
        "message to two threads, by bytes": r"Growth, bytes of a frame: (\d+), library to two threads$",
        "send, by standing requests": r"Requests, (\d+): send, processor time$",
        "answer, by standing requests": r"Requests, (\d+): processor time until answered$",
    }
    curves = {label: curve(rows, pattern) for label, pattern in patterns.items()}
    curves = {label: [(number, value / points[0][1]) for number, value in points]
              for label, points in curves.items() if len(points) > 1 and points[0][1] > 0}
    if curves:
        draw_curves(path, "Cost of each, to that with the fewest", "how many", "ratio", curves)
