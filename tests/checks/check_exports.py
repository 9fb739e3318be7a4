"""The module exports its two entry points and nothing else. usage: check_exports.py MODULE NM"""
import subprocess
import sys

ENTRY_POINTS = {"CvInitialize_orra_tavlox_io", "CvTerminate_orra_orra_tavlox_io"}


def main(module, nm):
    listing = subprocess.check_output([nm, "-D", "--defined-only", module], text=True)
    exported = {line.split()[-1].split("@")[0] for line in listing.splitlines()}
    for name in sorted(exported ^ ENTRY_POINTS):
        print(f"{module}: {'exports' if name in exported else 'does not export'} {name}")
    return 0 if exported == ENTRY_POINTS else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
