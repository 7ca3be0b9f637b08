"""Taking secrets out of lines, beside other ways to look for the same markers."""

import group
from group import Table, Target

TITLE = "Scrubbing"
CANDIDATES = ("zarn", "find", "hyperscan", "memchr")
CORPORA = ("typical", "stress", "pairs")
PEERS = (("find", "19 x find", {"typical": 15, "stress": 15}), ("hyperscan", "Hyperscan", {"typical": 2, "stress": 2}),
         ("memchr", "memchr per line", {"typical": 0.4, "stress": 0.25}))
TARGETS = tuple(
    Target(f"scrubbing, SSE2, {corpus} corpus", (f"zarn {corpus}", "bytes_per_s"), [(f"{who} {corpus}", "bytes_per_s")],
           at_least=limits[corpus], peer=peer)
    for who, peer, limits in PEERS for corpus in limits)
TABLES = (
    Table("Looking for 19 markers in lines of 175 bytes, 1 % of them with one", CANDIDATES, tuple(
        (f"{corpus} corpus", f"{{}} {corpus}", "bytes_per_s") for corpus in CORPORA)),
)
GROWTH = ()


class Bench(group.Bench):
    def cells(self):
        return [self.native.cell(f"{who} {corpus}", "scrub_bench", candidate=who, corpus=corpus,
                                 milliseconds=50 if self.quick else 500)
                for corpus in CORPORA for who in CANDIDATES]
