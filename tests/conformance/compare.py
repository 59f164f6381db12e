#!/usr/bin/env python3
"""Runs each scenario twice on the same machine, in the simulation and with the shipped DLL in a real process, and
compares what comes out: results, registry, log, debugger's texts, requests to the engine, standard output.

The real process has Wine's COM, registry and files. On one case, the comparison itself is shown to fail on a planted
difference of each kind.
"""
import argparse
import difflib
import hashlib
import itertools
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import time
from dataclasses import dataclass, field

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "model"))
import order_model  # noqa: E402
from prefix import CLASSES, HEADER, NOTIFY_CLASS, REGISTERED, Prefix  # noqa: E402

SYSTEM = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet"
IMPORTED = "SOFTWARE\\Imported"  # the key that ends each import, with the number of the machine in it
KEYS = [  # all that the module may touch
    f"{SYSTEM}\\Control\\Class\\{{4D36E972-E325-11CE-BFC1-08002BE10318}}",
    f"{SYSTEM}\\Control\\Network",
    f"{SYSTEM}\\Control\\DeviceClasses\\{{AD498944-762F-11D0-8DCB-00C04FC3358C}}",
    f"{SYSTEM}\\Services\\ZTL",
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark",
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce",
    f"{CLASSES}\\{NOTIFY_CLASS}",
]
DRIVER = "Windows/System32/drivers/ztl2000.sys"
INF_FOLDER = "Windows/Inf"
VERSION = "HKEY_CURRENT_USER\\Software\\Wine\\AppDefaults\\ztl_host.exe"

SAMPLES = HERE.parent.parent / "samples"
SCENARIOS = re.findall(r'^    {"(\w+)"', (SAMPLES.parent / "ztlsim/scenario/scenarios.h").read_text(), re.M)
SCENARIOS.remove("properties")  # whose cases have options
CONNECTION = ["--adapter", "one of the machine's"]
ADAPTER = re.compile(r"Services\\ZTL\\Parameters\\Adapters\\({[^}]*})\]")
LONG = "x" * 300
REPAIRING = "upgrade reinstall load".split()
CASES = 109  # all but the generated ones, so that none is left out unseen
# Scenarios, the samples they run on ("*" for all), Wine's name of the Windows version, and options of both sides.
TABLE = [
    (SCENARIOS, ["*"], "win10", []),
    (SCENARIOS, ["windows-5.2"], "winxp64", []),
    (REPAIRING, ["loop", "two-loops", "windows-5.2"], "winxp64", ["--second-lock", "refuse"]),
    (REPAIRING, ["loop", "windows-5.2"], "winxp64", ["--lock-held", "an installer"]),
    (["notify"], ["laptop"], "win10", ["--change", "0x20001"]),
    (["notify"], ["laptop"], "win10", ["--path", "qro_ztl->PCI\\VEN_1=off"]),
    (["notify"], ["laptop"], "win10", ["--path", "ms_tcpip->x=error", "--change", "9"]),
    (["properties"], ["*"], "win10", [*CONNECTION, "--param1", "first", "--bundle-id", "b-7"]),
    (["properties"], ["laptop"], "win10", ["--param1", "first"]),
    (["properties"], ["laptop"], "win10", [*CONNECTION, "--bundle-id", LONG, "--again"]),
    (["properties"], ["laptop"], "win10", [*CONNECTION, "--bundle-id", "field-0117", "--page", "apply"]),
    (["properties"], ["laptop"], "win10", [*CONNECTION, "--param1", "x", "--page", "cancel", "--again"]),
    (["properties"], ["laptop"], "win10", [*CONNECTION, "--page", "apply"]),
]


@dataclass
class Case:
    name: str
    scenario: str
    machine: pathlib.Path
    windows: str = "win10"
    options: list = field(default_factory=list)
    files: dict = field(default_factory=dict)  # bytes by their place on drive C:


def installation(rng):
    """The files that an installation may find: the filter's INF in several versions, forms and places, the driver, and
    the package that one of them came from."""
    package = SAMPLES / "package-4.17"
    files = {}
    if rng.random() < 0.8:
        files[DRIVER] = (package / "ztl2000.sys").read_bytes()
    if rng.random() < 0.8:
        files["Media/ztl2000m.inf"] = (package / "ztl2000m.inf").read_bytes()
    filter_inf = (package / "ztl2000.inf").read_text("cp1252")
    for name in rng.sample(["oem2.inf", "OEM10.INF", "oem9.inf", "ZTL2000.inf", "zt1.inf", "net.inf"], rng.randint(1, 6)):
        version = ".".join(str(part + rng.choice((0, 0, 0, 1))) for part in (4, 17, 0, 18806))
        text = filter_inf.replace("4.17.0.18806", version)
        text = text.replace("qro_ztl\n", rng.choice(("qro_ztl\n", "QRO_ZTL ; the filter\n", "qro_ztlm\n")))
        if rng.random() < 0.9:
            text += "\n[InfSourcePathInfo]\nOriginalInfSourcePath = " + rng.choice(("C:\\Media", "\"C:\\Media\\\"", "C:\\Gone"))
        text = rng.choice([text] * 8 + ["", "[Version", "No section"])
        files[f"{INF_FOLDER}/{name}"] = text.replace("\n", "\r\n").encode(rng.choice(("utf-16", "cp1252")))
    return files


def export_text(path):
    data = path.read_bytes()
    return data.decode("utf-16" if data[:2] == b"\xff\xfe" else "utf-8-sig")


def sample_cases(folder):
    samples = sorted(SAMPLES.glob("*.reg"))
    for scenarios, names, windows, options in TABLE:
        for sample, scenario in itertools.product(samples, scenarios):
            if names == ["*"] or sample.stem in names:
                given = [ADAPTER.search(export_text(sample))[1] if option == CONNECTION[1] else option
                         for option in options]
                yield Case(" ".join([scenario, sample.stem, windows, *given]), scenario, sample, windows, given)
    empty = folder / "empty.reg"
    empty.write_text(HEADER, "utf-16")
    for scenario in [*SCENARIOS, "properties"]:
        yield Case(f"{scenario} empty machine", scenario, empty)
    for number in range(6):
        yield Case(f"install package {number}", "install", SAMPLES / "saved-parameters.reg",
                   files=installation(random.Random(number)))


def generated_cases(folder, seed, count):
    for index in range(count):
        rng = random.Random(f"{seed}/{index}")
        path = folder / f"generated-{index}.reg"
        order_model.write_export(dict(order_model.contents(order_model.Machine(rng).hklm)), path, "utf-16")
        options = ["--second-lock", "refuse"] * (rng.random() < 0.3)
        files = installation(rng)
        scenario = rng.choice([*SCENARIOS, "install", "install"])
        yield Case(f"generated machine {seed}/{index}", scenario, path, rng.choice(("win10", "winxp64")), options, files)


def read_registry(path):
    """{(key, value name): (type, bytes)} of an export; a key as such has the name None and no value."""
    return {(key[1:-1].replace("\\ControlSet001\\", "\\CurrentControlSet\\"),
             unquoted(name.removeprefix("@")) if name else None): value_of(data) if name else ()
            for (key, name), data in order_model.read_export(path, {}).items()}


def unquoted(text):
    return re.sub(r"\\(.)", r"\1", text[1:-1], flags=re.DOTALL)


def value_of(text):
    if text.startswith('"'):
        return 1, (unquoted(text) + "\0").encode("utf-16-le")
    if text.startswith("dword:"):
        return 4, bytes.fromhex(text[6:])[::-1]
    kind, _, data = text.partition(":")
    return int(kind[4:-1], 16) if kind != "hex" else 3, bytes.fromhex(data.replace(",", ""))


def export(registry, path):
    """Writes the export of what the host process has read."""
    values = {}
    for key, *value in registry:
        name = value and (json.dumps(value[0], ensure_ascii=False) if value[0] else "@")
        values[f"[HKEY_LOCAL_MACHINE\\{key}]", name or ""] = value and f"hex({value[1]:x}):{bytes(value[2]).hex(',')}"
    order_model.write_export(values, path, "utf-16")


def registry_lines(registry):
    """What stands below the keys that the module may touch; the keys themselves may be written in any letter case."""
    lines = []
    for (key, name), value in registry.items():
        for base in KEYS:
            if (key + "\\").lower().startswith(base.lower() + "\\"):
                data = f" {name!r} type {value[0]} {bytes(value[1])}" if value else ""
                lines.append(f"[{base}{key[len(base):]}]{data}")
    return sorted(lines)


def log_lines(path, process):
    """The lines of a log without what differs from process to process: time stamps, its id and command line."""
    lines = path.read_bytes().decode("utf-8").split("\r\n") if path.exists() else []
    return [without_process(re.sub(r"^\d\d/\d\d/\d\d \d\d:\d\d:\d\d: ", "", line), process) for line in lines]


def without_process(text, process):
    text = text.replace(f"pid={process['id']}", "pid=…").replace(f"<{process['command_line']}>", "<…>")
    return re.sub(r"C:\\windows(\\system32)?", lambda match: match[0].lower(), text, flags=re.IGNORECASE)


def inf_files(folder):
    """The contents of the INF directory: the names that files are stored under are the system's own."""
    return sorted(f"{len(data)} bytes, {hashlib.sha256(data).hexdigest()}"
                  for data in (path.read_bytes() for path in folder.glob("*") if path.suffix.lower() == ".inf"))


def outcome(told, process, log, registry, output, infs):
    return {
        "results": [f"{method} {code}" for method, code in told["result"].items()],
        "registry": registry_lines(registry),
        "log": log_lines(log, process),
        "debugger output": [without_process(text, process) for text in told["debugger_output"]],
        "engine requests": told["engine_requests"],
        "property page": json.dumps(told["page"], ensure_ascii=False, indent=1).splitlines(),
        "INF files": infs,
        "standard output": output,
        "time waited": [str(told["elapsed_ms"])],
    }


def real_commands(case, number):
    """The batch that brings the registry to the machine's state and runs the scenario with the shipped DLL."""
    options = " ".join("--again yes" if option == "--again" else f'"{option}"' for option in case.options)
    placed = [f"xcopy /e /i /q /y {number}\\disk C:\\"] if case.files else []
    taken = [f"xcopy /i /q C:\\windows\\inf {number}\\inf", "del /q C:\\windows\\inf\\*.*", "rd /s /q C:\\Media",
             "del C:\\windows\\system32\\drivers\\ztl2000.sys"] if case.files else []
    return [f"reg import {number}\\import.reg",
            "del C:\\windows\\temp\\ztlinst.log* 2>nul",
            *placed,
            f"ztl_host.exe run {case.scenario} --job {number}\\job.json --report {number}\\report.json "
            f"{options} > {number}\\output.txt",
            f"echo %errorlevel% > {number}\\status.txt",
            f"move C:\\windows\\temp\\ztlinst.log {number}\\log.txt",
            *taken]


def prepare(prefix, case, number, die_at=""):
    """Writes the machine as it is for the simulation, and for the registry after what clears the one before it. The
    system's tool terminates text that is not, so that the host process sets such values itself."""
    header, _, body = export_text(case.machine).partition("\n")
    assert header.startswith("Windows Registry Editor Version 5.00"), case.machine
    body = re.sub("\r?\n", "\r\n", body) + "\r\n" + REGISTERED * (case.scenario != "register")
    cleared = "".join(f"[-{key}]\r\n\r\n" for key in KEYS)
    version = f'[{VERSION}]\r\n"Version"="{case.windows}"\r\n\r\n'
    prefix.write(f"{number}/machine.reg", HEADER + body)
    imported = f'[HKEY_LOCAL_MACHINE\\{IMPORTED}]\r\n"Number"="{number}"\r\n'
    prefix.write(f"{number}/import.reg", HEADER + cleared + version + body + "\r\n" + imported)
    registry = read_registry(prefix.folder / str(number) / "machine.reg")
    exact = [[below(key), name, value[0], list(value[1])] for (key, name), value in registry.items()
             if value and value[0] in (1, 2, 7) and (len(value[1]) % 2 or value[1][-2:] != b"\0\0")]
    for place, data in case.files.items():
        for disk in "disk", "root":
            path = prefix.folder / str(number) / disk / place
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
    (prefix.folder / str(number) / "job.json").write_text(
        json.dumps({"set": exact, "read": [*map(below, KEYS), IMPORTED], "die_at": die_at}))


def below(key):
    return key.partition("\\")[2]


def read_real(folder):
    status = (folder / "status.txt").read_text().strip()
    if status != "0":
        raise SystemExit(f"the host process of {folder} ended with {status}")
    told = json.loads((folder / "report.json").read_text("utf-8"))
    if [IMPORTED, "Number", 1, [*f"{folder.name}\0".encode("utf-16-le")]] not in told["registry"]:
        raise SystemExit(f"the system's tool refused {folder / 'import.reg'}")
    if told["objects_left"]:
        raise SystemExit(f"{told['objects_left']} objects of the engine were not released")
    registry = {(f"HKEY_LOCAL_MACHINE\\{key}", value[0] if value else None): value[1:]
                for key, *value in told["registry"]}
    output = (folder / "output.txt").read_text("utf-8").splitlines()
    return outcome(told, told["process"], folder / "log.txt", registry, output, inf_files(folder / "inf"))


def simulate(prefix, ztlsim, cases):
    """Runs the simulations of {number: case}; those of a Windows program in one start of Wine."""
    windows = ztlsim.endswith(".exe")
    batch = []
    for number, case in cases.items():
        folder = prefix.folder / str(number)
        system = json.loads((folder / "report.json").read_text("utf-8"))["os"]
        place = f"C:\\truth\\{number}\\" if windows else f"{folder}/"
        program = "Z:" + os.path.abspath(ztlsim).replace("/", "\\") if windows else ztlsim
        command = [program, "run", case.scenario, "--process", "--json", "--machine", f"{place}machine.reg",
                   "--os", system, "--root", f"{place}root", "--out", f"{place}after.reg", *case.options]
        if windows:
            quoted = " ".join(f'"{word}"' for word in command)
            batch.append(f"{quoted} > {number}\\simulated.json 2> {number}\\errors.txt")
        else:
            with open(folder / "simulated.json", "wb") as output, open(folder / "errors.txt", "wb") as errors:
                subprocess.run(command, stdout=output, stderr=errors, check=False, timeout=60)
    if batch:
        prefix.batch(batch)


def read_simulated(folder):
    told = (folder / "simulated.json").read_text("utf-8")
    if not told:
        raise SystemExit(f"ztlsim failed: {(folder / 'errors.txt').read_text()}")
    told = json.loads(told)
    process = {"id": 1234, "command_line": "C:\\Windows\\System32\\svchost.exe -k netsvcs"}
    log = folder / "root" / "Windows" / "temp" / "ztlinst.log"
    return outcome(told, process, log, read_registry(folder / "after.reg"), told["standard_output"].splitlines(),
                   inf_files(folder / "root" / INF_FOLDER))


def differences(simulated, real):
    """{kind: diff}"""
    found = {}
    for kind, expected in simulated.items():
        if expected != real[kind]:
            diff = difflib.unified_diff(expected, real[kind], "simulation", "real process", lineterm="", n=2)
            found[kind] = "\n".join(line[:1000] for line in itertools.islice(diff, 60))
    return found


def check(folder):
    """How the simulation differs from the real process, and that one's outcome."""
    real = read_real(folder)
    return differences(read_simulated(folder), real), real


def self_test(folder):
    """Plants a difference of each kind in what the real process left, and looks for just that kind."""
    planted = {
        "results": ("report.json", b'ApplyRegistryChanges":"0x00000000', b'ApplyRegistryChanges":"0x00000001'),
        "registry": ("report.json", b'"UpperBind",7,[', b'"UpperBind",7,[1,'),
        "log": ("log.txt", b"INFO: OrderIM: success", b"WARN: OrderIM: success"),
        "debugger output": ("report.json", b"INFO:--> ::Initialize", b"INFO:--> ::Initialise"),
        "engine requests": ("report.json", b"Uninitialize = 0x0", b"Uninitialize = 0x8"),
        "property page": ("report.json", b'"page":null', b'"page":0'),
        "INF files": ("inf/planted.inf", None, b""),
        "standard output": ("output.txt", b"", b"more"),
        "time waited": ("report.json", b'"elapsed_ms":0', b'"elapsed_ms":1'),
    }
    real = read_real(folder)
    for kind, (name, old, new) in planted.items():
        path = folder / name
        path.parent.mkdir(exist_ok=True)
        original = path.read_bytes() if path.exists() else None
        assert original is None or old in original, f"nothing to plant a difference of {kind} in"
        path.write_bytes(new if original is None else original.replace(old, new, 1))
        found = differences(real, read_real(folder))
        path.unlink() if original is None else path.write_bytes(original)
        assert list(found) == [kind], f"a planted difference of {kind} was seen as {list(found)}"
    assert set(planted) == set(real)
    print(f"a planted difference of each kind was found: {', '.join(planted)}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binaries", required=True, nargs="+", help="ztli64x.dll, ztl_engine.dll, ztl_host.exe")
    parser.add_argument("--ztlsim", required=True, help="a program of this machine, or ztlsim.exe")
    parser.add_argument("--wine", default="wine")
    parser.add_argument("--generated", type=int, default=20, help="how many generated machines")
    parser.add_argument("--seed", default=time.strftime("%Y%m%d"))
    parser.add_argument("--only", default="", help="the cases whose names hold this text")
    arguments = parser.parse_args()
    with Prefix(arguments.wine, arguments.binaries) as prefix:
        cases = [*sample_cases(prefix.folder), *generated_cases(prefix.folder, arguments.seed, arguments.generated)]
        cases = [case for case in cases if arguments.only in case.name]
        compare(prefix, arguments, cases, len(cases) if arguments.only else CASES + arguments.generated)


def compare(prefix, arguments, cases, count):
    print(f"{count} cases, generated machines from seed {arguments.seed}")
    for number, case in enumerate(cases):
        prepare(prefix, case, number)
    prefix.batch([line for number, case in enumerate(cases) for line in real_commands(case, number)])
    simulate(prefix, arguments.ztlsim, dict(enumerate(cases)))
    same, tested = 0, False
    for number, case in enumerate(cases):
        found, _ = check(prefix.folder / str(number))
        for kind, diff in found.items():
            print(f"--- {case.name} ({case.scenario}, {case.windows}): {kind}\n{diff}")
        same += not found
        if not tested and not found and case.name == "upgrade loop win10":
            self_test(prefix.folder / str(number))
            tested = True
    print(f"{same} of {count} cases are the same in the simulation and in a real process")
    raise SystemExit(same != count or not count or not (tested or arguments.only))


if __name__ == "__main__":
    main()
