"""Cells and rounds: a cell is one process that measures one candidate."""

import contextlib
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CELL_SECONDS = 120
SHOWN_LINES = 12  # of what a cell said that failed


class Cell:
    """`run` performs the cell once, within `seconds`, and answers its numbers by name."""

    def __init__(self, name, run, seconds=CELL_SECONDS):
        self.name, self.run, self.seconds = name, run, seconds


@contextlib.contextmanager
def time_limit(seconds):
    """Whatever the body waits for, it ends with TimeoutError."""
    def end(_signal, _frame):
        raise TimeoutError(f"not done within {seconds} s")
    before = signal.signal(signal.SIGALRM, end)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


class Results:
    """The numbers of all rounds, by cell and name, and what failed cells said. A cell that
    failed in one round has no numbers at all: those of the others would hide it."""

    def __init__(self):
        self.numbers = {}
        self.failures = {}

    def add(self, cell, numbers):
        for name, value in numbers.items():
            self.numbers.setdefault(cell, {}).setdefault(name, []).append(value)

    def fail(self, cell, error):
        self.numbers.pop(cell, None)
        text = f"{error}" or type(error).__name__
        for checkout in (f"{ROOT}/", f"Z:{ROOT}/".replace("/", "\\")):  # where it lies is no part of a report
            text = text.replace(checkout, "")
        self.failures[cell] = "\n".join(text.rstrip().splitlines()[-SHOWN_LINES:])

    def has(self, cell):
        return cell in self.numbers

    def medians(self):
        return {cell: {name: statistics.median(values) for name, values in numbers.items()}
                for cell, numbers in self.numbers.items()}


def perform(title, cells, rounds, results, recover):
    """All cells once, then all once more, so that a change of the machine meets all alike.
    A cell that fails is not run again; `recover` makes the stage fit for the others."""
    if not cells:
        return
    for number in range(rounds):
        for cell in cells:
            if cell.name in results.failures:
                continue
            if sys.stdout.isatty():
                print(f"\r    {title}: round {number + 1} of {rounds}, {cell.name:<40}", end="", flush=True)
            try:
                with time_limit(cell.seconds):
                    results.add(cell.name, cell.run())
            except Exception as error:  # whatever it is, it is this cell's
                results.fail(cell.name, error)
                with time_limit(CELL_SECONDS):
                    recover()
    if sys.stdout.isatty():
        print("\r" + " " * 100 + "\r", end="")
    print(f"    {title}: {len(cells)} cells, {rounds} rounds", flush=True)


def output_of(command, **options):
    """What the program wrote; none of its processes outlives a time limit that ends the wait."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
                          start_new_session=True, **options) as process:
        try:
            output, complaints = process.communicate()
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    if process.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} ended with {process.returncode}:\n{output}{complaints}")
    return output


def numbers_of(output):
    """Lines "name value", as measure.h writes them."""
    try:
        return {name: float(value) for name, value in (line.split() for line in output.splitlines() if line.strip())}
    except ValueError:
        raise RuntimeError(f"no numbers: {output}") from None


def words(options):
    return [f"{name}={value}" for name, value in options.items()]


class Native:
    """Runs the native programs."""

    def __init__(self, programs, work):
        self.programs, self.work = programs, work

    def run(self, program, options, before=()):
        return numbers_of(output_of([*before, str(self.programs / program), *words(options)]))

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
        command = [ROOT / "tools/wine", self.program, *words(options)]
        return Cell(name, lambda: numbers_of(output_of(command, env=self.machine.environment)))
