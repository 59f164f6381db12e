#!/usr/bin/env python3
"""The shipped DLL in several processes at once, on one log through its rotations; and in a process that is killed in
the middle of a pass."""
import argparse
import json
import re

import compare
from prefix import Prefix

HEAD = re.compile(rb"\d\d/\d\d/\d\d \d\d:\d\d:\d\d:  ztli64x:    INFO: ")
TOKEN = re.compile(rb"PathToken <(\w+):(\d+):(\w*)>")
OTHER = re.compile(rb"--> ::QueryBindingPath(?: dwChangeFlag 0x00000000| path enable)|DllGetClassObject"
                   rb"|--> ::(?:CSampleFilter|Removing eActRemove|~CSampleFilter ApplyAction=2 OrderIM=0)"
                   rb"|--> EnumCount 0|DllCanUnloadNow hr=0|DLL_PROCESS_DETACH pid=\d+"
                   rb'|DLL_PROCESS_ATTACH [\d.]+ pid=\d+ <"?C:\\truth\\ztl_host.exe"? log [^<>]*>')


class Writers:
    """Processes that write numbered lines, by name with the length of their lines' filler."""

    def __init__(self, prefix, count, fillers):
        self.prefix, self.count, self.fillers = prefix, count, fillers

    def run(self, die_at=None):
        """Runs all of them at once; `die_at` is (name, number of the query that it dies in)."""
        running = {}
        for name, filler in self.fillers.items():
            command = ["C:\\truth\\ztl_host.exe", "log", name, "--count", str(self.count), "--filler", str(filler),
                       "--report", f"{name}.json"]
            if die_at and die_at[0] == name:
                (self.prefix.folder / "die.json").write_text(json.dumps({"die_at": f"PathToken <{name}:{die_at[1]}:"}))
                command += ["--job", "die.json"]
            running[name] = self.prefix.start(*command)
        for name, process in running.items():
            status, expected = self.prefix.status(process), 99 if die_at and die_at[0] == name else 0
            assert status == expected, f"writer {name} ended with {status} instead of {expected}"

    def reports(self):
        return {name: json.loads((self.prefix.folder / f"{name}.json").read_text("utf-8")) for name in self.fillers
                if (self.prefix.folder / f"{name}.json").exists()}

    def read(self, path):
        """What a file holds: {name: the numbers of its lines in their order}, and the lines that are nobody's whole."""
        numbers, broken = {name: [] for name in self.fillers}, []
        for line in path.read_bytes().split(b"\r\n")[:-1]:
            line = line.lstrip(b"\0")  # of a line that went to where the log had ended before it was truncated
            head = HEAD.match(line)
            text = line[head.end():] if head else b""
            token = TOKEN.fullmatch(text)
            name = token[1].decode() if token else None
            if token and token[3] == name[-1:].encode() * self.fillers[name]:
                numbers[name].append(int(token[2]))
            elif not OTHER.fullmatch(text):
                broken.append(line)
        return numbers, broken


def lock_failures(reports):
    """How often the log could not be locked within its ten seconds, which costs a line each."""
    return sum(text.startswith("Failed to lock") for report in reports.values() for text in report["debugger_output"])


def check_without_rotation(prefix):
    """Below the limit no line is lost, not even when one of the writers is killed."""
    writers = Writers(prefix, 200, {"a": 900, "b": 850, "c": 10, "d": 400, "e": 700})
    writers.run(die_at=("d", 120))
    numbers, broken = writers.read(prefix.log)
    assert not broken, broken[:3]
    lost = {name: set(range(120 if name == "d" else 200)) - set(kept) for name, kept in numbers.items()}
    assert sum(map(len, lost.values())) <= lock_failures(writers.reports()), lost
    assert all(kept == sorted(set(kept)) for kept in numbers.values()), "lines out of order"
    assert numbers["d"][-1] < 120
    print(f"5 writers, one killed: {sum(map(len, numbers.values()))} numbered lines, none lost")


def check_rotations(prefix):
    """Through rotations the log holds all that was written since the last of them, and its lines are whole. What stood
    before may be lost with the backup. Where several processes rotate together there, a copy begins on top of another,
    or goes on after its truncation, and cuts a line with each."""
    writers = Writers(prefix, 900, {"f": 900, "g": 850, "h": 10, "i": 400, "j": 700})
    writers.run()
    reports = writers.reports()
    rotations = sum(report["debugger_output"].count("Enforcing circular\n") for report in reports.values())
    assert rotations >= 2, "the log was to rotate"
    numbers, broken = writers.read(prefix.log)
    assert not broken, broken[:3]
    missing = sum(len(set(range(kept[0], 900)) - set(kept)) for kept in numbers.values() if kept)
    assert missing <= lock_failures(reports), f"{missing} lines are missing in the log"
    assert all(kept == sorted(set(kept)) for kept in numbers.values()), "lines out of order"
    backup, cut = writers.read(prefix.log.with_name("ztlinst.log.backup"))
    assert len(cut) <= 2 * (len(reports) - 1), f"{len(cut)} cut lines in the backup, the first {cut[0][:200]}"
    begun = {name: min(kept, default=900) for name, kept in numbers.items()}
    lost = sum(begun[name] - len({number for number in kept if number < begun[name]}) for name, kept in backup.items())
    print(f"5 writers, {rotations} rotations by one of them: the log whole, {lost} older numbered lines in neither, "
          f"{len(cut)} cut lines in the backup")


MARKER = ("SYSTEM\\CurrentControlSet\\Services\\ZTL\\CheckBindLoop",)
# Sample, Windows version, where the process is killed, and whether the loop pass has left its marker key then.
KILLS = [("loop", "win10", "BIND LOOP!!!", True), ("loop", "win10", "Disable Binding Path", True),
         ("windows-5.2", "winxp64", "disabling ", False), ("laptop", "win10", "REORDER", False)]


def check_kills(prefix, ztlsim):
    """Kills a process in a pass, and holds the next process on the machine as it was left against the simulation: with
    the marker that the pass left, and, as after a restart, without it."""
    compared = 0
    for number, (sample, windows, text, leaves_marker) in enumerate(KILLS):
        machine = compare.SAMPLES / f"{sample}.reg"
        case = compare.Case(f"killed at {text}", "upgrade", machine, windows)
        state = prefix.folder / str(number)
        state.mkdir()
        compare.prepare(prefix, case, number, text)
        (state / "look.json").write_text(json.dumps({"read": [compare.below(key) for key in compare.KEYS]}))
        prefix.batch([*compare.real_commands(case, number),
                      f"ztl_host.exe look keys --job {number}\\look.json --report {number}\\state.json"])
        status = (state / "status.txt").read_text().strip()
        assert status == "99", f"{text}: the process was to be killed, and ended with {status}"
        log = (state / "log.txt").read_bytes()
        assert log.endswith(b"\r\n") and text.encode() not in log.split(b"\r\n")[-2]
        left = json.loads((state / "state.json").read_text("utf-8"))["registry"]
        assert (list(MARKER) in left) == leaves_marker, f"{text}: the marker"
        for marker in {True, False} if leaves_marker else {False}:
            name = f"{number}-{marker}"
            registry = [entry for entry in left if marker or tuple(entry) != MARKER]
            path = prefix.folder / f"{name}.reg"
            compare.export(registry, path)
            (prefix.folder / name).mkdir()
            case = compare.Case(f"{sample} after it was killed at {text}" + ", with the marker" * marker, "upgrade",
                                path, windows)
            compare.prepare(prefix, case, name)
            prefix.batch(compare.real_commands(case, name))
            compare.simulate(prefix, ztlsim, {name: case})
            found, real = compare.check(prefix.folder / name)
            assert not found, "\n".join([case.name, *found.values()])
            scanned = any("NDIS bindings" in line for line in real["log"])
            assert scanned != marker, f"{case.name}: the loop pass"
            print(f"{case.name}: the next process does what the simulation says")
            compared += 1
    assert compared == 6, f"{compared} machines compared"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binaries", required=True, nargs="+", help="ztli64x.dll, ztl_engine.dll, ztl_host.exe")
    parser.add_argument("--ztlsim", required=True, help="a program of this machine, or ztlsim.exe")
    parser.add_argument("--wine", default="wine")
    arguments = parser.parse_args()
    with Prefix(arguments.wine, arguments.binaries) as prefix:
        for check in (check_without_rotation, check_rotations):
            for path in prefix.log.parent.glob("ztlinst.log*"):
                path.unlink()
            check(prefix)
        check_kills(prefix, arguments.ztlsim)


if __name__ == "__main__":
    main()
