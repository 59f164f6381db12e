#!/usr/bin/env python3
"""A model of the binding-order pass, written apart from the module, and the driver that holds ztlsim against it.

    order_model.py --ztlsim PATH [--count N] [--seed S] [--start I] [--keep DIR]
        makes N machines, runs `ztlsim run upgrade` on each and compares the log, the results, the lists and the
        registry afterwards with the model's; ends at the first difference.
    order_model.py --machine FILE     prints the model's log and changes for a registry export.
    order_model.py --self-check       holds the model against examples worked out by hand.

All text is handled as one character per UTF-16 code unit (see to_units): every length and limit counts those.
"""
import argparse
import collections
import difflib
import functools
import json
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time

REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ = 0, 1, 2, 3, 4, 7
NOT_FOUND_FILE, GEN_FAILURE, INSUFFICIENT_BUFFER, MORE_DATA, NOT_FOUND = 2, 31, 122, 234, 1168
REBOOT = 0x0004A020

HKLM = "HKEY_LOCAL_MACHINE"
CONTROL = "SYSTEM\\CurrentControlSet\\Control\\"
NETWORK = CONTROL + "Network"
NET_SERVICE = NETWORK + "\\{4D36E974-E325-11CE-BFC1-08002BE10318}"
NET_TRANS = NETWORK + "\\{4D36E975-E325-11CE-BFC1-08002BE10318}"
NET_CLASS = CONTROL + "Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}"
PARAMETERS = "SYSTEM\\CurrentControlSet\\Services\\ZTL\\Parameters"


# ---- Text and names -------------------------------------------------------------------------------------------------

def units_of(data):
    return "".join(map(chr, struct.unpack(f"<{len(data) // 2}H", data[:len(data) // 2 * 2])))


def bytes_of(units):
    return units.encode("utf-16-le", "surrogatepass")


def to_units(text):
    return units_of(text.encode("utf-16-le", "surrogatepass"))


def to_text(units):
    return bytes_of(units).decode("utf-16-le", "replace")


@functools.lru_cache(None)
def fold(text):
    """What the pass compares: A-Z count as a-z, every other character as itself."""
    return text.translate({c: c + 32 for c in range(ord("A"), ord("Z") + 1)})


def same(a, b):
    return fold(a) == fold(b)


@functools.lru_cache(None)
def upper(name):
    """What the registry compares and orders: simple upper-casing of every character."""
    return "".join(c.upper() if len(c.upper()) == 1 else c for c in name)


# ---- The registry ---------------------------------------------------------------------------------------------------

Value = collections.namedtuple("Value", "name type data")


class Key:
    def __init__(self, name=""):
        self.name = name
        self.subkeys = {}  # by upper-cased name
        self.values = {}   # by upper-cased name
        self._ordered = None

    def open(self, path):
        key = self
        for level in path.split("\\"):
            key = key.subkeys.get(upper(level)) if key else None
        return key

    def create(self, path):
        key = self
        for level in path.split("\\"):
            if upper(level) not in key.subkeys:
                key.subkeys[upper(level)] = Key(level)
                key._ordered = None
            key = key.subkeys[upper(level)]
        return key

    def delete_subkey(self, name):
        if self.subkeys.pop(upper(name), None):
            self._ordered = None

    def enumerate(self, longest=10**6):
        """The subkeys in the registry's order; a name that is too long for the caller's buffer ends the enumeration."""
        if self._ordered is None:
            self._ordered = [self.subkeys[name] for name in sorted(self.subkeys)]
        for key in self._ordered:
            if len(key.name) > longest:
                return
            yield key

    def value(self, name):
        return self.values.get(upper(name))

    def set(self, name, type_, data):
        old = self.value(name)
        self.values[upper(name)] = Value(old.name if old else name, type_, data)

    def delete(self, name):
        self.values.pop(upper(name), None)

    def walk(self, path=""):
        """(path, key) of everything below."""
        for key in self.enumerate():
            below = f"{path}\\{key.name}" if path else key.name
            yield below, key
            yield from key.walk(below)

    def copy(self):
        twin = Key(self.name)
        twin.values = dict(self.values)
        twin.subkeys = {name: key.copy() for name, key in self.subkeys.items()}
        return twin


def read_string(key, name):
    """(code, text): a REG_SZ value through a zeroed buffer of 64 characters, which must hold its NUL."""
    value = key.value(name)
    if value is None:
        return NOT_FOUND_FILE, None
    if len(value.data) > 128:
        return MORE_DATA, None
    if value.type != REG_SZ:
        return GEN_FAILURE, None
    return bounded_text(value.data)


@functools.lru_cache(10000)
def bounded_text(data):
    text, nul, _ = units_of(data.ljust(128, b"\0")).partition("\0")
    return (0, text) if nul else (MORE_DATA, None)


def string_is(key, name, text):
    _, stored = read_string(key, name)
    return stored is not None and same(stored, text)


def read_list(key, name, chars, limit):
    """(buffer, bytes read): a REG_MULTI_SZ value of up to `limit` bytes in a zeroed buffer of `chars` characters."""
    value = key.value(name)
    if value is None or value.type != REG_MULTI_SZ or len(value.data) > limit:
        return None, 0
    return units_of(value.data.ljust(chars * 2, b"\0")), len(value.data)


def entries(buffer):
    """What a reader of the multi-string sees: the entries up to the first empty one, or to the end of the buffer."""
    found, at = [], 0
    while at < len(buffer) and buffer[at] != "\0":
        end = buffer.find("\0", at)
        end = len(buffer) if end < 0 else end
        found.append(buffer[at:end])
        at = end + 1
    return found


def contains(names, name):
    return any(same(entry, name) for entry in names)


class ListBuilder:
    """A multi-string under construction. An empty entry hides from its readers what is appended behind it."""

    def __init__(self, capacity):
        self.room = capacity
        self.buffer = ""

    def append(self, text):
        self.buffer += text + "\0"
        self.room -= len(text) + 1

    def read(self):
        return entries(self.buffer)


# ---- The pass -------------------------------------------------------------------------------------------------------

class OrderPass:
    def __init__(self, root):
        self.hklm = root.create(HKLM)
        self.lines = []
        self.changed = False
        self.code = 0
        self.im = ListBuilder(256)
        self.devid = ListBuilder(512)

    def log(self, text):
        self.lines.append(text)

    def open(self, path, message):
        key = self.hklm.open(path)
        if key is None:
            self.log(f"{message} rc=2")
        return key

    def log_list(self, label, names):
        if names and sum(len(name) + 1 for name in names) < 260:
            self.log(f"{label}{{{','.join(names)}}}")
        elif names:
            self.log(label)
            for name in names:
                self.log(f"  <{name}>")

    # Lookups over the network classes. Once the filter's own class is found, NET_SERVICE and the keys above it exist.

    @staticmethod
    def components(base):
        """The NDI keys of the components."""
        return (ndi for ndi in (key.open("NDI") for key in base.enumerate(59)) if ndi)

    def find_component(self, base, value, text):
        return next((ndi for ndi in self.components(base) if string_is(ndi, value, text)), None)

    def filter_class(self, service):
        """(code, class)"""
        base = self.open(NET_SERVICE, "GetFilterClass open NetService base")
        if base is None:
            return NOT_FOUND_FILE, None
        ndi = self.find_component(base, "Service", service)
        if ndi is None:
            self.log(f"{service} has no filter class")
            return NOT_FOUND, None
        value = ndi.value("FilterClass")
        if value is None or value.type != REG_SZ or len(value.data) > 64:
            return GEN_FAILURE, None
        name = units_of(value.data.ljust(64, b"\0")).partition("\0")[0]
        return (0, name) if len(name) + 2 <= 32 else (INSUFFICIENT_BUFFER, None)

    def filter_classes(self):
        """The known classes, or None. Only whole characters that were stored count."""
        value = self.hklm.open(NETWORK).value("FilterClasses")
        if value is None or value.type != REG_MULTI_SZ or len(value.data) > 520:
            self.log("No filter class!")
            return None
        return entries(units_of(value.data))

    def class_services(self, class_name):
        """(code, services)"""
        services = ListBuilder(260)
        for ndi in self.components(self.hklm.open(NET_SERVICE)):
            if string_is(ndi, "FilterClass", class_name):
                _, service = read_string(ndi, "Service")
                if service is not None:
                    if services.room <= len(service) + 1:
                        return INSUFFICIENT_BUFFER, None
                    services.append(service)
        return 0, services.read()

    def service_of_device_id(self, device_id, capacity):
        """(code, service)"""
        ndi = self.find_component(self.hklm.open(NET_SERVICE), "FilterDeviceInfId", device_id)
        _, service = read_string(ndi, "Service") if ndi else (NOT_FOUND, None)
        if service is None:
            return NOT_FOUND, None
        return (0, service) if capacity > len(service) else (INSUFFICIENT_BUFFER, None)

    def device_id(self, service, capacity):
        """(service in the registry's letters, id or None)"""
        ndi = self.find_component(self.hklm.open(NET_SERVICE), "Service", service)
        if ndi is None:
            return service, None
        service = read_string(ndi, "Service")[1]
        _, identifier = read_string(ndi, "FilterDeviceInfId")
        if identifier is not None and capacity < len(identifier) + 1:
            identifier = None
        return service, identifier

    def transports(self):
        base = self.open(NET_TRANS, "GetProto: open NetTrans base")
        if base is None:
            return None
        found = ListBuilder(256)
        for ndi in self.components(base):
            _, service = read_string(ndi, "Service")
            if service is not None and found.room > len(service) + 1:
                self.log(f"NetTransport: {service}")
                found.append(service)
        return found.read()

    def is_top(self, instance, transports):
        linkage = instance.open("LINKAGE")
        if linkage is None:
            self.log(f"IsTopBinding {instance.name}\\LINKAGE open rc=2")
            return False
        buffer, _ = read_list(linkage, "UpperBind", 256, 508)
        if buffer is None:
            self.log(f"No UpperBind: {instance.name} is a leaf")
            return False
        above = entries(buffer)
        node = any(contains(above, transport) for transport in transports)
        self.log(f"{instance.name} is a {'node' if node else 'leaf'}")
        return node

    def ordinal(self, adapters, guid, identifiers):
        for instance in adapters.enumerate(31):
            if string_is(instance, "NetCfgInstanceId", guid):
                _, device_id = read_string(instance, "MatchingDeviceId")
                if device_id is None:
                    self.log(f"ReturnOrdinal: no MatchingDeviceId: {instance.name}")
                    return -1
                return next((i for i, entry in enumerate(identifiers) if same(entry, device_id)), -1)
        return -1

    @staticmethod
    def adapter_service(adapters, guid, capacity):
        """(code, service)"""
        for instance in adapters.enumerate(15):
            ndi = instance.open("NDI")
            if ndi and string_is(instance, "NetCfgInstanceId", guid):
                _, service = read_string(ndi, "Service")
                if service is None:
                    return GEN_FAILURE, None
                return (0, service) if capacity > len(service) else (INSUFFICIENT_BUFFER, None)
        return NOT_FOUND, None

    def owner(self, adapters, guid, capacity):
        """(code, service)"""
        for instance in adapters.enumerate(63):
            if string_is(instance, "NetCfgInstanceId", guid):
                code, device_id = read_string(instance, "MatchingDeviceId")
                if code:
                    return code, None
                code, service = self.service_of_device_id(device_id, capacity)
                if code != NOT_FOUND:
                    return code, service
                break
        return self.adapter_service(adapters, guid, capacity)

    # The order list

    def build_order(self, own_class):
        parameters = self.open(PARAMETERS, "BuildImOrder: open ZTL parameter base")
        order = ["Others"]
        if parameters:
            buffer, _ = read_list(parameters, "IMOrder", 260, 516)
            self.log("<IMOrder> is not set" if buffer is None else "<IMOrder> successfully read from Registry")
            order = order if buffer is None else entries(buffer)
        self.add_entries(order, own_class)
        self.log_list("IM List: ", self.im.read())
        self.log_list("DevID List: ", self.devid.read())

    def add_entries(self, order, own_class):
        class_met = False
        for entry in order:
            if same(entry, "Others"):
                self.log("Adding other IMs...")
                for name in self.filter_classes() if class_met else entries(own_class):
                    self.log(f"-check <{name}> IMs")
                    if contains(order, name):
                        self.log("checked previously, skipping...")
                    elif self.add_class(name, order):
                        return
            elif contains(self.filter_classes() or [], entry):
                self.log(f"<{entry}> is a filter class")
                class_met = True
                if self.add_class(entry, order):
                    return
            else:
                if self.im.room <= len(entry) + 1:
                    self.log("buffer limit2 error")
                    return
                service, identifier = self.device_id(entry, self.devid.room - 1)
                if identifier is None:
                    self.log(f"<{service}> is probably not active")
                else:
                    self.log(f"*add <{service}/{identifier}> to IM list")
                    self.im.append(service)
                    self.devid.append(identifier)

    def add_class(self, class_name, order):
        self.log(f"Adding <{class_name}> IMs...")
        code, services = self.class_services(class_name)
        for name in services or []:
            if contains(self.im.read(), name) or contains(order, name):
                continue
            if self.im.room <= len(name) + 1:
                self.log("buffer limit error")
                break
            service, identifier = self.device_id(name, self.devid.room - 1)
            if identifier is None:
                self.log("no FilterDeviceInfId")
            else:
                self.log(f"+add <{service}/{identifier}> to IM list")
                self.im.append(service)
                self.devid.append(identifier)
        return code

    # The rewrite

    def run(self):
        self.code = self.order_all()
        if self.code == 0:
            self.log(f"OrderIM: success changed={int(self.changed)}")
        return self

    def order_all(self):
        code, own_class = self.filter_class("ZTL")
        if code:
            self.log(f"OrderIM: GetFilterClass rc={code}")
            return code
        self.log(f"ZTL is in filter class <{own_class}>")
        records = self.open(PARAMETERS + "\\Adapters", "DeleteBindOrders: open ZTL param adapters")
        for key in records.enumerate(63) if records else ():
            key.delete("IMOrder")
        self.build_order(own_class)
        transports = self.transports()
        if transports is None:
            self.log("OrderIM: GetProto rc=2")
            return NOT_FOUND_FILE
        adapters = self.open(NET_CLASS, "OrderIM: open net base")
        if adapters is None:
            return NOT_FOUND_FILE
        for instance in adapters.enumerate(31):
            if self.is_top(instance, transports) and self.impose(adapters, instance):
                self.changed = True
        return 0

    def complete(self, name, buffer, size):
        """The size in bytes with the final NULs that the value lacks."""
        chars = size // 2
        for position in (chars - 2, chars - 1):
            if position < 0 or buffer[position] != "\0":
                size += 2
                self.log(f"Fix malformed {name} ")
        return size

    def impose(self, adapters, instance):
        linkage = instance.open("LINKAGE")
        root, root_size = read_list(linkage, "RootDevice", 512, 1020)
        if root is None:
            self.log(f"No RootDevice: {instance.name}")
            return False
        root_size = self.complete("RootDevice", root, root_size)
        above, above_size = read_list(linkage, "UpperBind", 256, 508)  # is_top has found it
        above_size = self.complete("UpperBind", above, above_size)

        stack, count = entries(root), len(entries(root))
        if count <= 16:
            identifiers = self.devid.read()
            ordinals = [self.ordinal(adapters, entry, identifiers) for entry in stack[:-1]] + [-1] * (count > 0)
        swapped = False
        for last in range(count - 3, -1, -1) if count <= 16 else ():
            for j in range(last + 1):
                if ordinals[j] > ordinals[j + 1] >= 0:
                    ordinals[j:j + 2] = ordinals[j + 1], ordinals[j]
                    stack[j:j + 2] = stack[j + 1], stack[j]
                    swapped = True
        if not swapped:
            self.log(f"--keep settings to {instance.name}")
            self.output(adapters, stack, entries(above))
            return False

        self.log(f"++REORDER {instance.name}")
        sorted_root = "".join(entry + "\0" for entry in stack)
        sorted_root += root[len(sorted_root):]
        stored = self.set_order(adapters, stack[0], sorted_root, root_size, above, above_size)
        offset = 0
        for k in range(1, count) if stored else ():
            offset += len(stack[k - 1]) + 1
            if ordinals[k - 1] >= 0:
                service = self.im.read()[ordinals[k - 1]]  # no entry is empty: the IM list is never the shorter one
            else:
                code, service = self.owner(adapters, stack[k - 1], 64)
                if code:
                    self.log(f"Can't find Guid for {stack[k - 1]}")
                    service = None
            if service is not None:
                self.set_order(adapters, stack[k], sorted_root[offset:], root_size - 2 * offset,
                               service + "\0\0", (len(service) + 1) * 2 + 2)
        self.output(adapters, stack, entries(above))
        return stored

    def set_order(self, adapters, first, root, root_size, above, above_size):
        for instance in adapters.enumerate(11):
            linkage = instance.open("LINKAGE")
            if linkage is None:
                self.log(f"SetOrder: {instance.name}\\LINKAGE open rc=2")
                continue
            buffer, _ = read_list(linkage, "RootDevice", 512, 1020)
            if buffer is not None and any(same(entry, first) for entry in entries(buffer)[:1]):
                self.log(f"-{instance.name}\\LINKAGE")
                linkage.set("RootDevice", REG_MULTI_SZ, bytes_of(root)[:root_size])
                linkage.set("UpperBind", REG_MULTI_SZ, bytes_of(above)[:above_size])
                return True
        self.log(f"SetOrder: can't locate {first}")
        return False

    def output(self, adapters, stack, above):
        self.log_list("  UpperBind: ", above)
        services = ListBuilder(260)
        for entry in stack:
            code, service = self.owner(adapters, entry, services.room)
            if code == NOT_FOUND:
                if services.room <= len(entry):
                    self.log("OutputBindOrders: buffer limit error")
                    return
                self.log(f"  RootDevice {entry}")
                services.append(entry)
            elif code == 0:
                self.log(f"  RootDevice {entry} {service}")
                services.append(service)
            else:
                self.log(f"OutputBindOrders: can not continue rc={code}")
                return
        if not (contains(above, "Tcpip") and stack and contains(services.read(), "ZTL")):
            return
        records = self.open(PARAMETERS + "\\Adapters", "OutputBindOrders: open ZTL param adapters")
        record = records.open(stack[-1]) if records else None
        if record:
            record.set("IMOrder", REG_MULTI_SZ, bytes_of(services.buffer + "\0"))
        elif records:
            self.log(f"OutputBindOrders: open ZTL param adapter key {stack[-1]} rc=2")


def upgrade(root):
    """The pass of one upgrade, which changes `root`, and everything that is logged from construction to release."""
    done = OrderPass(root).run()
    done.lines = [
        "--> ::CSampleFilter", "--> ::Initialize", "--> ::Upgrade eActUpgrade", "--> ::ApplyRegistryChanges",
        "--> ::ApplyRegistryChanges default 4", "--> ::ApplyRegistryChanges exit", "--> ::ApplyPnpChanges", *done.lines,
        "--> ::ApplyPnpChanges exit", "--> ::~CSampleFilter ApplyAction=4 OrderIM=1"]
    return done


# ---- Registry exports -----------------------------------------------------------------------------------------------

QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"')


def unquoted(line):
    """(text, what follows) of a line that begins with a quoted text."""
    match = QUOTED.match(line)
    return re.sub(r"\\(.)", r"\1", match[1]), line[match.end():]


def read_export(path, root=None):
    """Merges a registry export (version 5.00, UTF-16 or UTF-8) into `root`, or into an empty registry."""
    root = root or Key()
    with open(path, "rb") as file:
        raw = file.read()
    text = raw[2:].decode("utf-16-le") if raw[:2] == b"\xff\xfe" else raw.decode("utf-8-sig")
    lines = iter(to_units(text).replace("\r\n", "\n").split("\n"))
    if next(lines) != "Windows Registry Editor Version 5.00":
        raise ValueError(f"{path}: not a registry export of version 5.00")
    key = None
    for line in lines:
        if line.startswith("[-"):
            parent, _, name = line[2:-1].rpartition("\\")
            parent = root.open(parent)
            if parent:
                parent.delete_subkey(name)
        elif line.startswith("["):
            key = root.create(line[1:-1])
        elif line.startswith(('"', "@")):
            name, data = ("", line[1:]) if line[0] == "@" else unquoted(line)
            data = data[1:]
            while data.endswith("\\"):
                data = data[:-1] + next(lines).strip()
            if data == "-":
                key.delete(name)
            elif data.startswith('"'):
                key.set(name, REG_SZ, bytes_of(unquoted(data)[0] + "\0"))
            elif data.startswith("dword:"):
                key.set(name, REG_DWORD, struct.pack("<I", int(data[6:], 16)))
            else:
                kind, _, digits = data.partition(":")
                type_ = REG_BINARY if kind == "hex" else int(kind[4:-1], 16)
                key.set(name, type_, bytes.fromhex(digits.replace(",", " ")))
        elif line and not line.startswith(";"):
            raise ValueError(f"{path}: not understood: {line}")
    return root


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def value_line(value):
    line = (quoted(value.name) if value.name else "@") + "="
    text = units_of(value.data)
    if value.type == REG_SZ and bytes_of(to_units(to_text(text))) == value.data and re.fullmatch("[^\0-\x1f]*\0", text):
        return line + quoted(text[:-1])
    if value.type == REG_DWORD and len(value.data) == 4:
        return f"{line}dword:{struct.unpack('<I', value.data)[0]:08x}"
    line += "hex:" if value.type == REG_BINARY else f"hex({value.type:x}):"
    digits, out = value.data.hex(","), []
    while len(digits) > (room := max(3, (79 - len(line)) // 3 * 3)):
        out.append(line + digits[:room] + "\\")
        line, digits = "  ", digits[room:]
    return "\r\n".join(out + [line + digits])


def write_export(root, path, encoding="utf-16-le"):
    parts = ["Windows Registry Editor Version 5.00\r\n"]
    for name, key in root.walk():
        parts += [f"\r\n[{name}]\r\n"] + [value_line(value) + "\r\n" for value in key.values.values()]
    parts = "".join(parts + ["\r\n"])
    with open(path, "wb") as file:
        file.write(b"\xff\xfe" + bytes_of(parts) if encoding == "utf-16-le" else to_text(parts).encode(encoding))


def registry_lines(root):
    """Everything below the hives, one line a key or value, for comparing."""
    lines = []
    for path, key in root.walk():
        if "\\" in path:
            lines.append(f"[{path}]")
            lines += [f"[{path}] {v.name} type {v.type}: {v.data.hex(' ', -2)}" for v in key.values.values()]
    return sorted(lines)


def changed_values(before, after):
    """{(key, name): (value before, value after)} of what differs, None for no value."""
    changes = {}
    old, new = dict(before.walk()), dict(after.walk())
    for path in {**old, **new}:
        a, b = (keys[path].values if path in keys else {} for keys in (old, new))
        for name in {**a, **b}:
            x, y = a.get(name), b.get(name)
            if x is None or y is None or x[1:] != y[1:]:
                changes[path, (x or y).name] = x, y
    return changes


# ---- Machines -------------------------------------------------------------------------------------------------------

# Limits in bytes, what a machine is brought close to (as often as it is named), what is done to a value, odd letters.
LIMITS = {"RootDevice": 1020, "UpperBind": 508, "IMOrder": 516, "FilterClasses": 520, "FilterClass": 64}
LETTERS = "abcdefghijklmnopqrstuvwxyz0123456789"
EDGES = ("services services services ids ids transports class value value value subkey subkey depth unlisted "
         "twins").split()
DAMAGES = "drop type cut odd odd empty limit case hole first other other respell special".split()
STRANGE = to_units("äÖéñøΩжШ网路%\"'😀&")


def sz(text):
    return REG_SZ, bytes_of(text + "\0")


def multi(names):
    return REG_MULTI_SZ, bytes_of("".join(name + "\0" for name in names) + "\0")


class Generator:
    """One random machine. `wild` says how far it is from a clean one, `edge` which limit it is made to meet, if any."""

    def __init__(self, rng):
        self.rng, self.root = rng, Key()
        self.hklm = self.root.create(HKLM)
        self.edge = rng.choice(EDGES) if rng.random() < 0.7 else None
        self.wild = rng.choice((0, 0, 0.1) if self.edge else (0, 0.1, 0.3, 1))
        self.short_ids = self.edge == "depth" or rng.random() < 0.05
        self.name_length = rng.choice((6, 6, 6, 14, 28, 60))
        self.ids = 0
        self.build()

    def wildly(self, chance):
        return self.rng.random() < chance * self.wild

    def recase(self, text):
        return "".join(self.rng.choice((c, c.swapcase())) for c in text)

    def spelled(self, text):
        return self.recase(text) if self.rng.random() < 0.1 + 0.3 * self.wild else text

    def word(self, length):
        letters = LETTERS + (STRANGE if self.wildly(0.3) else "")
        return to_units(to_text("".join(self.rng.choice(letters) for _ in range(length))).replace("\ufffd", "x"))

    def name(self):
        length = self.rng.randint(max(2, self.name_length - 6), self.name_length)
        return self.recase(self.word(self.rng.choice((62, 63, 64)) if self.wildly(0.1) else length))

    def identifier(self):
        self.ids += 1
        if self.short_ids:
            return f"{{{self.ids}}}"
        parts = [self.rng.getrandbits(bits) for bits in (32, 16, 16, 16, 48)]
        return "{%08X-%04X-%04X-%04X-%012X}" % tuple(parts) if not self.wildly(0.05) else f"{{É{self.ids}}}"

    def near(self, limit):
        return limit + self.rng.randint(-1, 1)

    def filling(self, total):
        """Names that take `total` characters of a list, their terminators included."""
        names = []
        while total > 0:
            size = total if total <= 64 else self.rng.randint(22, min(64, total - 10))
            names.append(self.recase("".join(self.rng.choice(LETTERS) for _ in range(size - 1))))
            total -= size
        return names

    def build(self):
        rng = self.rng
        self.classes = [self.name()[:30] for _ in range(rng.randint(1, 5))]
        if self.edge == "class":
            self.classes[0] = self.word(rng.randint(29, 32))
        self.own_class = self.classes[0]
        self.drivers = [("ZTL", self.own_class, "qro_ztlm")]
        if self.edge == "services":
            self.lost = rng.random() < 0.3  # so that its instance GUID, 38 characters, stands among the services
            names = self.filling(self.near(221 if self.lost else rng.choice((253, 256, 260, 260))) - 4)
            self.drivers += [(name, self.own_class, self.word(5)) for name in names]
        elif self.edge == "ids":
            names = self.filling(self.near(rng.choice((260, 512))) - 9)
            self.drivers += [(self.word(4), self.own_class, name) for name in names]
        else:
            for _ in range(rng.choice((1, 2, 3, 4, 5, 6, 9))):
                device_id = self.name()[:60] + "_m" if rng.random() < 0.7 else self.drivers[0][2] + self.word(3)
                self.drivers.append((self.name(), rng.choice(self.classes + [self.own_class] * 2), device_id))
        if self.edge == "twins":
            self.drivers.append((self.name(), self.own_class, rng.choice(self.drivers)[2]))
        elif self.edge == "unlisted":
            self.drivers[-1] = (self.word(rng.choice((62, 63, 63, 64))), "nobody's", self.drivers[-1][2])
        self.build_components()
        self.build_adapters()
        self.build_settings()
        other = self.hklm.create("SOFTWARE\\" + self.word(5))
        other.set("", *sz('C:\\Program Files\\"' + self.word(4) + '"'))
        other.set(self.word(7), 11, rng.randbytes(8))
        other.set("hook\\", REG_BINARY, rng.randbytes(rng.randrange(60)))
        other.set("count", REG_DWORD, rng.randbytes(4))
        if self.edge == "value":
            self.damage("limit", rng.choice(("linkage", "linkage", "settings", "instance", "component")))
        for _ in range(4 if self.edge == "subkey" else 0):
            self.rename_subkey()
        if self.wild:
            for _ in range(rng.randrange(int(30 * self.wild ** 0.5))):
                self.damage(rng.choice(DAMAGES))
        if rng.random() < 0.05:
            self.break_base()

    def build_components(self):
        rng, self.own_component = self.rng, None
        for service, class_name, device_id in rng.sample(self.drivers, len(self.drivers)):
            path = f"{NET_SERVICE}\\{self.identifier()}"
            self.own_component = path if service == "ZTL" else self.own_component
            ndi = self.hklm.create(path + "\\Ndi")
            ndi.set("Service", *sz(self.spelled(service)))
            ndi.set("FilterClass", *sz(self.spelled(class_name)))
            if service == "ZTL" and self.edge == "class" and rng.random() < 0.5:  # without its NUL
                ndi.set("FilterClass", REG_SZ, bytes_of(class_name))
            if not self.wildly(0.1):
                ndi.set("FilterDeviceInfId", *sz(self.spelled(device_id)))
        for service in ("LanmanServer", "RemoteAccess", rng.choice(self.drivers)[0])[:rng.choice((2, 2, 3))]:
            component = self.hklm.create(f"{NET_SERVICE}\\{self.identifier()}")
            if rng.random() < 0.8:
                component.create("Ndi").set("Service", *sz(service))
        self.transports = ["Tcpip", "Tcpip6", "NdisWan", "RasPppoe"][:rng.randint(1, 4)]
        if self.edge == "transports":
            self.transports = ["Tcpip"] + self.filling(self.near(256) - 6)
        if self.wildly(0.1):
            self.transports.append("")
        rng.shuffle(self.transports)
        for service in self.transports:
            transport = self.hklm.create(f"{NET_TRANS}\\{self.identifier()}\\Ndi")
            transport.set("Service", *sz(service))

    def build_adapters(self):
        rng = self.rng
        instances = []  # (instance GUID, device id, service, root device, upper bind)
        self.physical = []
        for _ in range(rng.choice((1, 2, 3, 4, 6, 12))):
            depth = rng.randint(0, 12 if self.wildly(0.1) else 6)
            if self.edge == "depth":
                depth = rng.choice((14, 15, 15, 16, 16, 18))
            elif self.edge in ("services", "unlisted") and len(self.drivers) < 13:
                depth = len(self.drivers)
            if depth <= len(self.drivers):
                stack = rng.sample(self.drivers, depth)
                if stack and self.drivers[0] not in stack and rng.random() < 0.7:
                    stack[rng.randrange(depth)] = self.drivers[0]
            else:
                stack = rng.choices(self.drivers, k=depth)
            ids = [self.identifier() for _ in range(depth + 1)]
            self.physical.append(ids[-1])
            tops = rng.choice((["Tcpip"], ["Tcpip", "Tcpip6"], [rng.choice(self.transports)], ["Unknown"]))
            for level in range(depth + 1):
                above = [stack[level - 1][0]] if level else tops
                device_id = stack[level][2] if level < depth else "pci\\ven_10ff&dev_" + self.word(4)
                service = stack[level][0] if level < depth else "nic" + self.word(3)
                if not (self.edge == "services" and self.lost and level == depth):
                    instances.append((ids[level], device_id, service, ids[level:], above))
        for _ in range(rng.randrange(4)):  # WAN miniports
            own = self.identifier()
            root = rng.choice((own, "NdisWanIpv6"))
            instances.append((own, "ms_wan", "wanmp", [root], [rng.choice(("NdisWan", ""))]))
        rng.shuffle(instances)
        self.tops = set()
        class_key = self.hklm.create(NET_CLASS)
        for number, (own, device_id, service, root, above) in enumerate(instances):
            key = class_key.create(f"{number:04}")
            key.set("DriverDesc", *sz(self.name()))
            if len(root) > 2 and above[0] in self.transports:
                self.tops.add(key.name)
            key.set("MatchingDeviceId", *sz(self.spelled(device_id)))
            key.set("NetCfgInstanceId", *sz(self.spelled(own)))
            key.create("Ndi").set("Service", *sz(service))
            key.create("Ndi\\Interfaces").set("UpperRange", *sz("ndis5"))
            linkage = key.create("Linkage")
            linkage.set("RootDevice", *multi(map(self.spelled, root)))
            linkage.set("UpperBind", *multi(map(self.spelled, above)))
            linkage.set("Export", *multi(f"\\Device\\{own}" for own in root))
        if rng.random() < 0.5:
            class_key.create("Properties")

    def build_settings(self):
        rng = self.rng
        listed = rng.sample(self.classes, rng.randint(len(self.classes) - 1, len(self.classes))) + [self.name()]
        if rng.random() < 0.95:
            self.hklm.create(NETWORK).set("FilterClasses", *multi(map(self.spelled, listed)))
        parameters = self.hklm.create(PARAMETERS)
        known = self.classes * 2 + [driver[0] for driver in self.drivers] * 2 + ["Others"] * 3 + [self.name()]
        order = rng.sample(known, rng.randint(0, min(len(known), 8)))
        if self.edge in ("services", "ids"):
            services = [driver[0] for driver in self.drivers]
            order = rng.choice(([self.own_class], ["Others"], rng.sample(services, len(services))))
        if rng.random() < 0.8 or self.edge in ("services", "ids"):
            parameters.set("IMOrder", *multi(map(self.spelled, order)))
        for guid in self.physical:
            if rng.random() < 0.85:
                record = parameters.create("Adapters\\" + self.spelled(guid))
                record.set("BundleId", *sz(self.word(8)))
                if rng.random() < 0.5:
                    record.set("IMOrder", *multi(["ZTL", "older"]))
        if rng.random() < 0.1:
            parameters.create("Adapters\\spare").set("IMOrder", *multi(["stale"]))

    def target(self, place):
        """(key, value name) to damage."""
        rng = self.rng
        if place == "settings":
            path, name = rng.choice(((NETWORK, "FilterClasses"), (PARAMETERS, "IMOrder"), (PARAMETERS, "IMOrder")))
            return self.hklm.open(path), name
        base = rng.choice((NET_SERVICE, NET_SERVICE, NET_TRANS)) if place == "component" else NET_CLASS
        keys = list(self.hklm.open(base).enumerate())
        tops = [key for key in keys if key.name in self.tops]
        key = rng.choice(tops if place == "linkage" and tops and rng.random() < 0.7 else keys)
        name = rng.choice({"linkage": ("RootDevice", "RootDevice", "UpperBind"), "ndi": ("Service",),
                           "instance": ("MatchingDeviceId", "NetCfgInstanceId"),
                           "component": ("Service", "FilterClass", "FilterDeviceInfId")}[place])
        below = {"linkage": "Linkage", "instance": ""}.get(place, "Ndi")
        if below and self.rng.random() < 0.06:
            key.delete_subkey(below)
        return key.open(below) if below else key, name

    def damage(self, how, place=None):
        rng = self.rng
        place = place or rng.choice(("linkage",) * 4 + ("component",) * 3 + ("instance", "ndi", "settings"))
        key, name = self.target(place)
        value = key.value(name) if key else None
        if value is None:
            return
        name, type_, data = value
        if how in ("drop", "respell"):
            key.delete(name)
        if how == "type":
            type_ = rng.choice((REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ))
        elif how == "cut":
            data = data[:-rng.choice((1, 2, 2, 3, 4, 4, 5))]
        elif how == "odd":
            data = data[:len(data) - rng.choice((0, 2, 2, 4))] + rng.choice((b"\0", b"A"))
        elif how == "empty":
            data = rng.choice((b"", b"\0", b"\0\0", b"\0\0\0\0"))
        elif how == "case":
            data = bytes_of(self.recase(units_of(data)))
        elif how == "hole":
            text = units_of(data)
            ends = [i for i, c in enumerate(text) if c == "\0"] + [-1]
            at = rng.choice(ends) + 1
            data = bytes_of(text[:at] + "\0" + text[at:])
        elif how == "first":
            data = bytes_of(rng.choice(("x", "ZTL", "{none}", self.word(60), self.word(130))) + "\0") + data
        elif how == "limit":
            data = self.at_limit(LIMITS.get(name, 128), type_, units_of(data).rstrip("\0"))
        elif how == "special" and type_ == REG_SZ:
            type_, data = sz(rng.choice(("ZTL", "Tcpip", "Others", "", self.own_class, rng.choice(self.drivers)[0])))
        elif how == "respell":
            name = self.recase(name)
        elif how == "other":
            twin, twin_name = self.target(place)
            value = twin.value(twin_name) if twin else None
            data = value.data if value and value.type == type_ else data
        if how != "drop":
            key.set(name, type_, data)

    def at_limit(self, limit, type_, text):
        size = limit + self.rng.choice((-2, -1, 0, 0, 1, 2))
        while len(text) < size // 2:
            text += ("\0" if type_ == REG_MULTI_SZ else "") + self.word(self.rng.randint(1, 70))
        ends = self.rng.choice((0, 1, 2))
        text = text[:size // 2 - ends] + "\0" * ends
        return bytes_of(text) + b"A" * (size % 2)

    def rename_subkey(self):
        """Gives a subkey a name as long as an enumeration allows, or longer, at any place in the order."""
        path = self.rng.choice((NET_CLASS, NET_CLASS, NET_CLASS, NET_SERVICE, NET_TRANS, PARAMETERS + "\\Adapters"))
        limits = (11, 15, 31, 63) if path == NET_CLASS else (59, 63)
        base = self.hklm.open(path)
        if base:
            key = self.rng.choice(list(base.enumerate()))
            base.delete_subkey(key.name)
            start = self.rng.choice(("!", "0", "{8", "z", "z")) + self.word(3)
            new = base.create(start.ljust(self.rng.choice(limits) + self.rng.choice((0, 1)), "n"))
            new.values, new.subkeys = key.values, key.subkeys

    def break_base(self):
        bases = (self.own_component, NET_SERVICE, NET_TRANS, NET_CLASS, PARAMETERS, PARAMETERS + "\\Adapters")
        parent, _, name = self.rng.choice(bases).rpartition("\\")
        if self.hklm.open(parent):
            self.hklm.open(parent).delete_subkey(name)


# ---- Examples worked out by hand ------------------------------------------------------------------------------------

def example_machine(order, components, adapters=()):
    """components: (service, class, device id); adapters: (subkey, GUID, device id, service, RootDevice, UpperBind)."""
    root = Key()
    hklm = root.create(HKLM)
    hklm.create(NETWORK).set("FilterClasses", *multi(["c1", "c2"]))
    for i, (service, class_name, device_id) in enumerate(components):
        ndi = hklm.create(f"{NET_SERVICE}\\{i:04}\\Ndi")
        for name, text in (("Service", service), ("FilterClass", class_name), ("FilterDeviceInfId", device_id)):
            if text is not None:
                ndi.set(name, *sz(text))
    hklm.create(NET_TRANS + "\\0000\\Ndi").set("Service", *sz("Tcpip"))
    hklm.create(NET_CLASS)
    for subkey, guid, device_id, service, stack, above in adapters:
        key = hklm.create(f"{NET_CLASS}\\{subkey}")
        key.set("NetCfgInstanceId", *sz(guid))
        key.set("MatchingDeviceId", *sz(device_id))
        key.create("Ndi").set("Service", *sz(service))
        key.create("Linkage").set("RootDevice", *multi(stack))
        key.open("Linkage").set("UpperBind", *multi(above))
    hklm.create(PARAMETERS + "\\Adapters\\gP")
    if order is not None:
        hklm.open(PARAMETERS).set("IMOrder", *multi(order))
    return root


def self_check():
    three = [("ZTL", "c1", "z"), ("X", "c1", "x"), ("Y", "c2", "y")]

    def lists(order, components=three):
        done = OrderPass(example_machine(order, components)).run()
        return done.im.read(), done.devid.read()

    for order, components, expected in (
            (["c2", "ZTL", "Others"], three, ("Y ZTL X", "y z x")),
            (["ZTL", "Others"], three, ("ZTL X", "z x")),
            (["Others", "c2"], three, ("ZTL X Y", "z x y")),
            (["C1", "x", "X", "none"], three, ("ZTL X X", "z x x")),
            (None, three, ("ZTL X", "z x")),
            ([], three, ("", "")),
            (None, three + [("W", "c1", None), ("V", "c1", "v")], ("ZTL X V", "z x v")),
            (["x" * 63, "y" * 63, "z" * 62, "w" * 60, "ZTL"],
             [(c * n, "c2", c) for c, n in zip("xyzw", (63, 63, 62, 60))] + three,
             (f"{'x' * 63} {'y' * 63} {'z' * 62} {'w' * 60}", "x y z w"))):
        assert lists(order, components) == tuple(text.split() for text in expected), (order, lists(order, components))
    log = OrderPass(example_machine(["c2", "ZTL", "Others"], three)).run().lines
    assert log == [
        "ZTL is in filter class <c1>", "<IMOrder> successfully read from Registry", "<c2> is a filter class",
        "Adding <c2> IMs...", "+add <Y/y> to IM list", "*add <ZTL/z> to IM list", "Adding other IMs...",
        "-check <c1> IMs", "Adding <c1> IMs...", "+add <X/x> to IM list", "-check <c2> IMs",
        "checked previously, skipping...", "IM List: {Y,ZTL,X}", "DevID List: {y,z,x}", "NetTransport: Tcpip",
        "OrderIM: success changed=0"], log

    drivers = [("ZTL", "c1", "a"), ("B", "c1", "b")]
    adapters = [("0000", "gP", "pci", "D", ["gP"], ["ZTL"]), ("0001", "gM", "a", "ZTL", ["gM", "gP"], ["B"]),
                ("0002", "gT", "b", "B", ["gT", "gM", "gP"], ["Tcpip"])]
    record = PARAMETERS + "\\Adapters\\gP"
    stored = (("RootDevice", "0001", ["gM", "gT", "gP"]), ("UpperBind", "0001", ["Tcpip"]),
              ("RootDevice", "0002", ["gT", "gP"]), ("UpperBind", "0002", ["ZTL"]),
              ("RootDevice", "0000", ["gP"]), ("UpperBind", "0000", ["B"]))
    for cut in (0, 2, 4):  # bytes that the top's lists lack at their end
        root = example_machine(["ZTL", "B"], drivers, adapters)
        for name in ("RootDevice", "UpperBind") if cut else ():
            linkage = root.open(f"{HKLM}\\{NET_CLASS}\\0002\\Linkage")
            linkage.set(name, REG_MULTI_SZ, linkage.value(name).data[:-cut])
        done = OrderPass(root).run()
        expected = [
            "0000 is a leaf", "0001 is a leaf", "0002 is a node",
            *["Fix malformed RootDevice "] * (cut // 2), *["Fix malformed UpperBind "] * (cut // 2),
            "++REORDER 0002", "-0001\\LINKAGE", "-0002\\LINKAGE", "-0000\\LINKAGE", "  UpperBind: {Tcpip}",
            "  RootDevice gM ZTL", "  RootDevice gT B", "  RootDevice gP D",
            "OrderIM: success changed=1"]
        assert done.changed and done.lines[-len(expected):] == expected, done.lines
        for name, subkey, names in stored:
            data = root.open(f"{HKLM}\\{NET_CLASS}\\{subkey}\\Linkage").value(name)[1:]
            assert data == multi(names), (name, subkey, data)
        assert root.open(f"{HKLM}\\{record}").value("IMOrder")[1:] == multi(["ZTL", "B", "D"])
        again = root.copy()
        done = OrderPass(again).run()
        assert not done.changed and "--keep settings to 0001" in done.lines
        assert not changed_values(root, again)

    for total, expected in ((259, 1), (260, 5)):  # one line, or the label and one line an entry
        done = OrderPass(Key())
        done.log_list("L: ", ["x" * 63] * 3 + ["x" * (total - 193)])
        assert len(done.lines) == expected, done.lines
    print("self-check passed")
    return 0


# ---- The driver -----------------------------------------------------------------------------------------------------

def difference(title, expected, actual):
    if expected == actual:
        return None
    lines = list(difflib.unified_diff(expected, actual, "model", "ztlsim", lineterm="", n=2))
    return "\n".join([f"{title} differ:"] + lines[:60] + ["..."] * (len(lines) > 60))


def check_machine(ztlsim, machine, folder):
    """(outcome, difference or None) of one machine."""
    out, changes = os.path.join(folder, "out.reg"), os.path.join(folder, "changes.reg")
    before = read_export(machine)
    after = before.copy()
    done = upgrade(after)
    outcome = "stopped" if done.code else "changed" if done.changed else "unchanged"

    command = [ztlsim, "run", "upgrade", "--machine", machine, "--out", out, "--changes", changes, "--json"]
    run = subprocess.run(command, capture_output=True, timeout=60, check=False)
    if run.returncode:
        return outcome, f"{' '.join(command)}\nended with {run.returncode}:\n{run.stderr.decode(errors='replace')}"
    told = json.loads(run.stdout)
    told_results = [told["result"][name] for name in ("ApplyRegistryChanges", "ApplyPnpChanges")]
    pairs = {(upper(key), upper(name)) for key, name in changed_values(before, after)}
    told_pairs = {(upper(to_units(change["key"])), upper(to_units(change["name"]))) for change in told["changes"]}
    registry = registry_lines(after)
    return outcome, (
        difference("logs", list(map(to_text, done.lines)), told["log"])
        or difference("results", ["0x00000000", f"0x{REBOOT * done.changed:08X}"], told_results)
        or difference("reboot_required", [str(done.changed)], [str(told["reboot_required"])])
        or difference("im_list", list(map(to_text, done.im.read())), told["im_list"])
        or difference("devid_list", list(map(to_text, done.devid.read())), told["devid_list"])
        or difference("registries", registry, registry_lines(read_export(out)))
        or difference("changes", sorted(map(str, pairs)), sorted(map(str, told_pairs)))
        or difference("registries after the changes file", registry, registry_lines(read_export(changes, before))))


def drive(arguments):
    folder = tempfile.mkdtemp(prefix="order_model.")
    outcomes = collections.Counter(changed=0, unchanged=0, stopped=0)
    started = time.monotonic()
    for index in range(arguments.start, arguments.start + arguments.count):
        machine = os.path.join(folder, "machine.reg")
        write_export(Generator(random.Random(f"{arguments.seed}/{index}")).root, machine,
                     "utf-8" if index % 4 == 3 else "utf-16-le")
        outcome, wrong = check_machine(arguments.ztlsim, machine, folder)
        outcomes[outcome] += 1
        if wrong:
            keep = arguments.keep or tempfile.gettempdir()
            kept = os.path.join(keep, f"machine-{arguments.seed}-{index}.reg")
            os.makedirs(keep, exist_ok=True)
            shutil.copy(machine, kept)
            shutil.rmtree(folder)
            print(f"machine {index} of seed {arguments.seed} (--seed {arguments.seed} --start {index} --count 1), "
                  f"kept as {kept}:\n{wrong}")
            return 1
    shutil.rmtree(folder)
    print(f"{arguments.count} machines in {time.monotonic() - started:.1f} s: "
          + ", ".join(f"{number} {outcome}" for outcome, number in outcomes.items()))
    return int(arguments.count >= 200 and 0 in outcomes.values())


def show(path):
    before = read_export(path)
    after = before.copy()
    done = upgrade(after)
    print("\n".join(to_text(line) for line in done.lines))
    for (key, name), values in changed_values(before, after).items():
        print(f"\n[{key}] {name}")
        for when, value in zip(("before", "after"), values):
            print(f"  {when}:", f"{len(value.data)} bytes {entries(units_of(value.data))}" if value else "no value")
    return 0


def main():
    parser = argparse.ArgumentParser(description="Holds ztlsim's binding-order pass against a model of its own.")
    parser.add_argument("--ztlsim", metavar="PATH")
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--start", type=int, default=0)
    parser.add_argument("--keep", metavar="DIR", help="where the machine of a difference is kept")
    parser.add_argument("--machine", metavar="FILE")
    parser.add_argument("--self-check", action="store_true")
    arguments = parser.parse_args()
    if arguments.self_check:
        return self_check()
    if arguments.machine:
        return show(arguments.machine)
    if not arguments.ztlsim:
        parser.error("one of --ztlsim, --machine and --self-check is needed")
    return drive(arguments)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="replace")
    sys.exit(main())
