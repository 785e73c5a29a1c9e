"""Writes live values to a CSV file: python3 log.py FILE [SECONDS [LINK [PID...]]]."""

import csv
import sys
import time

import velmara


def main(file, seconds="60", link="demo:", *pids):
    with velmara.connect(link, progress=print) as car, open(file, "x", newline="") as stream:
        writer = csv.writer(stream)
        writer.writerow(["time", "pid", "name", "value", "unit"])
        count = 0
        for reading in car.watch(*(pids or ("0C", "0D", "05")), fast=True, seconds=float(seconds)):
            clock = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(reading.time))
            writer.writerow([clock, reading.pid, reading.name, reading.value, reading.unit])
            count += 1
    print(f"{count} readings are in {file}")


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except (velmara.Error, OSError) as error:
        sys.exit(str(error))
