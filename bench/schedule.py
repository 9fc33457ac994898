"""How often to measure what: pure arithmetic, from a short measurement of the machine."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Calibration:
    """How fast the machine is: seconds."""

    set_up: float        # a fresh machine, until it measures; about the same for another
    start: float         # a run that does nothing
    flat: tuple          # /CONFIGURE by the program and by the bare one, without entries ...
    tree: tuple          # ... and for each entry
    make: float          # an entry of a data directory, made and removed
    log: float           # a log for the log reader, the same

    def configure(self, shape, entries):
        """The seconds of a pair of runs."""
        fixed, each = getattr(self, shape)
        return fixed + each * entries


@dataclasses.dataclass(frozen=True)
class Choice:
    """A possible number of entries of a step, and the seconds that it then takes."""

    entries: int
    turn: float          # each turn: one run of each subject
    fixed: float = 0.0   # whatever the number of turns


@dataclasses.dataclass(frozen=True)
class Step:
    """Something that is measured in turns. Left out if not even its last choice fits."""

    name: str
    choices: tuple       # by preference, each cheaper than the one before
    least: int = 1       # turns
    most: int = 1


@dataclasses.dataclass(frozen=True)
class Planned:
    """A step as planned: no entries and no turns if it does not fit."""

    step: Step
    choice: Choice | None
    turns: int

    @property
    def seconds(self):
        """What all of it should take."""
        return self.choice.fixed + self.turns * self.choice.turn if self.choice else 0.0

    @property
    def limit(self):
        """After so many seconds no turn may start: the next step needs the time."""
        return 1.1 * self.seconds

    @property
    def run_limit(self):
        """A single run that takes this many seconds hangs."""
        return 20 + 3 * self.choice.turn


def plan(steps, seconds):
    """Each step with its choice and turns, so that all together take so many seconds at the most.

    First the most expensive steps get fewer entries, until each step has its least turns. The time that is
    left then goes to more turns, for the step that has the smallest share of its own.
    """
    chosen = [0] * len(steps)

    def choice(index):
        choices = steps[index].choices
        return choices[chosen[index]] if chosen[index] < len(choices) else None

    def cost(index, turns):
        return choice(index).fixed + turns * choice(index).turn if choice(index) else 0.0

    def least():
        return [cost(index, step.least) for index, step in enumerate(steps)]

    while sum(least()) > seconds:
        costs = least()
        if not any(costs):
            break
        chosen[costs.index(max(costs))] += 1

    turns = [step.least if choice(index) else 0 for index, step in enumerate(steps)]
    left = seconds - sum(least())
    while True:
        able = [index for index, step in enumerate(steps)
                if choice(index) and turns[index] < step.most and choice(index).turn <= left]
        if not able:
            break
        index = min(able, key=lambda each: ((turns[each] - steps[each].least) /
                                            (steps[each].most - steps[each].least),
                                            choice(each).turn))
        turns[index] += 1
        left -= choice(index).turn
    return [Planned(step, choice(index), turns[index]) for index, step in enumerate(steps)]
