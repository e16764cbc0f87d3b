# SPDX-License-Identifier: MIT
"""Line charts as SVG. They have their own background, so they are readable on light and dark pages."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 76, 24, 56, 56
PAPER, INK, FAINT = "#ffffff", "#203152", "#d8dee9"
COLOURS = ["#2463c7", "#c2571a", "#2e7d4f"]


def steps(largest):
    """About five round numbers, from 0 to at least `largest`."""
    if largest <= 0:
        return [0, 1]
    rough = largest / 5
    power = 10 ** math.floor(math.log10(rough))
    step = next(factor * power for factor in (1, 2, 2.5, 5, 10) if factor * power >= rough)
    return [step * index for index in range(math.ceil(largest / step - 1e-9) + 1)]


def line_chart(title, x_name, y_name, lines):
    """`lines`: a list of (name, [(x, y), ...]). Both axes begin at 0. Returns the SVG's text."""
    points = [point for _, line in lines for point in line]
    x_steps = sorted({x for x, _ in points})
    y_steps = steps(max(y for _, y in points))
    right, bottom = WIDTH - RIGHT, HEIGHT - BOTTOM

    def place(x, y):
        return (LEFT + (right - LEFT) * x / x_steps[-1], bottom - (bottom - TOP) * y / y_steps[-1])

    def text(x, y, content, anchor="middle", extra=""):
        return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {extra}>{escape(content)}</text>'

    svg = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" '
        f'height="{HEIGHT}" font-family="sans-serif" font-size="12" fill="{INK}">',
        f"<title>{escape(title)}</title>",
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="{PAPER}"/>',
        text(LEFT, 24, title, "start", 'font-size="15" font-weight="bold"'),
        text((LEFT + right) / 2, HEIGHT - 12, x_name),
        text(18, (TOP + bottom) / 2, y_name, "middle", f'transform="rotate(-90 18 {(TOP + bottom) / 2})"'),
    ]
    for value in y_steps:
        x, y = place(0, value)
        svg.append(f'<path d="M{x:.1f} {y:.1f}H{right}" stroke="{FAINT}"/>')
        svg.append(text(x - 8, y + 4, f"{value:,g}", "end"))
    for value in x_steps:
        x, y = place(value, 0)
        svg.append(f'<path d="M{x:.1f} {y:.1f}v5" stroke="{INK}"/>')
        svg.append(text(x, y + 20, f"{value:,g}"))
    for index, (name, line) in enumerate(lines):
        colour = COLOURS[index]
        places = [place(x, y) for x, y in sorted(line)]
        path = "L".join(f"{x:.1f} {y:.1f}" for x, y in places)
        svg.append(f'<path d="M{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        svg += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in places]
        x = LEFT + 150 * index
        svg.append(f'<path d="M{x} 42h22" stroke="{colour}" stroke-width="3"/>')
        svg.append(text(x + 28, 46, name, "start"))
    return "\n".join([*svg, "</svg>", ""])
