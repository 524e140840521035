# SPDX-License-Identifier: BSD-3-Clause
"""The tables of ratios and goals, for a terminal and as Markdown."""

import platform

import runs as runs_module


def _number(value):
    if value is None:
        return "-"
    return f"{value:,.0f}" if abs(value) >= 10000 else f"{value:.4g}"


def _median(row):
    return f'{_number(row["median"])} ({_number(row["lower"])} to {_number(row["upper"])})'


def _ratio(value):
    return "-" if value is None else f"{value:.3f}"


def _sense(comparison):
    return "less" if comparison.less_is_better else "more"


def ratio_rows(all_runs):
    """The lines of the table of ratios; headings first."""
    lines = [("load", "engine", "what", "next to", "median (quartiles)", "the other's", "unit",
              "better is", "ratio")]
    for run in all_runs:
        found = runs_module.comparisons(run)
        for item in found:
            lines.append((run["load"], runs_module.engine_text(run), item.label, item.series,
                          _median(item.subject), _median(item.reference), item.subject["unit"],
                          _sense(item), _ratio(item.ratio)))
        compared = {id(row) for item in found for row in (item.subject, item.reference)}
        for row in run["rows"]:
            if id(row) not in compared:  # Nothing is measured for nothing.
                lines.append((run["load"], runs_module.engine_text(run),
                              f'{runs_module.thing_text(row)}, {row["subject"]}', "-", _median(row),
                              "-", row["unit"], row["better"], "-"))
    return lines


def goal_rows(all_runs):
    """The lines of the table of goals; headings first."""
    lines = [("load", "engine", "goal", "next to", "ratio", "wanted", "")]
    for run in all_runs:
        for item in runs_module.comparisons(run):
            if item.goal:
                lines.append((run["load"], runs_module.engine_text(run), item.label, item.series,
                              _ratio(item.ratio), f'{item.goal["sense"]} {item.goal["limit"]:g}',
                              "met" if item.goal["met"] else "missed"))
    return lines


def print_table(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    for line in lines:
        print("  ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip())


def _unique(values):
    return ", ".join(dict.fromkeys(values))


def _markdown_table(lines):
    text = [" | ".join(lines[0]), " | ".join("---" for _ in lines[0])]
    text += [" | ".join(cell.replace("|", "\\|") for cell in line) for line in lines[1:]]
    return "".join(f"| {line} |\n" for line in text)


def _system():
    kernel = f'{platform.system()} {platform.release().split("-")[0]}'
    try:
        return f'{platform.freedesktop_os_release()["PRETTY_NAME"]}, {kernel}'
    except OSError:
        return kernel


def facts(all_runs):
    """What a reader has to know of a measurement, as pairs."""
    return [
        ("machine", _unique(run["cpu"] for run in all_runs)),
        ("system", _system()),
        ("engines of Ferrule", _unique(run["engine"] for run in all_runs)),
        ("Qt", _unique(run["qt"] for run in all_runs)),
        ("engine of QSslSocket", _unique(run["qtEngine"] for run in all_runs)),
        ("rounds", _unique(str(run["rounds"]) for run in all_runs)),
        ("share of the work", _unique(f'{100 * run["share"]:g} %' for run in all_runs)),
        ("begun and ended", f'{min(run["date"] for run in all_runs)}, '
                            f'{max(run["date"] for run in all_runs)}'),
    ]


def write_markdown(all_runs, command, path):
    goals = goal_rows(all_runs)
    met = sum(line[-1] == "met" for line in goals[1:])
    with open(path, "w", encoding="utf-8") as file:
        file.write("# What the benchmarks measured\n\n"
                   "Written by the command below; [benchmarks.md](benchmarks.md) tells what each\n"
                   "line means and how it was measured, [benchmarks.json](benchmarks.json) has every\n"
                   "sample.\n\n")
        file.write(_markdown_table([("", "")] + facts(all_runs) + [("command", f"`{command}`")]))
        file.write("\n![The ratios](benchmarks.svg)\n")
        file.write(f"\n## Goals: {met} of {len(goals) - 1} met\n\n")
        file.write(_markdown_table(goals))
        lines = ratio_rows(all_runs)
        for load in dict.fromkeys(run["load"] for run in all_runs):
            file.write(f"\n## {load}\n\n")
            file.write(_markdown_table([lines[0][1:]]
                                       + [line[1:] for line in lines[1:] if line[0] == load]))
