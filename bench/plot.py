"""Draws how the cost of one thing grows with the number of things, as an SVG file."""
import re

WIDTH, HEIGHT, LEFT, TOP, BOTTOM = 720, 420, 60, 20, 60
COLOURS = ["#1b6ca8", "#c8553d", "#2e8b57", "#8e44ad", "#b8860b", "#555555"]


def curves_of(rows):
    """{label: [(number, cost of one to the first's)]}, from rows whose names hold a number."""
    patterns = {
        "message, by symbols": r"Growth, symbols: (\d+)$",
        "message, by hubs": r"Growth, hubs: (\d+)$",
        "message to two threads, by bytes": r"Growth, bytes of a frame: (\d+), library to two threads$",
        "send, by standing requests": r"Requests, (\d+): send, processor time$",
        "answer, by standing requests": r"Requests, (\d+): processor time until answered$",
    }
    curves = {}
    for label, pattern in patterns.items():
        found = ((re.match(pattern, name), row) for name, row in rows.items())
        points = sorted((int(match[1]), row["value"]) for match, row in found if match)
        if len(points) > 1 and points[0][1] > 0:
            curves[label] = [(number, value / points[0][1]) for number, value in points]
    return curves


def plot_growth(rows, path):
    curves = curves_of(rows)
    if not curves:
        return
    top = max(2.0, max(ratio for points in curves.values() for _, ratio in points) * 1.1)

    def y(ratio):
        return HEIGHT - BOTTOM - ratio / top * (HEIGHT - BOTTOM - TOP)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" font-family="sans-serif" '
             'font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for step in range(int(top * 2) + 1):
        level = y(step / 2)
        parts.append(f'<line x1="{LEFT}" x2="{WIDTH - 10}" y1="{level:.0f}" y2="{level:.0f}" stroke="#ddd"/>'
                     f'<text x="{LEFT - 8}" y="{level + 4:.0f}" text-anchor="end">{step / 2:g}</text>')
    for index, (label, points) in enumerate(curves.items()):
        colour, wide = COLOURS[index % len(COLOURS)], (WIDTH - LEFT - 40) / (len(points) - 1)
        at = [(LEFT + 10 + i * wide, y(ratio), number) for i, (number, ratio) in enumerate(points)]
        line = " ".join(f"{x:.0f},{level:.0f}" for x, level, _ in at)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.0f}" cy="{level:.0f}" r="3" fill="{colour}"><title>{label}: {number}</title></circle>'
                  for x, level, number in at]
        column, row = divmod(index, 2)
        parts.append(f'<text x="{LEFT + column * 220}" y="{HEIGHT - 35 + row * 18}" fill="{colour}">{label}, '
                     f'{points[0][0]:,} to {points[-1][0]:,}</text>')
    parts.append("</svg>")
    path.write_text("\n".join(parts) + "\n")
