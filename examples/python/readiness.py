"""Says of a row of cars whether they are ready for inspection: python3 readiness.py [LINK...].

One car after the other, as a test lane has them. Ends with 1 if one of them is not ready.
"""

import sys

import velmara


def problems(car):
    """Why a car is not ready; an empty list if it is."""
    found = []
    for codes in car.codes():
        if codes.lamp:
            found.append(f"{codes.control_unit}: the lamp is on")
        found += [f"{codes.control_unit}: {code}" for code in codes.confirmed or ()]
    for monitors in car.monitors():
        found += [f"{monitors.control_unit}: {name} incomplete" for name in monitors.incomplete or ()]
    return found


def main(*links):
    ready = True
    for link in links or ("demo:petrol-can11", "demo:diesel-truck"):
        try:
            with velmara.connect(link) as car:
                found = problems(car)
                vins = [info.vin for info in car.info() if info.vin]
        except velmara.Error as error:
            found, vins = [str(error)], []
        ready = ready and not found
        print(f"{link} {vins[0] if vins else ''}: {'NOT READY' if found else 'ready'}")
        for problem in found:
            print(f"  {problem}")
    return ready


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
