#!/usr/bin/env python3
"""The archive for Windows users: what is in it runs by itself, in the folder that it is unpacked to."""
import argparse
import json
import pathlib
import re
import subprocess
import sys
import zipfile

from prefix import Prefix

FILES = ["LICENSE.txt", "README.txt", "registration.rgs", "ztl_windows_tests.exe", "ztli64x.dll", "ztli64x.dll.debug",
         "ztlsim.exe"]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cpack", required=True)
    parser.add_argument("--build", required=True, help="the build's folder")
    parser.add_argument("--samples", required=True, type=pathlib.Path)
    parser.add_argument("--wine", default="wine")
    arguments = parser.parse_args()
    with Prefix(arguments.wine, []) as prefix:
        subprocess.run([arguments.cpack, "-B", str(prefix.folder)], cwd=arguments.build, check=True)
        archive, = prefix.folder.glob("ztl-*-win64.zip")
        with zipfile.ZipFile(archive) as content:
            content.extractall(prefix.folder)
        unpacked = prefix.folder / archive.stem
        found = sorted(str(path.relative_to(unpacked)) for path in unpacked.rglob("*") if path.is_file())
        samples = sorted(f"samples/{path.relative_to(arguments.samples)}"
                         for path in arguments.samples.rglob("*") if path.is_file())
        assert found == sorted(FILES + samples), found
        dll = (unpacked / "ztli64x.dll").read_bytes()
        assert dll == pathlib.Path(arguments.build, "ztli64x.dll").read_bytes()
        header = int.from_bytes(dll[0x3C:0x40], "little")
        assert dll[header + 8:header + 12] == bytes(4), "the DLL has the time of its build in it"
        # The build's own files are out of reach: the machine's root is no drive.
        (unpacked / "run.cmd").write_text(
            "@echo off\r\n"
            "ztlsim run install --json --machine samples\\saved-parameters.reg --media samples\\package-4.17 "
            "--driver-file samples\\package-4.17\\ztl2000.sys > run.json\r\n"
            "ztl_windows_tests --gtest_filter=-PropertyPage.* > tests.txt\r\n"
            "if errorlevel 1 echo failed >> tests.txt\r\n")
        (prefix.path / "dosdevices" / "z:").unlink()
        prefix.batch([f"cd {archive.stem}", "call run.cmd"])
        assert json.loads((unpacked / "run.json").read_text("utf-8"))["inf"]["media_root"] == "C:\\Media"
        report = (unpacked / "tests.txt").read_text("utf-8", "replace")
        ran = re.search(r"Running ([1-9]\d*) tests", report)
        if "failed" in report or not ran or f"[  PASSED  ] {ran[1]} tests." not in report:
            sys.exit(f"the tests from the archive did not pass:\n{report}")
    print(f"{len(found)} files in {archive.name}, {ran[1]} tests passed from it")


if __name__ == "__main__":
    main()
