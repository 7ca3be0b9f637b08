"""Cells and rounds: a cell is one process that measures one candidate."""

import shutil
import statistics
import subprocess
import sys


class Cell:
    """`run` performs the cell once and answers its numbers by name."""

    def __init__(self, name, run):
        self.name, self.run = name, run


class Results:
    """The numbers of all rounds, by cell and name."""

    def __init__(self):
        self.numbers = {}

    def add(self, cell, numbers):
        for name, value in numbers.items():
            self.numbers.setdefault(cell, {}).setdefault(name, []).append(value)

    def has(self, cell):
        return cell in self.numbers

    def median(self, cell, name):
        return statistics.median(self.numbers[cell][name])

    def all(self, cell, name):
        return self.numbers[cell][name]


def perform(title, cells, rounds, results):
    """All cells once, then all once more, so that a change of the machine meets all alike."""
    if not cells:
        return
    for number in range(rounds):
        for cell in cells:
            if sys.stdout.isatty():
                print(f"\r    {title}: round {number + 1} of {rounds}, {cell.name:<40}", end="", flush=True)
            results.add(cell.name, cell.run())
    if sys.stdout.isatty():
        print("\r" + " " * 100 + "\r", end="")
    print(f"    {title}: {len(cells)} cells, {rounds} rounds", flush=True)


def numbers_of(output):
    """Lines "name value", as measure.h writes them."""
    return {name: float(value) for name, value in (line.split() for line in output.split("\n") if line.strip())}


def words(options):
    return [f"{name}={value}" for name, value in options.items()]


class Native:
    """Runs the native programs."""

    def __init__(self, programs, work):
        self.programs, self.work = programs, work

    def run(self, program, options, before=()):
        command = [*before, str(self.programs / program), *words(options)]
        result = subprocess.run(command, capture_output=True, text=True, timeout=600)
        if result.returncode != 0:
            raise RuntimeError(f"{' '.join(command)} failed:\n{result.stdout}{result.stderr}")
        return numbers_of(result.stdout)

    def cell(self, name, program, **options):
        return Cell(name, lambda: self.run(program, options))

    def log_cell(self, name, **options):
        def run(before=()):
            directory = self.work / "log"
            shutil.rmtree(directory, ignore_errors=True)
            directory.mkdir(parents=True)
            try:
                return self.run("log_bench", options | {"directory": directory}, before)
            finally:
                shutil.rmtree(directory)
        return Cell(name, run)


class Windows:
    """Runs the Windows program service_bench on a stage.Machine."""

    def __init__(self, machine, program):
        self.machine, self.program = machine, program

    def cell(self, name, **options):
        def run():
            return numbers_of(self.machine.wine(self.program, *words(options)).stdout)
        return Cell(name, run)
