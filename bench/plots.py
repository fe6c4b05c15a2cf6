"""Small SVG plots: bars beside each other, lines, and how times are distributed."""

import html
import math

WIDTH, HEIGHT = 760, 300
LEFT, RIGHT, TOP, BOTTOM = 70, 175, 24, 44
COLOURS = ["#2b6cb0", "#c05621", "#2f855a", "#805ad5", "#718096", "#b7791f", "#d53f8c"]
STYLE = "font-family='sans-serif' font-size='12' fill='#333'"


def text(x, y, words, anchor="start"):
    return f"<text x='{x:.1f}' y='{y:.1f}' text-anchor='{anchor}' {STYLE}>{html.escape(words)}</text>"


def line(x1, y1, x2, y2, colour="#ddd"):
    return f"<line x1='{x1:.1f}' y1='{y1:.1f}' x2='{x2:.1f}' y2='{y2:.1f}' stroke='{colour}'/>"


def svg(parts, height=HEIGHT):
    return (f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {WIDTH} {height}' width='{WIDTH}'>"
            f"<rect width='{WIDTH}' height='{height}' fill='white'/>" + "\n".join(parts) + "</svg>\n")


def bars(rows, unit):
    """rows: [(name, [(series, value)])], one bar below the other."""
    bar, gap, left = 11, 10, 230
    most = max(value for _, values in rows for _, value in values)
    parts, y = [], TOP
    series = [name for name, _ in rows[0][1]]
    for i, name in enumerate(series):
        parts += [f"<rect x='{left + i * 170}' y='6' width='10' height='10' fill='{COLOURS[i]}'/>",
                  text(left + 16 + i * 170, 15, name)]
    for name, values in rows:
        parts.append(text(left - 8, y + 12 + bar * len(values) / 2, name, "end"))
        for i, (_, value) in enumerate(values):
            width = (WIDTH - left - 90) * value / most
            parts += [f"<rect x='{left}' y='{y + 6 + i * bar}' width='{width:.1f}' height='{bar - 1}'"
                      f" fill='{COLOURS[series.index(values[i][0])]}'/>",
                      text(left + width + 6, y + 15 + i * bar, f"{value:.0f} {unit}")]
        y += bar * len(values) + gap
    return svg(parts, y + 12)


def axes(most_x, most_y, label_x, label_y, tick_x):
    parts = []
    for i in range(6):
        y = HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * i / 5
        parts += [line(LEFT, y, WIDTH - RIGHT, y), text(LEFT - 6, y + 4, f"{most_y * i / 5:g}", "end")]
    for value, words in tick_x:
        x = LEFT + (WIDTH - LEFT - RIGHT) * value / most_x
        parts += [line(x, HEIGHT - BOTTOM, x, HEIGHT - BOTTOM + 5, "#333"), text(x, HEIGHT - BOTTOM + 18, words, "middle")]
    middle = (LEFT + WIDTH - RIGHT) / 2
    return parts + [text(middle, HEIGHT - 6, label_x, "middle"), text(6, 14, label_y)]


def curves(series, most_x, most_y, label_x, label_y, tick_x):
    """series: {name: [(x, y)]}, y up from 0."""
    parts = axes(most_x, most_y, label_x, label_y, tick_x)
    for i, (name, points) in enumerate(series.items()):
        path = " ".join(f"{LEFT + (WIDTH - LEFT - RIGHT) * x / most_x:.1f},"
                        f"{HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * min(y, most_y) / most_y:.1f}" for x, y in points)
        parts += [f"<polyline points='{path}' fill='none' stroke='{COLOURS[i]}' stroke-width='1.6'/>",
                  text(WIDTH - RIGHT + 26, TOP + 18 * i + 4, name), line(WIDTH - RIGHT + 6, TOP + 18 * i, WIDTH - RIGHT + 22, TOP + 18 * i, COLOURS[i])]
    return svg(parts)


def distribution(samples):
    """samples: {name: [µs]}: which share of the samples is at most so late, on a logarithmic axis."""
    most = max(max(values) for values in samples.values())
    decades = max(1.0, math.ceil(math.log10(max(most, 1))))
    series = {}
    for name, values in samples.items():
        ordered = sorted(max(value, 1.0) for value in values)
        series[name] = [(math.log10(value), 100 * (i + 1) / len(ordered)) for i, value in enumerate(ordered)]
    ticks = [(d, f"{10 ** d:g}") for d in range(int(decades) + 1)]
    return curves(series, decades, 100, "µs late", "% of the wake-ups", ticks)
