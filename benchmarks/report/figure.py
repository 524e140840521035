# SPDX-License-Identifier: BSD-3-Clause
"""The figure of all ratios: a panel for each load and engine, on one logarithmic scale."""

import matplotlib

matplotlib.use("svg")
# The same numbers give the same file, and its text can be searched.
matplotlib.rcParams.update({
    "svg.hashsalt": "ferrule", "svg.fonttype": "none", "font.size": 8, "font.family": "sans-serif",
    "figure.facecolor": "white", "axes.facecolor": "white", "savefig.facecolor": "white",
})

# pylint: disable=wrong-import-position
from matplotlib.figure import Figure
from matplotlib.lines import Line2D
from matplotlib.ticker import FuncFormatter, LogLocator, NullLocator

import runs as runs_module

ROW_INCHES = 0.19
STYLES = [("#1b6ca8", "o"), ("#c2571a", "s"), ("#3b8b3b", "^"), ("#8e3b8b", "D"), ("#8a7a12", "v"),
          ("#b02a37", "P"), ("#3a7f84", "X"), ("#5b5b5b", "<"), ("#7d4f2b", ">"), ("#444499", "h"),
          ("#1f9e89", "p"), ("#a0522d", "*"), ("#555555", "8")]
GOAL = "#d00000"


def _panels(all_runs):
    """Returns the loads with their labels in order, and the comparisons of each load and engine."""
    labels, cells = {}, {}
    for run in all_runs:
        for item in runs_module.comparisons(run):
            if item.advantage() is None:
                continue
            of_load = labels.setdefault(run["load"], [])
            if item.label not in of_load:
                of_load.append(item.label)
            cells.setdefault((run["load"], runs_module.engine_text(run)), []).append(item)
    return labels, cells


def _draw(axes, items, labels, styles):
    for item in items:
        place = labels.index(item.label)
        others = [other.series for other in items if other.label == item.label]
        place += 0.5 * ((others.index(item.series) + 0.5) / len(others) - 0.5)
        middle, least, most = item.advantage()
        color, marker = styles[item.series]
        axes.plot([least, most], [place, place], color=color, linewidth=0.8, alpha=0.7)
        axes.plot([middle], [place], color=color, marker=marker, markersize=4, linestyle="none")
        if item.goal:
            wanted = item.wanted_advantage()
            axes.plot([wanted], [place], color=GOAL, marker="|", markersize=9, markeredgewidth=1.6)
            axes.plot([wanted, middle], [place, place], color=GOAL, linewidth=0.5, linestyle=":")


def _dress(axes, labels, limits):
    axes.set_xscale("log")
    axes.set_xlim(*limits)
    axes.set_ylim(len(labels) - 0.4, -0.6)
    axes.set_yticks(range(len(labels)))
    axes.axvline(1, color="#333333", linewidth=0.8)
    axes.grid(axis="x", color="#dddddd", linewidth=0.5)
    axes.set_axisbelow(True)
    axes.tick_params(axis="y", length=0)
    axes.xaxis.set_major_locator(LogLocator(base=10, subs=(1, 2, 5), numticks=30))
    axes.xaxis.set_minor_locator(NullLocator())
    axes.xaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g}"))
    axes.tick_params(axis="x", labelrotation=90, labelsize=6)


def _limits(cells):
    """What a scale has to span that shows nearly all, whatever a store gains on a plain scan."""
    values = [value for items in cells.values() for item in items
              for value in (item.advantage()[0], item.wanted_advantage() or 1)]
    return min(values + [1]) / 1.3, max(values + [1]) * 1.3


def draw(all_runs, path):
    labels, cells = _panels(all_runs)
    engines = list(dict.fromkeys(runs_module.engine_text(run) for run in all_runs))
    names = dict.fromkeys(item.series for items in cells.values() for item in items)
    styles = {name: STYLES[i % len(STYLES)] for i, name in enumerate(names)}
    heights = [len(of_load) + 2.6 for of_load in labels.values()]
    legend_rows = (len(names) + 3) // 3
    total = ROW_INCHES * (sum(heights) + legend_rows + 4)
    figure = Figure(figsize=(5 + 3.6 * len(engines), total))
    top = 1 - ROW_INCHES * (legend_rows + 4) / total
    grid = figure.add_gridspec(len(labels), len(engines), height_ratios=heights, left=0.31,
                               right=0.985, top=top, bottom=0.3 / total, wspace=0.04,
                               hspace=2.6 * len(heights) / (sum(heights) - 2.6 * len(heights) + 1))
    for row, (load, of_load) in enumerate(labels.items()):
        limits = _limits({key: items for key, items in cells.items() if key[0] == load})
        for column, engine in enumerate(engines):
            axes = figure.add_subplot(grid[row, column])
            _draw(axes, cells.get((load, engine), []), of_load, styles)
            _dress(axes, of_load, limits)
            axes.set_yticklabels(of_load if column == 0 else [])
            axes.set_title(f"{load}, {engine}", loc="left", fontsize=8, fontweight="bold", pad=3)
    handles = [Line2D([], [], color=color, marker=marker, markersize=4, linewidth=0.8, label=name)
               for name, (color, marker) in styles.items()]
    handles.append(Line2D([], [], color=GOAL, marker="|", markersize=9, markeredgewidth=1.6,
                          linestyle="none", label="the goal: to be right of this"))
    figure.suptitle("How many times as good as what it is compared with; right of 1 is better",
                    x=0.02, y=1 - 0.5 * ROW_INCHES / total, ha="left", va="top", fontsize=11)
    figure.text(0.02, 1 - 1.9 * ROW_INCHES / total, "Ratios of medians, of costs inverted; the lines "
                "are what the quartiles allow. The scale is logarithmic, one for each load.",
                ha="left", va="top")
    figure.legend(handles=handles, loc="upper left", ncol=3, frameon=False,
                  bbox_to_anchor=(0.015, 1 - 2.9 * ROW_INCHES / total))
    figure.savefig(path, format="svg", metadata={"Date": None})
