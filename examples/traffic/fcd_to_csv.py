#!/usr/bin/python3
"""Turns the simulator's vehicle traces (XML) into one table: a row per time step, from the moment when all of
the named vehicles are on the road to the moment when the first of them leaves it.

usage: fcd_to_csv.py TRACES.xml TABLE.csv VEHICLE…
"""
import csv
import sys
import xml.etree.ElementTree as ElementTree

COLUMNS = {"x": "position [m]", "speed": "speed [m/s]", "acceleration": "acceleration [m/s^2]"}

traces, table, names = sys.argv[1], sys.argv[2], sys.argv[3:]
with open(table, "w", newline="") as out:
    rows = csv.writer(out, lineterminator="\n")
    rows.writerow(["time [s]"] + [f"{name} {column}" for name in names for column in COLUMNS.values()])
    for _, step in ElementTree.iterparse(traces):
        if step.tag != "timestep":
            continue
        vehicles = {vehicle.get("id"): vehicle for vehicle in step}
        if all(name in vehicles for name in names):
            rows.writerow([step.get("time")] + [vehicles[name].get(key) for name in names for key in COLUMNS])
        step.clear()
