"""What a group of benchmarks is made of."""

import rounds


class Target:
    """A ratio (or, without `against`, a number) that is to be reached.

    `ours` and `against` are (cell, name of a number); the best of several peers counts.
    `price` is (factor, count, cell, name of a number): what ours may take is so many times
    the peer's, and so many hand-offs from thread to thread besides, as they are here.
    """

    def __init__(self, what, ours, against=(), *, at_most=None, at_least=None, peer="", unit="", price=None):
        self.what, self.ours, self.against, self.peer, self.unit = what, ours, against, peer, unit
        self.at_most, self.at_least, self.price = at_most, at_least, price

    @property
    def limit(self):
        text = f"at most {self.at_most}" if self.at_most is not None else f"at least {self.at_least}"
        return f"{text} {self.unit}".rstrip()

    def places(self):
        return [self.ours, *self.against, *([self.price[2:]] if self.price else [])]

    def value(self, figures):
        own = figures.value(*self.ours)
        return own / self.peer_value(figures) if self.against else own

    def peer_value(self, figures):
        values = [figures.value(*place) for place in self.against]
        best = max(values) if self.at_least is not None else min(values)
        if self.price:
            factor, count, *hand_off = self.price
            best = factor * best + count * figures.value(*hand_off)
        return best

    def verdict(self, figures):
        """Figures that are not there never count as reached."""
        if any(figures.has_failed(cell) for cell, _ in self.places()):
            return "failed"
        if not all(figures.knows(*place) for place in self.places()):
            return "not measured"
        value = self.value(figures)
        is_met = value <= self.at_most if self.at_most is not None else value >= self.at_least
        return "met" if is_met else "missed"


class Table:
    """Candidates side by side: a row for each, a column (heading, cell with {}, number) for each cell."""

    def __init__(self, title, candidates, columns):
        self.title, self.candidates, self.columns = title, candidates, columns


class Growth:
    """A plot: `candidates` by name in the legend; cells have {who} and {x} in their name."""

    def __init__(self, file, title, x_label, y_label, candidates, cell, number, values):
        self.file, self.title, self.x_label, self.y_label = file, title, x_label, y_label
        self.candidates, self.cell, self.number, self.values = candidates, cell, number, values

    def cells(self):
        """(candidate, x, name of the cell)"""
        return [(who, x, self.cell.format(who=who, x=x)) for x in self.values for who in self.candidates]


class Bench:
    """Base of a group's cells; `stage` ends what they need."""

    def __init__(self, options, stage):
        self.options, self.stage, self.quick = options, stage, options.quick
        self.native = rounds.Native(options.native, options.work)

    def cells(self):
        return []

    def growth_cells(self):
        return []

    def once_cells(self):
        """What is no matter of chance, or takes too long to be repeated."""
        return []

    def recover(self):
        """Called after a cell has failed."""
