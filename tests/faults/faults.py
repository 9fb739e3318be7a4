"""Lets every file-system call of a command fail in turn, transfer less than it was asked to, or be the program's last.

A trial is one run of one command in a fresh copy of a folder, with one call disturbed. Afterwards every file is
compared with what it held before and with what it holds after an undisturbed run. Errors and kills are strace's.
Short transfers are made here: strace can return a smaller count, but not have the kernel move only so many bytes.

usage: faults.py [--short] [COMMAND…]: every call, or about every tenth"""

import ctypes
import multiprocessing
import os
import re
import signal
import sys
import tempfile
from collections import Counter, namedtuple
from pathlib import Path

from trial_folder import (COMMANDS, ENVIRONMENT, PACKAGE, PROGRAM, again, command, content, copied, identifier, make,
                          skip_without_strace, undisturbed)

# What is wrong when a rule is broken.
RULES = {
    "whole": "a file is neither as it was nor as it was to be",
    "attributes": "the package's mode or extended attributes are lost, without any fault",
    "success": "exit code 0, but it was not done, or not synced",
    "failure": "exit code 1, but it was done",
    "short": "exit code 1, for a call that only transferred less than it was asked to",
    "end": "a crash, a hang or another exit code",
    "temporary": "something is left behind by an error, or more than one thing by a kill",
    "swept": "after a kill the next save failed, or what was left is still there",
}
# What is said of a change that is there, but may not outlast a power failure.
UNCERTAIN = ("opc:save:NotConfirmed", "tavlox_io:general:UnableToClosePackage", "tavlox:cli:NotConfirmed")
SYNCS = ("fsync", "fdatasync", "syncfs")

KINDS = ("EIO", "ENOSPC", "EINTR", "short", "kill")
# What can be cut short on x86-64: the system call's number, and which register of user_regs_struct has the length.
RDX, R8, ORIG_RAX = 12, 9, 15
TRANSFERS = {"read": (0, RDX), "write": (1, RDX), "pread64": (17, RDX), "pwrite64": (18, RDX),
             "copy_file_range": (326, R8)} if os.uname().machine == "x86_64" else {}

PTRACE = ctypes.CDLL(None).ptrace
PTRACE.restype = ctypes.c_long  # as wide as a register

Call = namedtuple("Call", "name number result line")  # the number-th call of this name, from 1
Trial = namedtuple("Trial", "command call kind")


def calls_of(words, folder):
    """Every call that names something in the folder, or a descriptor of it; the dynamic loader's left out."""
    log, counts = folder.with_suffix(".calls"), Counter()
    undisturbed(["strace", "-o", log, "-yy", "-e", "trace=%file,%desc", PROGRAM, *words], folder)
    for line in log.read_text(errors="replace").splitlines():
        name = line.partition("(")[0]
        counts[name] += 1
        line = line.replace(f"AT_FDCWD<{folder}>, ", "")
        if (str(folder) in line or re.match(r'\w+\("[^/"]', line)) and ".so" not in line and name != "execve":
            result = re.search(r"= (\d+)$", line)
            yield Call(name, counts[name], int(result[1]) if result else 0, line.replace(f"{folder}/", "")[:120])


def ptrace(request, process, address=0, data=0):
    return PTRACE(*map(ctypes.c_long, (request, process, address, data)))


def run_shortened(words, folder, call):
    """Runs the program with half of what one call transferred before as the length of that call."""
    trace_me, peek, poke, to_next_stop, set_options, marks_calls, ends_with_tracer = 0, 3, 6, 24, 0x4200, 1, 0x100000
    number, register = TRANSFERS[call.name]
    with open(folder.with_suffix(".said"), "w+b") as said:
        if (process := os.fork()) == 0:
            os.chdir(folder)
            os.dup2(said.fileno(), 1)
            os.dup2(said.fileno(), 2)
            signal.alarm(60)
            ptrace(trace_me, 0)
            os.execve(PROGRAM, [PROGRAM, *words], ENVIRONMENT)
        status, seen = os.waitpid(process, 0)[1], 0
        ptrace(set_options, process, 0, marks_calls | ends_with_tracer)
        while os.WIFSTOPPED(status):
            stop = os.WSTOPSIG(status)
            # A marked stop: a system call begins, or ends.
            if stop == signal.SIGTRAP | 0x80 and ptrace(peek, process, 8 * ORIG_RAX) == number:
                seen += 1
                if seen == 2 * call.number - 1:
                    ptrace(poke, process, 8 * register, call.result // 2)
            ptrace(to_next_stop, process, 0, 0 if stop & 0x7f == signal.SIGTRAP else stop)
            status = os.waitpid(process, 0)[1]
        said.seek(0)
        return os.waitstatus_to_exitcode(status), said.read().decode(errors="replace"), seen >= 2 * call.number - 1


def run_injected(words, folder, call, kind):
    log, fault, options, shown = folder.with_suffix(".log"), f"error={kind}", ["-f", "--seccomp-bpf"], "(INJECTED)"
    if kind == "kill":  # With its filter in the kernel strace is faster, but sends no signals.
        fault, options, shown = "signal=KILL", [], "+++ killed by SIGKILL"
    ran = command(["strace", *options, "-o", log, "-e", f"trace={call.name}",
                   "-e", f"inject={call.name}:{fault}:when={call.number}", PROGRAM, *words], folder)
    return ran.returncode, ran.stderr, shown in log.read_text(errors="replace")


def contents(folder):
    return {str(path.relative_to(folder)): content(path) for path in folder.rglob("*")}


def left_behind(now, before, after):
    """What belongs to no state of the folder; a folder counts once."""
    extra = now.keys() - before.keys() - after.keys()
    return [path for path in extra if str(Path(path).parent) not in extra]


def broken_rules(trial, folder, exit_code, said):
    now, (before, after) = contents(folder), STATES[trial.command]
    is_new = all(now.get(path) == after[path] for path in after)
    if before[PACKAGE][1] != after[PACKAGE][1]:
        yield "attributes"
    if any(now.get(path) not in (before.get(path), after.get(path)) for path in {*before, *after}):
        yield "whole"
    if len(left_behind(now, before, after)) > (1 if trial.kind == "kill" else 0):
        yield "temporary"
    if trial.kind == "kill":
        next_run = command([PROGRAM, *again(trial.command)], folder)
        if next_run.returncode or left_behind(contents(folder), before, after):
            yield "swept"
        return
    if exit_code not in (0, 1):
        yield "end"
    is_sync = trial.call.name in SYNCS
    if exit_code == 0 and (not is_new or is_sync and trial.kind in ("EIO", "ENOSPC")):
        yield "success"
    if exit_code == 1 and trial.kind == "short":
        yield "short"
    # That its folder cannot be synced is the one reason to report a change that was made as uncertain.
    if exit_code == 1 and is_new and not (is_sync and identifier(said) in UNCERTAIN):
        yield "failure"


def tried(trial):
    """The trial, the rules broken in it, and what the program said; None for rules if the call was not reached."""
    words = COMMANDS[trial.command]
    with tempfile.TemporaryDirectory(dir=ROOM) as room:
        folder = copied(ROOM / "prepared", Path(room) / "trial")
        exit_code, said, is_reached = (run_shortened(words, folder, trial.call) if trial.kind == "short" else
                                       run_injected(words, folder, trial.call, trial.kind))
        return trial, set(broken_rules(trial, folder, exit_code, said)) if is_reached else None, said.strip()


def trials_of(name, is_short):
    """All, or each kind of fault at every tenth call, each kind at others, and all at syncs and renames."""
    calls = list(calls_of(COMMANDS[name], copied(ROOM / "prepared", ROOM / f"watched/{name}")))
    order = "".join("s" if call.name in SYNCS else "r" for call in calls if call.name.startswith((*SYNCS, "rename")))
    if not re.fullmatch("s+r+s+", order):
        sys.exit(f"{name}: what is renamed into place is not synced before, or the folder not behind: {order}")
    for index, call in enumerate(calls):
        is_always = not is_short or call.name.startswith((*SYNCS, "rename"))
        yield from (Trial(name, call, kind) for shift, kind in enumerate(KINDS)
                    if (kind != "short" or call.name in TRANSFERS and call.result > 1)
                    and (is_always or (index + 2 * shift) % 10 == 0))


def states_of(name):
    folder = copied(ROOM / "prepared", ROOM / f"undisturbed/{name}")
    before = contents(folder)
    undisturbed([PROGRAM, *COMMANDS[name]], folder)
    return before, contents(folder)


def main():
    global ROOM, STATES
    is_short = "--short" in sys.argv
    names = [name for name in sys.argv[1:] if name != "--short"] or list(COMMANDS)
    if unknown := set(names) - set(COMMANDS):
        sys.exit(f"no such command: {', '.join(unknown)}; there are {', '.join(COMMANDS)}")
    skip_without_strace()
    with tempfile.TemporaryDirectory(prefix="tavlox-faults-") as room:
        ROOM = Path(room)
        make(ROOM / "prepared")
        STATES = {name: states_of(name) for name in names}
        trials = [trial for name in names for trial in trials_of(name, is_short)]
        with multiprocessing.Pool(2 * os.cpu_count()) as pool:  # Forked only now: it needs ROOM and STATES.
            results = list(pool.imap_unordered(tried, trials))
    reached = [result for result in results if result[1] is not None]
    found, failures = {name: set() for name in names}, []
    for trial, broken, said in reached:
        found[trial.command] |= broken
        if broken:
            failures.append(f"{trial.command}, {trial.kind}: {'; '.join(RULES[rule] for rule in broken)}\n"
                            f"  at {trial.call.line}\n  said {said}")
    for name, rules in found.items():
        counts = Counter(trial.kind for trial, *_ in reached if trial.command == name)
        print(f"{name}: {counts.total()} trials {dict(counts)}, not always: {', '.join(rules) or 'nothing'}")
    if 100 * len(reached) < 99 * len(results):
        failures.append(f"{len(results) - len(reached)} of {len(results)} calls were not reached again")
    print("\n".join(failures) or "nothing unexpected")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
