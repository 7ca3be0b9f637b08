"""What a group of benchmarks is made of."""

import rounds


class Target:
    """A ratio (or, without `against`, a number) that is to be reached.

    `ours` and `against` are (cell, name of a number); the best of several peers counts.
    """

    def __init__(self, what, ours, against=(), *, at_most=None, at_least=None, peer="", unit=""):
        self.what, self.ours, self.against, self.peer, self.unit = what, ours, against, peer, unit
        self.at_most, self.at_least = at_most, at_least

    def value(self, results):
        own = results.median(*self.ours)
        return own / self.peer_value(results) if self.against else own

    def peer_value(self, results):
        values = [results.median(*place) for place in self.against]
        return max(values) if self.at_least is not None else min(values)

    def is_met(self, results):
        value = self.value(results)
        return value <= self.at_most if self.at_most is not None else value >= self.at_least


class Table:
    """Candidates side by side: a row for each, a column (heading, cell with {}, number) for each cell."""

    def __init__(self, title, candidates, columns):
        self.title, self.candidates, self.columns = title, candidates, columns


class Growth:
    """A plot: `candidates` by name in the legend; cells have {who} and {x} in their name."""

    def __init__(self, file, title, x_label, y_label, candidates, cell, number, values, *, scale=1.0):
        self.file, self.title, self.x_label, self.y_label = file, title, x_label, y_label
        self.candidates, self.cell, self.number, self.values, self.scale = candidates, cell, number, values, scale

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

    def measure_once(self, results):
        pass
