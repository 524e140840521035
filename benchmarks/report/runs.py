# SPDX-License-Identifier: BSD-3-Clause
"""What the benchmarks' programs wrote, and the ratios in it."""

import json


class Unusable(Exception):
    """A file that is missing or is no result of a benchmark."""


def read(path):
    """Returns the run that the file tells of."""
    try:
        with open(path, encoding="utf-8") as file:
            run = json.load(file)
    except OSError as error:
        raise Unusable(f"{path}: {error.strerror}: the program left no result") from error
    except ValueError as error:
        raise Unusable(f"{path}: {error}") from error
    needed = {"load", "engine", "qtEngine", "qt", "cpu", "rounds", "share", "date", "rows", "goals"}
    if not isinstance(run, dict) or not needed <= run.keys() or not run["rows"]:
        raise Unusable(f"{path}: this is not a benchmark's result")
    return run


def _shortened(value):
    """Rounds all numbers to what is worth keeping, so that the merged file can be read."""
    if isinstance(value, float):
        return float(f"{value:.6g}")
    if isinstance(value, list):
        return [_shortened(item) for item in value]
    if isinstance(value, dict):
        return {key: _shortened(item) for key, item in value.items()}
    return value


def write(runs, path):
    """Writes all runs as one JSON document with a line for each row and goal."""
    texts = []
    for run in map(_shortened, runs):
        parts = []
        for key, value in run.items():
            if isinstance(value, list):
                lines = ",\n   ".join(json.dumps(item, ensure_ascii=False) for item in value)
                parts.append(f'  "{key}": [\n   {lines}]' if value else f'  "{key}": []')
            else:
                parts.append(f'  "{key}": {json.dumps(value, ensure_ascii=False)}')
        texts.append(" {\n" + ",\n".join(parts) + "}")
    with open(path, "w", encoding="utf-8") as file:
        file.write('{"runs": [\n' + ",\n".join(texts) + "]}\n")


def thing(key):
    """What was done, whoever did it."""
    return key["what"], key["arrangement"], key["protocol"]


def is_same_thing(own, other):
    """Whether two subjects do the same; one without TLS, or without two ends, leaves that open."""
    return own["what"] == other["what"] and all(
        other[part] in ("", own[part]) for part in ("arrangement", "protocol"))


def thing_text(key):
    return ", ".join(part for part in thing(key) if part)


def engine_text(run):
    """The engine's name without the date of its release."""
    return " ".join(run["engine"].split()[:2])


class Comparison:
    """A ratio of two medians of one run, and the goal that it is held to if there is one."""

    def __init__(self, run, subject, reference, goal=None):
        self.run, self.subject, self.reference, self.goal = run, subject, reference, goal
        self.less_is_better = subject["better"] == "less"
        self.ratio = self._divide(subject["median"], reference["median"])

    @staticmethod
    def _divide(a, b):
        return a / b if b > 0 else None

    @property
    def label(self):
        """What the ratio is of."""
        if self.subject["subject"] == "Ferrule":
            return thing_text(self.subject)
        return f'{thing_text(self.subject)}, {self.subject["subject"]}'

    @property
    def series(self):
        """What it is compared with; that the same is done goes without saying."""
        if is_same_thing(self.subject, self.reference):
            return self.reference["subject"]
        if self.subject["subject"] == self.reference["subject"]:
            return f'itself, {self.reference["what"]}'
        return f'{self.reference["subject"]}, {thing_text(self.reference)}'

    def advantage(self):
        """How many times as good, with the least and the most that the quartiles allow."""
        own, other = self.subject, self.reference
        bounds = ((own["median"], other["median"]), (own["lower"], other["upper"]),
                  (own["upper"], other["lower"]))
        if min(min(pair) for pair in bounds) <= 0:
            return None
        values = [b / a if self.less_is_better else a / b for a, b in bounds]
        return values[0], min(values), max(values)

    def wanted_advantage(self):
        """The goal's limit on the same scale; None without a goal."""
        if not self.goal:
            return None
        return 1 / self.goal["limit"] if self.less_is_better else self.goal["limit"]


def comparisons(run):
    """Lists Ferrule next to every other subject of the same thing, then what the run itself adds."""
    rows = {(*thing(row), row["subject"]): row for row in run["rows"]}
    goals = {}
    pairs = []
    for own in run["rows"]:
        if own["subject"] == "Ferrule":
            pairs += [(own, row) for row in run["rows"]
                      if row["subject"] != "Ferrule" and is_same_thing(own, row)]
    for entry in run.get("comparisons", []) + run["goals"]:
        reference = entry["reference"]
        pair = (rows[(*thing(entry), entry["subject"])],
                rows[(*thing(reference), reference["subject"])])
        if not any(pair[0] is a and pair[1] is b for a, b in pairs):
            pairs.append(pair)
        if "limit" in entry:
            goals[(id(pair[0]), id(pair[1]))] = entry
    places = {id(row): place for place, row in enumerate(run["rows"])}
    pairs.sort(key=lambda pair: (places[id(pair[0])], places[id(pair[1])]))
    return [Comparison(run, a, b, goals.get((id(a), id(b)))) for a, b in pairs]
