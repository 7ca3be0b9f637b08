"""Suppressed log calls, promises and thread pools."""

import group
from group import Table, Target

TITLE = "Calls, promises and pools"
REPEATS = {"suppressed-call": 200_000_000, "atomic-load": 200_000_000, "promise-zarn": 2_000_000,
           "promise-std": 2_000_000, "promise-zarn-beside-thread": 2_000_000,
           "promise-std-beside-thread": 2_000_000, "tasks-zarn": 2_000_000, "tasks-asio": 2_000_000,
           "hand-off-zarn": 1000, "hand-off-asio": 1000}
TARGETS = (
    Target("suppressed log call", ("suppressed-call", "ns"), [("atomic-load", "ns")], at_most=2, peer="an atomic load"),
    Target("suppressed log call", ("suppressed-call", "ns"), at_most=1, unit="ns"),
    Target("promise: create, resolve, get", ("promise-zarn", "ns"), [("promise-std", "ns")], at_most=0.2,
           peer="std::promise"),
    Target("empty tasks/s, 4 workers", ("tasks-zarn", "tasks_per_s"), [("tasks-asio", "tasks_per_s")], at_least=0.75,
           peer="asio::thread_pool"),
    Target("idle hand-off", ("hand-off-zarn", "p50_us"), [("hand-off-asio", "p50_us")], at_most=1.2,
           peer="asio::thread_pool"),
)
TABLES = (
    Table("Promise: create, resolve, get", ("promise-zarn", "promise-std"), (
        ("in a process of one thread", "{}", "ns"), ("beside a sleeping thread", "{}-beside-thread", "ns"))),
)
GROWTH = ()


class Bench(group.Bench):
    def cells(self):
        return [self.native.cell(who, "micro_bench", candidate=who, repeat=repeat // 100 if self.quick else repeat)
                for who, repeat in REPEATS.items()]
