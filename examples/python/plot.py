"""Draws live values while they come: python3 plot.py [LINK [PID...]]. Needs matplotlib. Ctrl-C ends."""

import collections
import sys

import velmara

KEPT = 300  # points of each line


def follow(watch, draw):
    """Hands all lines to `draw` about four times a second: a dictionary of points (time, value) by name."""
    lines = collections.defaultdict(lambda: collections.deque(maxlen=KEPT))
    drawn = start = None
    for reading in watch:
        start = start or reading.time
        if isinstance(reading.value, float):
            lines[f"{reading.name} [{reading.unit}]"].append((reading.time - start, reading.value))
        if drawn is None or reading.time - drawn > 0.25:
            drawn = reading.time
            draw(lines)


def main(link="demo:", *pids):
    import matplotlib.pyplot as plot

    plot.ion()
    figure, axes = plot.subplots()

    def draw(lines):
        axes.clear()
        for name, points in lines.items():
            axes.plot(*zip(*points), label=name)
        axes.set_xlabel("seconds")
        axes.legend(loc="upper left")
        figure.canvas.flush_events()

    with velmara.connect(link, progress=print) as car:
        follow(car.watch(*(pids or ("0D", "05", "11")), fast=True), draw)


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except velmara.Error as error:
        sys.exit(str(error))
    except KeyboardInterrupt:
        pass
