"""Line plots with logarithmic axes as small SVG files."""

import math
from html import escape

WIDTH, HEIGHT = 640, 400
LEFT, RIGHT, TOP, BOTTOM = 78, 130, 40, 52
COLOURS = ("#0b6e99", "#d9730d", "#448361", "#ad1a72", "#6940a5", "#64473a")


class Axis:
    def __init__(self, values, start, end):
        self.low, self.high = min(values), max(values)
        if self.low == self.high:
            self.low, self.high = self.low / 2, self.high * 2
        self.start, self.end = start, end

    def place(self, value):
        share = math.log(value / self.low) / math.log(self.high / self.low)
        return round(self.start + share * (self.end - self.start), 1)

    def decades(self):
        first, last = math.floor(math.log10(self.low)), math.ceil(math.log10(self.high))
        return [10.0**n for n in range(first, last + 1)]

    def widen(self):
        """To whole decades, so that there is a tick at each end."""
        decades = self.decades()
        self.low, self.high = decades[0], decades[-1]


def short(value):
    for factor, suffix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= factor:
            return f"{value / factor:g}{suffix}"
    return f"{value:g}"


def text(x, y, content, anchor="middle", extra=""):
    return f'<text x="{x}" y="{y}" text-anchor="{anchor}"{extra}>{escape(content)}</text>'


def plot(title, x_label, y_label, series):
    """SVG text. `series` maps a name to points (x, y), all above 0."""
    points = [point for line in series.values() for point in line]
    x_axis = Axis([x for x, _ in points], LEFT, WIDTH - RIGHT)
    y_axis = Axis([y for _, y in points], HEIGHT - BOTTOM, TOP)
    y_axis.widen()
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
        'font-family="sans-serif" font-size="12" fill="#333">',
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#fff"/>',
        text(LEFT, 22, title, "start", ' font-size="14" font-weight="bold"'),
        text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 12, x_label),
        text(18, (TOP + HEIGHT - BOTTOM) / 2, y_label,
             extra=f' transform="rotate(-90 18 {(TOP + HEIGHT - BOTTOM) / 2})"'),
    ]
    for y in y_axis.decades():
        place = y_axis.place(y)
        parts.append(f'<path d="M{LEFT} {place}H{WIDTH - RIGHT}" stroke="#ddd"/>')
        parts.append(text(LEFT - 6, place + 4, short(y), "end"))
    for x in sorted({x for x, _ in points}):
        place = x_axis.place(x)
        parts.append(f'<path d="M{place} {HEIGHT - BOTTOM}v5" stroke="#333"/>')
        parts.append(text(place, HEIGHT - BOTTOM + 18, short(x)))
    parts.append(f'<path d="M{LEFT} {TOP}V{HEIGHT - BOTTOM}H{WIDTH - RIGHT}" fill="none" stroke="#333"/>')
    for number, (name, line) in enumerate(series.items()):
        colour = COLOURS[number % len(COLOURS)]
        places = [(x_axis.place(x), y_axis.place(y)) for x, y in sorted(line)]
        path = "M" + "L".join(f"{x} {y}" for x, y in places)
        parts.append(f'<path d="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x}" cy="{y}" r="3" fill="{colour}"/>' for x, y in places]
        y = TOP + 12 + 20 * number
        parts.append(f'<path d="M{WIDTH - RIGHT + 10} {y - 4}h16" stroke="{colour}" stroke-width="2"/>')
        parts.append(text(WIDTH - RIGHT + 32, y, name, "start"))
    return "\n".join(parts) + "\n</svg>\n"
