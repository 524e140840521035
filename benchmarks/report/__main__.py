# SPDX-License-Identifier: BSD-3-Clause
"""Merges the results of the benchmarks, draws them, and prints the ratios and the goals."""

import argparse
import sys

import figure
import runs
import tables


def arguments():
    parser = argparse.ArgumentParser(prog="benchmarks/report", description=__doc__)
    parser.add_argument("--json", metavar="FILE", help="write all results to that file")
    parser.add_argument("--svg", metavar="FILE", help="draw the ratios into that file")
    parser.add_argument("--markdown", metavar="FILE", help="write the tables to that file, too")
    parser.add_argument("--command", metavar="TEXT", default="./dev bench",
                        help="the command to name as what measured all that")
    parser.add_argument("results", metavar="RESULT", nargs="+", help="what a program wrote")
    return parser.parse_args()


def main():
    options = arguments()
    usable, faults = [], []
    for path in options.results:
        try:
            usable.append(runs.read(path))
        except runs.Unusable as fault:
            faults.append(str(fault))
    if usable:
        if options.json:
            runs.write(usable, options.json)
        if options.svg:
            figure.draw(usable, options.svg)
        if options.markdown:
            tables.write_markdown(usable, options.command, options.markdown)
        for name, value in tables.facts(usable):
            print(f"{name}: {value}")
        print()
        tables.print_table(tables.ratio_rows(usable))
        goals = tables.goal_rows(usable)
        if len(goals) > 1:
            print()
            tables.print_table(goals)
    for fault in faults:
        print(f"benchmarks/report: {fault}", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
