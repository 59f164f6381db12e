#!/usr/bin/env python3
"""Fails when a source includes what its folder does not know: python3 layers.py SOURCE-DIR"""
import pathlib
import re
import sys

LOG = "platform module/names.h module/version.h module/log"
PASSES = f"{LOG} module/netcfg"
TOOL = "platform module simulation ztlsim/text_encoding.h ztlsim/inspection.h ztlsim/input"
KNOWS = {"platform": "", "simulation": "platform", "module/log": LOG, "module/netcfg": LOG, "module/order": LOG,
         "module/repair": PASSES, "module/install": PASSES, "module/notify": "platform module", "ztlsim/input": TOOL,
         "ztlsim/inspect": TOOL, "ztlsim/scenario": f"{TOOL} ztlsim/inspect",
         "ztlsim/report": f"{TOOL} ztlsim/inspect ztlsim/scenario"}
root = pathlib.Path(sys.argv[1])
for folder, known in KNOWS.items():
    sources = [path for path in (root / folder).rglob("*") if path.suffix in (".h", ".cpp")]
    assert sources, f"{folder} has no sources"
    for path in sources:
        for included in re.findall(r'^#include "([^"]+/[^"]+)"', path.read_text("utf-8"), re.MULTILINE):
            if not any(f"{included}/".startswith(f"{name}/") for name in [folder, *known.split()]):
                sys.exit(f"{path.relative_to(root)} includes {included}, which {folder} must not know")
