"""A Wine prefix of its own with the shipped DLL, the engine's server and the host process in it."""
import os
import pathlib
import shutil
import subprocess
import tempfile

ENGINE_CLASS = "{5B035261-40F9-11D1-AAEC-00805FC1270E}"
NOTIFY_CLASS = "{5B1E7C42-93D0-4F6A-8E25-C07A1D39B4E8}"
CLASSES = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\CLSID"
HEADER = "Windows Registry Editor Version 5.00\r\n\r\n"
# The notify object's class as DllRegisterServer leaves it.
REGISTERED = (f"[{CLASSES}\\{NOTIFY_CLASS}]\r\n@=\"ZTL Filter Configuration Notify Object\"\r\n\r\n"
              f"[{CLASSES}\\{NOTIFY_CLASS}\\InProcServer32]\r\n@=\"C:\\\\Windows\\\\System32\\\\ztli64x.dll\"\r\n"
              "\"ThreadingModel\"=\"Apartment\"\r\n\r\n")
ENGINE = (f"[{CLASSES}\\{ENGINE_CLASS}\\InprocServer32]\r\n@=\"C:\\\\truth\\\\ztl_engine.dll\"\r\n"
          "\"ThreadingModel\"=\"Both\"\r\n\r\n")
# Windows without a screen.
NO_SCREEN = "[HKEY_CURRENT_USER\\Software\\Wine\\Drivers]\r\n\"Graphics\"=\"null\"\r\n\r\n"


class Prefix:
    """As a context: made on entry, gone with all its processes on exit. `drive` is C:, `folder` C:\\truth."""

    def __init__(self, wine, binaries):
        self.wine, self.binaries = wine, binaries

    def __enter__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="ztl-truth-"))
        self.environment = {**os.environ, "WINEPREFIX": str(self.path), "WINEDEBUG": "-all",
                            "WINEDLLOVERRIDES": "mscoree,mshtml="}
        subprocess.run([self.wine, "wineboot", "-i"], env=self.environment, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=True, timeout=120)
        self.drive = self.path / "drive_c"
        self.folder = self.drive / "truth"
        self.log = self.drive / "windows" / "temp" / "ztlinst.log"
        self.folder.mkdir()
        for binary in self.binaries:
            place = self.drive / "windows" / "system32" if binary.endswith("ztli64x.dll") else self.folder
            shutil.copy(binary, place)
        for inf in (self.drive / "windows" / "inf").glob("*"):  # the directory is the cases' own
            inf.unlink()
        self.write("classes.reg", HEADER + NO_SCREEN + ENGINE + REGISTERED)
        self.batch(["reg import classes.reg"])
        for option in "-k", "-w":  # what runs already has looked for a screen
            subprocess.run(["wineserver", option], env=self.environment, check=False)
        subprocess.run(["wineserver", "-p"], env=self.environment, check=True)  # stays until the end
        return self

    def __exit__(self, *_):
        subprocess.run(["wineserver", "-k"], env=self.environment, check=False)
        shutil.rmtree(self.path, ignore_errors=True)

    def write(self, name, text):
        (self.folder / name).parent.mkdir(exist_ok=True)
        (self.folder / name).write_bytes(text.encode("utf-16"))

    def batch(self, commands, timeout=600):
        """Runs the commands one after the other in C:\\truth, in one start of Wine; a program that it could not start,
        as happens on a busy machine, gets a second chance."""
        (self.folder / "batch.cmd").write_text(
            "@echo off\r\n" + "".join(f"{line}\r\nif errorlevel 9009 {line}\r\n" for line in commands))
        self.start("cmd", "/c", "batch.cmd").wait(timeout)

    def start(self, *command):
        return subprocess.Popen([self.wine, *command], cwd=self.folder, env=self.environment,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def status(self, process):
        """The exit status of a started program. One that Wine could not start, which is 1, gets a second chance."""
        return process.wait(300) if process.wait(300) != 1 else self.start(*process.args[1:]).wait(300)
