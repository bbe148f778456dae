"""Reads what `llvm-cov export` writes, and names the functions of the rooms that nothing has reached."""

import json
import os
import subprocess
import sys

ROOMS = ("platform", "log", "filter", "status", "ipc", "driver", "raster", "backend", "printer", "tools")


def place_in_tree(path, tree):
    """The path from the tree's root on; the compiler's are from the build's folder, or whole."""
    parts = os.path.normpath(os.path.join(tree, "build", "any", path))
    return os.path.relpath(parts, tree)


def main():
    tree = os.getcwd()
    functions = json.load(sys.stdin)["data"][0]["functions"]
    reached = {function["name"] for function in functions if function["count"] > 0}
    places = {}
    for function in functions:
        place = place_in_tree(function["filenames"][0], tree)
        # A function of one file alone has the file's name in front of its own.
        name = function["name"].rsplit(":", 1)[-1]
        if place.split("/")[0] in ROOMS and function["name"] not in reached:
            places[name] = place
    demangled = subprocess.run(["c++filt"], input="\n".join(places), capture_output=True, text=True, check=True)
    lines = {f"{place} {name}" for place, name in zip(places.values(), demangled.stdout.splitlines())}
    print("\n".join(sorted(line for line in lines if "lambda" not in line and "#" not in line)))
    seen = {place_in_tree(function["filenames"][0], tree) for function in functions}
    for room in ROOMS:
        for folder, _, files in os.walk(room):
            for path in sorted(os.path.join(folder, file) for file in files if file.endswith(".cpp")):
                if path not in seen:
                    print(path, "(no target is linked with it)")
    product = {f["name"] for f in functions if place_in_tree(f["filenames"][0], tree).split("/")[0] in ROOMS}
    print(f"{len(product & reached)} of {len(product)} functions reached", file=sys.stderr)


main()
