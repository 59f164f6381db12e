#!/usr/bin/env python3
"""A model of the binding-order and repair passes, written apart from the module, and the driver that holds ztlsim
against it.

Runs `ztlsim run upgrade` on random machines whose configuration lock is held, and compares the log, the time waited, the
lists, the results, the changes and the registry afterwards with the model's; ends at the first difference and keeps its
machine.
"""
import argparse
import concurrent.futures
import difflib
import itertools
import json
import os
import random
import re
import subprocess
import tempfile

REG_SZ, REG_MULTI_SZ = 1, 7
NOT_FOUND_FILE, GEN_FAILURE, INSUFFICIENT_BUFFER, MORE_DATA, NOT_FOUND = 2, 31, 122, 234, 1168
CONTROL, SERVICES = "SYSTEM\\CurrentControlSet\\Control", "SYSTEM\\CurrentControlSet\\Services"
NETWORK = CONTROL + "\\Network"
NET_SERVICE = NETWORK + "\\{4D36E974-E325-11CE-BFC1-08002BE10318}"
NET_TRANS = NETWORK + "\\{4D36E975-E325-11CE-BFC1-08002BE10318}"
NET_CLASS = CONTROL + "\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}"
PARAMETERS = SERVICES + "\\ZTL\\Parameters"
RECORDS = PARAMETERS + "\\Adapters"
MARKER = SERVICES + "\\ZTL\\CheckBindLoop"
DEVICES = CONTROL + "\\DeviceClasses\\{AD498944-762F-11D0-8DCB-00C04FC3358C}"


class Key:
    def __init__(self, name):
        self.name, self.subkeys, self.values = name, {}, {}  # both by upper-cased name

    def open(self, path, create=False):
        level, _, below = path.partition("\\")
        key = self.subkeys.setdefault(level.upper(), Key(level)) if create else self.subkeys.get(level.upper())
        return key.open(below, create) if key and below else key

    def enumerate(self, longest):
        """The subkeys in the registry's order; a name that is too long for the caller's buffer ends the enumeration."""
        return itertools.takewhile(lambda key: len(key.name) <= longest, map(self.subkeys.get, sorted(self.subkeys)))

    def set(self, name, type_, data):
        self.values[name.upper()] = (self.values.get(name.upper(), (name,))[0], type_, data)


def raw(text):
    return text.encode("utf-16-le")


def read(key, name, type_, limit):
    """(code, text, bytes read): a value of this type and of up to `limit` bytes in a zeroed buffer of 520 characters"""
    _, stored, data = (key.values if key else {}).get(name.upper(), (None, None, b""))
    code = NOT_FOUND_FILE if stored is None else MORE_DATA if len(data) > limit else GEN_FAILURE * (stored != type_)
    return code, "" if code else data.ljust(1040, b"\0").decode("utf-16-le"), len(data)


def read_string(key, name):
    """(code, text): a REG_SZ value, whose NUL must be among its 64 characters"""
    code, buffer, _ = read(key, name, REG_SZ, 128)
    text = buffer.partition("\0")[0]
    return (0, text) if not code and len(text) < 64 else (code or MORE_DATA, None)


def string(key, name):
    return read_string(key, name)[1] if key else None


def same(a, b):
    """What the pass compares: A-Z count as a-z, every other character as itself."""
    return None not in (a, b) and a.encode().lower() == b.encode().lower()


def contains(names, name):
    return any(same(entry, name) for entry in names)


def first(keys):
    return next(filter(None, keys), None)


def entries(buffer):
    """What a reader of a multi-string sees: the entries up to the first empty one, or to the end of the buffer."""
    return list(itertools.takewhile(bool, buffer.split("\0")))


def joined(names):
    return "".join(name + "\0" for name in names)


def fits(names, name, capacity):
    """Whether a list of `capacity` characters has room for the name, its NUL and the list's NUL."""
    return len(joined(names)) + len(name) + 1 < capacity


class OrderPass:
    """One pass, which changes the registry and adds to the log: its two lists and how it ended."""

    def __init__(self, hklm, lines):
        self.hklm, self.lines, self.im, self.devid, self.outcome = hklm, lines, [], [], "stopped"
        self.log = self.lines.append
        self.run()

    def open(self, path, *messages):
        key = self.hklm.open(path)
        self.lines += [f"{message} rc=2" for message in messages if not key]
        return key

    def log_list(self, label, names):
        if len(joined(names)) >= 260:
            self.lines += [label] + [f"  <{name}>" for name in names]
        elif names:
            self.log(f"{label}{{{','.join(names)}}}")

    def components(self, path):
        return filter(None, (key.open("NDI") for key in self.hklm.open(path).enumerate(59)))

    def find(self, value, text):
        return first(ndi for ndi in self.components(NET_SERVICE) if same(string(ndi, value), text))

    def run(self):
        if not self.open(NET_SERVICE, "GetFilterClass open NetService base", "OrderIM: GetFilterClass"):
            return None
        own = self.find("Service", "ZTL")
        code, buffer, _ = read(own, "FilterClass", REG_SZ, 64)
        own_class = buffer.partition("\0")[0]
        if code or len(own_class) + 2 > 32:
            self.lines += ["ZTL has no filter class"] * (not own)
            code = NOT_FOUND if not own else GEN_FAILURE if code else INSUFFICIENT_BUFFER
            return self.log(f"OrderIM: GetFilterClass rc={code}")
        self.log(f"ZTL is in filter class <{own_class}>")
        records = self.open(RECORDS, "DeleteBindOrders: open ZTL param adapters")
        for record in records.enumerate(63) if records else ():
            record.values.pop("IMORDER", None)
        self.add_entries(self.configured_order(), own_class)
        self.log_list("IM List: ", self.im)
        self.log_list("DevID List: ", entries(joined(self.devid)))
        if not self.open(NET_TRANS, "GetProto: open NetTrans base", "OrderIM: GetProto"):
            return None
        transports = []
        for service in (string(ndi, "Service") for ndi in self.components(NET_TRANS)):
            if service is not None and fits(transports, service, 256):
                self.log(f"NetTransport: {service}")
                transports.append(service)
        self.adapters = self.open(NET_CLASS, "OrderIM: open net base")
        if self.adapters:
            changed = any([self.is_top(key, transports) and self.impose(key) for key in self.adapters.enumerate(31)])
            self.log(f"OrderIM: success changed={int(changed)}")
            self.outcome = "changed" if changed else "unchanged"

    def filter_classes(self):
        code, buffer, size = read(self.hklm.open(NETWORK), "FilterClasses", REG_MULTI_SZ, 520)  # above NET_SERVICE
        if code:
            self.log("No filter class!")
        return entries(buffer[:size // 2])  # without half a character

    def is_top(self, instance, transports):
        linkage = instance.open("LINKAGE")
        if not linkage:
            return self.log(f"IsTopBinding {instance.name}\\LINKAGE open rc=2")
        code, above, _ = read(linkage, "UpperBind", REG_MULTI_SZ, 508)
        node = any(contains(entries(above), transport) for transport in entries(joined(transports)))
        self.log(("No UpperBind: " if code else "") + instance.name + (" is a node" if node else " is a leaf"))
        return node

    def instances(self, guid, longest):
        return (key for key in self.adapters.enumerate(longest) if same(string(key, "NetCfgInstanceId"), guid))

    def ordinal(self, guid):
        instance = first(self.instances(guid, 31))
        device_id = string(instance, "MatchingDeviceId")
        if instance and device_id is None:
            self.log(f"ReturnOrdinal: no MatchingDeviceId: {instance.name}")
        return next((i for i, known in enumerate(entries(joined(self.devid))) if same(known, device_id)), -1)

    def owner(self, guid, capacity):
        """(code, service)"""
        instance = first(self.instances(guid, 63))
        code, device_id = read_string(instance, "MatchingDeviceId") if instance else (0, None)
        service = string(self.find("FilterDeviceInfId", device_id), "Service")
        if service is None and not code:
            ndi = first(instance.open("NDI") for instance in self.instances(guid, 15))
            code, service = GEN_FAILURE if ndi else NOT_FOUND, string(ndi, "Service")
        return code if service is None else 0 if capacity > len(service) else INSUFFICIENT_BUFFER, service

    def configured_order(self):
        parameters = self.open(PARAMETERS, "BuildImOrder: open ZTL parameter base")
        code, buffer, _ = read(parameters, "IMOrder", REG_MULTI_SZ, 516)
        if parameters:
            self.log("<IMOrder> is not set" if code else "<IMOrder> successfully read from Registry")
        return ["Others"] if code else entries(buffer)

    def add_entries(self, order, own_class):
        class_met = False
        for entry in order:
            if same(entry, "Others"):
                self.log("Adding other IMs...")
                for name in self.filter_classes() if class_met else entries(own_class):
                    self.log(f"-check <{name}> IMs")
                    if contains(order, name):
                        self.log("checked previously, skipping...")
                    elif not self.add_class(name, order):
                        return
            elif contains(self.filter_classes(), entry):
                self.log(f"<{entry}> is a filter class")
                class_met = True
                if not self.add_class(entry, order):
                    return
            elif fits(self.im, entry, 256):
                self.add_driver("*", entry, "<{}> is probably not active")
            else:
                return self.log("buffer limit2 error")

    def add_class(self, class_name, order):
        """False ends the list."""
        self.log(f"Adding <{class_name}> IMs...")
        members = (ndi for ndi in self.components(NET_SERVICE) if same(string(ndi, "FilterClass"), class_name))
        services = joined(service for service in (string(ndi, "Service") for ndi in members) if service is not None)
        if len(services) >= 260:
            return False
        for service in entries(services):
            if not contains(self.im + order, service):
                if not fits(self.im, service, 256):
                    self.log("buffer limit error")
                    break
                self.add_driver("+", service, "no FilterDeviceInfId")
        return True

    def add_driver(self, sign, service, without_id):
        """Adds a driver, in the registry's letters, that has a device id for which there is room."""
        ndi = self.find("Service", service)
        service, device_id = string(ndi, "Service") or service, string(ndi, "FilterDeviceInfId")
        if device_id is None or not fits(self.devid, device_id, 512):
            return self.log(without_id.format(service))
        self.log(f"{sign}add <{service}/{device_id}> to IM list")
        self.im.append(service)
        self.devid.append(device_id)

    def impose(self, instance):
        """Sorts a stack; whether its new top was stored."""
        lists = []
        for name, limit in (("RootDevice", 1020), ("UpperBind", 508)):
            code, text, size = read(instance.open("LINKAGE"), name, REG_MULTI_SZ, limit)
            if code:  # UpperBind is there: is_top has read it
                return self.log(f"No RootDevice: {instance.name}")
            missing = sum(end < 0 or text[end] != "\0" for end in (size // 2 - 2, size // 2 - 1))
            self.lines += [f"Fix malformed {name} "] * missing
            lists += [text, size + 2 * missing]
        root, root_size, above, above_size = lists
        stack, stored = entries(root), False
        ordinals = [self.ordinal(guid) for guid in stack[:-1]] + [-1] if len(stack) <= 16 else [-1] * len(stack)
        # Those without an ordinal stay where they are; each run between them is sorted.
        runs = itertools.groupby(zip(ordinals, stack), key=lambda pair: pair[0] < 0)
        pairs = [pair for _, run in runs for pair in sorted(run, key=lambda pair: pair[0])]
        if pairs == list(zip(ordinals, stack)):
            self.log(f"--keep settings to {instance.name}")
        else:
            self.log(f"++REORDER {instance.name}")
            stack = [guid for _, guid in pairs]
            root = joined(stack) + root[len(joined(stack)):]
            stored = self.set_order(root, root_size, above, above_size)
        for ordinal, guid in pairs[:-1] if stored else ():
            root, root_size = root[len(guid) + 1:], root_size - 2 * (len(guid) + 1)
            code, service = (0, self.im[ordinal]) if ordinal >= 0 else self.owner(guid, 64)
            if code:
                self.log(f"Can't find Guid for {guid}")
            else:
                self.set_order(root, root_size, service + "\0\0", 2 * len(service) + 4)
        self.output(stack, entries(above))
        return stored

    def set_order(self, root, root_size, above, above_size):
        name = entries(root)[0]
        for instance in self.adapters.enumerate(11):
            linkage = instance.open("LINKAGE")
            if not linkage:
                self.log(f"SetOrder: {instance.name}\\LINKAGE open rc=2")
            elif contains(entries(read(linkage, "RootDevice", REG_MULTI_SZ, 1020)[1])[:1], name):
                self.log(f"-{instance.name}\\LINKAGE")
                linkage.set("RootDevice", REG_MULTI_SZ, raw(root)[:root_size])
                linkage.set("UpperBind", REG_MULTI_SZ, raw(above)[:above_size])
                return True
        return self.log(f"SetOrder: can't locate {name}")

    def output(self, stack, above):
        self.log_list("  UpperBind: ", above)
        services = []
        for guid in stack:
            room = 260 - len(joined(services))
            code, service = self.owner(guid, room)
            if code == NOT_FOUND and room <= len(guid):
                return self.log("OutputBindOrders: buffer limit error")
            if code not in (0, NOT_FOUND):
                return self.log(f"OutputBindOrders: can not continue rc={code}")
            self.log(f"  RootDevice {guid}" if code else f"  RootDevice {guid} {service}")
            services.append(guid if code else service)
        passes = contains(above, "Tcpip") and contains(entries(joined(services)), "ZTL")
        if passes and self.open(RECORDS, "OutputBindOrders: open ZTL param adapters"):
            record = self.open(f"{RECORDS}\\{stack[-1]}", f"OutputBindOrders: open ZTL param adapter key {stack[-1]}")
            if record:
                record.set("IMOrder", REG_MULTI_SZ, raw(joined(services) + "\0"))


def children(hklm, path):
    """All subkeys of a key, which may be missing."""
    return list((hklm.open(path) or Key("")).enumerate(255))


def text_of(key, name, limit=520):
    """A REG_SZ value of up to `limit` bytes, up to its NUL or its end; None for anything else."""
    code, buffer, _ = read(key, name, REG_SZ, limit)
    return None if code else buffer[:limit // 2].partition("\0")[0]


class Transaction:
    """One run: the notify object and the passes of its release. Another client holds the engine's lock, so every
    session that these open is refused."""

    def __init__(self, hklm, version, holder):
        self.hklm, self.version, self.holder = hklm, version, holder
        self.lines = ["--> ::CSampleFilter", "--> EnumCount 0", "--> ::Initialize",
                      "--> ::GetSupportedNotifications", "--> ::Upgrade eActUpgrade"]
        self.log, self.elapsed, self.printed = self.lines.append, 0, ""
        self.order = self.apply()
        self.release()

    def apply(self):
        """ApplyRegistryChanges and ApplyPnpChanges of a notify object"""
        self.lines += ["--> ::ApplyRegistryChanges", "--> ::ApplyRegistryChanges default 4",
                       "--> ::ApplyRegistryChanges exit", "--> ::ApplyPnpChanges"]
        order = OrderPass(self.hklm, self.lines)
        self.log("--> ::ApplyPnpChanges exit")
        return order

    def release(self):
        self.log("--> ::~CSampleFilter ApplyAction=4 OrderIM=1")
        if not self.hklm.open(MARKER):
            count = len(children(self.hklm, NET_CLASS))
            self.log(f"Total {count} NDIS bindings")
            any(self.fix_bind_loop() >= count for _ in range(count))
            self.hklm.open(SERVICES + "\\ZTL", create=True)
        self.unbind_excluded()

    def be_refused(self):
        self.elapsed += 15000
        self.printed += f"Could not lock INetcfg, it is already locked by '{self.holder}'"
        self.log(f"HrGetINetCfg: already locked by {self.holder}")

    def fix_bind_loop(self):
        """One scan: the number of the instance that it repaired, or of all."""
        instances = children(self.hklm, NET_CLASS)
        for number, instance in enumerate(instances, 1):
            self.log(f"Card {instance.name}")
            filter_id, linkage = text_of(instance, "FilterInfId"), instance.open("Linkage")
            if filter_id is None:
                continue
            self.log(f"-filterInfId {filter_id}")
            code, above, _ = read(linkage, "UpperBind", REG_MULTI_SZ, 516)
            top = above.partition("\0")[0]
            if code:
                continue
            self.log(f"-upperbind {top}")
            _, root, size = read(linkage, "RootDevice", REG_MULTI_SZ, 1036)
            last = root[:size // 2].rstrip("\0").split("\0")[-1]
            if self.is_bind_loop(filter_id, top) and last:
                self.lines += ["RootDevice " + root.partition("\0")[0], "#" + last]
                self.rebind(filter_id, "#" + last)
                self.log(f"++Fix Binding {number}")
                return number
        return len(instances)

    def is_bind_loop(self, filter_id, top):
        for component in children(self.hklm, NET_SERVICE):
            component_id, service = text_of(component, "ComponentId"), text_of(component.open("Ndi"), "Service")
            if component_id is not None:
                self.log(f"  proto/id {component.name}/{component_id}")
            if same(component_id, filter_id) and service is not None:
                self.log(f"-service {service}")
                if same(service, top):
                    self.log("BIND LOOP!!!")
                    return True
        return False

    def rebind(self, filter_id, reference):
        for link in children(self.hklm, DEVICES):
            self.log(f"Device {link.name}")
            device = text_of(link, "DeviceInstance")
            self.lines += [f"DeviceInstance {device}"] * (device is not None)
            if device is not None and link.open(reference):
                self.log("RootDevice matched")
                for word in "Disable", "Enable":
                    self.be_refused()
                    self.log(f"{word} Binding Path rc=-2147180508")
                return

    def unbind_excluded(self):
        name, (major, minor, service_pack) = "UnBindZTLFromExcludedMacs", self.version
        self.log(f"{name}: Platfrom 2 Major {major} Minor {minor} ServPack {service_pack}")
        parameters = self.hklm.open(PARAMETERS)
        code, _, _ = read(parameters, "ExcludedMacs", REG_MULTI_SZ, 1020)
        if major > 5:
            self.log(f"{name}: No ExcludedMacs on Vista")
        elif code:
            self.lines += [f"{name}: No ExcludedMacs"] * bool(parameters)
        else:
            self.be_refused()
            self.log("lock is being held, try later")


def contents(key, path="HKEY_LOCAL_MACHINE"):
    """((key, value name), type and data) of everything from `key` down, in the notation of exports."""
    yield (f"[{path}]", ""), ""
    for name, type_, data in key.values.values():
        text = data.decode("utf-16-le", "replace")
        plain = type_ == REG_SZ and re.fullmatch("[^\0-\x1f]*\0", text)
        quoted = json.dumps(text[:-1], ensure_ascii=False)
        yield (f"[{path}]", f'"{name}"'), quoted if plain else f"hex({type_:x}):{data.hex(',')}"
    for subkey in key.subkeys.values():
        yield from contents(subkey, f"{path}\\{subkey.name}")


def write_export(values, path, encoding):
    lines = [f"{name}={data}" if name else f"\n{key}" for (key, name), data in values.items()]
    with open(path, "w", encoding=encoding, newline="\r\n") as file:
        file.write("\n".join(["Windows Registry Editor Version 5.00", *lines, ""]))


def read_export(path, values):
    """What `values` become by importing an export."""
    with open(path, encoding="utf-16", newline="") as file:
        lines = file.read().replace("\\\r\n  ", "").split("\r\n")
    values = dict(values)
    for line in filter(None, lines[1:]):
        name, data = ("", "") if line[0] == "[" else re.fullmatch(r'(@|"(?:[^"\\]|\\.)*")=(.*)', line, re.S).groups()
        key = key if name else line
        values[key, name] = data
    return {place: data for place, data in values.items() if data != "-"}


# What machines are brought to a limit of, as often as named, and the limits of the values in bytes.
EDGES = "services services lost ids ids transports value value value subkey subkey depth base".split() + [None] * 5
LIMITS = {"RootDevice": 1020, "UpperBind": 508, "IMOrder": 516, "FilterClasses": 520, "FilterClass": 64, "Service": 128,
          "FilterDeviceInfId": 128, "MatchingDeviceId": 128, "NetCfgInstanceId": 128, "FilterInfId": 520,
          "ComponentId": 520, "DeviceInstance": 520, "DeviceInstanceID": 520, "ExcludedMacs": 1020}
FILLED = {"services": (249, 252, 256, 256), "lost": (217,), "ids": (251, 503)}  # characters beside the filter's own
RENAMED = {"subkey": (NET_CLASS, NET_CLASS, NET_CLASS, NET_SERVICE, NET_TRANS, RECORDS),
           "base": (NETWORK, NETWORK, CONTROL, SERVICES, PARAMETERS)}

# What the logs tell of a run, beside the outcome of its first pass.
SIGNS = {"with a loop": "BIND LOOP!!!", "to be repaired": "Enable Binding Path", "excluding": "try later"}


class Machine:
    """One random machine. `wild` says how far it is from a clean one, `edge` which limit it is made to meet, if any."""

    def __init__(self, rng):
        self.rng, self.hklm, self.edge = rng, Key(""), rng.choice(EDGES)
        self.wild = rng.choice((0, 0, 0.1) if self.edge else (0, 0.1, 0.3, 1))
        self.letters = "abcdeghkxyzABCDEGHKXYZ0123456789" + "äÖéñøΩжШ网路%\"'&" * (rng.random() < 0.3 * self.wild)
        self.places = {name: [Key("")] for name in LIMITS}  # the keys that hold a value
        self.loops, self.devices = rng.choice((0, 0, 0.05, 0.3)), []
        self.add_components(rng.choice((6, 6, 6, 14, 28, 60)))
        self.add_stacks()
        for path in rng.choices(RENAMED.get(self.edge, ["none"]), k=4 if self.edge == "subkey" else 1):
            base = self.hklm.open(path)
            if base and base.subkeys:
                key = base.subkeys.pop(rng.choice(list(base.subkeys)))
                length = rng.choice((11, 15, 31, 63) if path == NET_CLASS else (59, 63)) + rng.choice((0, 1))
                key.name = (rng.choice(("!", "0", "{8", "z", "z")) + self.word(3)).ljust(length, "n")
                base.subkeys[key.name.upper()] = key
        names = [*LIMITS] + ["RootDevice", "UpperBind", "FilterInfId", "ExcludedMacs"] * (6 if self.loops else 0)
        times = (3 if self.loops else 1) if self.edge == "value" else rng.randrange(1 + int(30 * self.wild ** 0.5))
        for name in rng.choices(names, k=times):
            self.damage(name)

    def word(self, length):
        return "".join(self.rng.choices(self.letters, k=length))

    def recased(self, text, chance=1):
        return "".join(self.rng.choice((c, c.swapcase())) for c in text) if self.rng.random() < chance else text

    def identifier(self):
        return "{" + self.word(3 if self.edge == "depth" else 36) + "}"

    def filling(self, total):
        """Names that take `total` characters of a list, their terminators included."""
        size = total if total <= 64 else self.rng.randint(22, min(64, total - 10))
        return [self.word(size - 1)] + (self.filling(total - size) if total > size else [])

    def put(self, path, weight=1, **values):
        """Creates a key with texts and lists as REG_SZ and REG_MULTI_SZ, damaged `weight` times as often as others."""
        key = self.hklm.open(path + "x" * (self.rng.random() < 0.02 * self.wild), create=True)
        for name, value in values.items():
            self.places.setdefault(name, []).extend([key] * weight)
            type_, end, names = (REG_SZ, "", [value]) if isinstance(value, str) else (REG_MULTI_SZ, "\0", value)
            key.set(name, type_, raw(joined(self.recased(text, 0.1 + 0.3 * self.wild) for text in names) + end))
        return key

    def add_components(self, longest):
        rng, filled = self.rng, self.edge in FILLED
        self.classes = [self.word(min(longest, rng.randint(2, 30))) for _ in range(rng.randint(1, 5))]
        self.drivers = [("ZTL", self.classes[0], "qro_ztlm", "qro_ztl")]  # (service, class, device id, component id)
        names = [self.word(rng.randint(2, longest)) for _ in range(rng.choice((1, 2, 3, 4, 5, 6, 9)))]
        for name in self.filling(rng.choice(FILLED[self.edge]) + rng.randint(-1, 1)) if filled else names:
            other_ids = (self.word(5), self.word(longest), "qro_ztlm" + self.word(3), self.drivers[-1][2])
            service, device_id = (self.word(4), name) if self.edge == "ids" else (name, rng.choice(other_ids))
            classes = self.classes[:1] if filled else self.classes + [self.classes[0], "nobody's"]
            self.drivers.append((service, rng.choice(classes), device_id, "id_" + self.word(rng.randint(1, 9))))
        components = self.drivers + [(rng.choice(self.drivers)[0], "nobody's", "none", rng.choice(self.drivers)[3])]
        for service, class_name, device_id, component_id in rng.sample(components, len(components)):
            path = f"{NET_SERVICE}\\{self.identifier()}"
            self.put(path, ComponentId=component_id)
            self.put(path + "\\Ndi", 1 + 4 * (service == "ZTL"),
                     Service=service, FilterClass=class_name, FilterDeviceInfId=device_id)
        services = [service for service, *_ in self.drivers]
        known = self.classes * 2 + services * 2 + ["Others"] * 3 + [self.word(6)]
        order = rng.sample(known, rng.randint(0, 8))
        if self.edge in FILLED:
            order = rng.choice(([self.classes[0]], ["Others"], rng.sample(services, len(services))))
        self.put(PARAMETERS, **{"IMOrder": order} if self.edge or rng.random() < 0.8 else {})
        self.put(NETWORK, FilterClasses=rng.sample(self.classes + [self.word(6)], len(self.classes)))
        self.transports = ["Tcpip", "Tcpip6", "NdisWan"][:rng.randint(1, 3)] + [""] * (rng.random() < 0.1 * self.wild)
        self.transports += self.filling(rng.randint(249, 251)) if self.edge == "transports" else []
        for service in rng.sample(self.transports, len(self.transports)):
            path = f"{NET_TRANS}\\{self.identifier()}\\Ndi"
            self.put(path, Service=service)
            self.put(path + "\\Interfaces", LowerRange=rng.choice(("ndis5", "ndis4,ndis5", "wan", "")))

    def add_stacks(self):
        rng, numbers = self.rng, iter(self.rng.sample(range(1000), 300))
        drivers = self.drivers + self.drivers[:1] * (self.edge not in FILLED)
        for _ in range(rng.choice((1, 2, 3, 4) if self.loops else (1, 2, 3, 4, 6, 12))):
            depths = range(14, 19) if self.edge == "depth" else range(8)
            depth = len(self.drivers) if self.edge in ("services", "lost") else rng.choice(depths)
            stack = rng.sample(drivers * (1 + depth // len(drivers)), depth)
            stack += [("nic" + self.word(3), None, "pci\\ven_10ff", None)] * (self.edge != "lost")
            root = [self.identifier() for _ in range(depth + 1)]
            self.put(f"{RECORDS}\\{self.recased(root[-1])}").set("IMOrder", REG_MULTI_SZ, raw("ZTL\0older\0\0"))
            above = rng.choice((["Tcpip"], ["Tcpip", "Tcpip6"], [rng.choice(self.transports)], ["Unknown"], []))
            for level, driver in enumerate(stack):
                if driver[3] and rng.random() < self.loops:
                    above = [driver[0]] + above * rng.randrange(2)
                weight = 40 if above[:1] == [driver[0]] else 10 if depth > 1 > level else 1
                self.add_adapter(next(numbers), driver, root[level:], above, weight)
                above = [driver[0]]
        for driver in rng.choices(self.drivers, k=rng.choice((0, 0, 1, 2))):
            self.add_adapter(next(numbers), driver, [self.identifier()], [])
        self.put(MARKER + "x" * (rng.random() < 0.95))
        listed = rng.sample(self.devices + ["pci", "PCI\\VEN_10FF\\"] * 3 + [self.word(9)], rng.randint(0, 5))
        excluded = {"ExcludedMacs": [(text + "\\8")[:rng.choice((5, 15, len(text), 99))] for text in listed]}
        self.put(PARAMETERS, **excluded if rng.random() < 0.8 else {})

    def add_adapter(self, number, driver, root, above, weight=1):
        rng, path, (service, _, device_id, component_id) = self.rng, f"{NET_CLASS}\\{number:04}", driver
        self.devices.append(f"{'ROOT' if component_id else 'PCI'}\\{device_id[4:]}\\{self.word(rng.randint(1, 9))}")
        marked = component_id and self.loops and rng.random() < 0.9
        self.put(path, weight, MatchingDeviceId=device_id, NetCfgInstanceId=root[0], ComponentId=device_id,
                 DeviceInstanceID=self.devices[-1], **{"FilterInfId": component_id} if marked else {})
        self.put(path + "\\Ndi", Service=service)
        self.put(path + "\\Ndi\\Interfaces", UpperRange=rng.choice(("ndis5", "wan, ndis4", "")))
        self.put(path + "\\Linkage", weight, RootDevice=root, UpperBind=above)
        if len(root) == 1 or rng.random() < 0.1:
            link = DEVICES + "\\##?#" + self.devices[-1].replace("\\", "#")
            self.put(link, DeviceInstance=self.devices[-1] if rng.random() < 0.8 else rng.choice(self.devices))
            self.put(f"{link}\\#{root[-1]}" if rng.random() < 0.9 else link)

    def damage(self, name):
        """Damages a value in one of many ways, or brings it to its limit."""
        rng, (key, other) = self.rng, self.rng.choices(self.places[name], k=2)
        name, type_, data = key.values.pop(name.upper(), (name, None, b""))
        text = data.decode("utf-16-le", "ignore")
        at = rng.choice([end for end, c in enumerate(text, 1) if c == "\0"] + [0])
        size = LIMITS.get(name, 128) + rng.choice((-2, -1, 0, 0, 1, 2, 8, 10, 16, 18))
        ends = "\0" * rng.choice((0, 1, 2))
        longer = text.rstrip("\0") + ("\0" + joined(self.filling(512)) if type_ == REG_MULTI_SZ else self.word(270))
        at_limit = (name, type_, raw(longer[:size // 2 - len(ends)] + ends) + b"A" * (size % 2))
        special = rng.choice(("ZTL", "Tcpip", "Others", "", "x", self.classes[0], self.word(60), self.word(130))) + "\0"
        damaged = at_limit if self.edge == "value" else rng.choice((
            at_limit,
            (self.recased(name), type_, data),
            (name, rng.choice((0, 1, 2, 5, 7, 11)), data),
            (name, type_, data[:rng.choice((0, 1, 2, -1, -2, -2, -3, -4, -4, -5))]),
            (name, type_, data[:len(data) - rng.choice((0, 2, 2, 4))] + rng.choice((b"\0", b"A"))),
            (name, type_, raw(text[:at] + "\0" + text[at:])),
            (name, type_, raw(special + text * (type_ == REG_MULTI_SZ))),
            (name, type_, other.values.get(name.upper(), (0, 0, data))[2])))
        if type_ is not None and rng.random() < 0.94:  # or it is dropped
            key.set(*damaged)


def check_machine(arguments, index):
    """(what happened, difference or None) of one machine"""
    rng = random.Random(f"{arguments.seed}/{index}")
    hklm, encoding = Machine(rng).hklm, "utf-8" if index % 4 == 3 else "utf-16"
    system = rng.choice(("5.2.0", "5.2.0", "5.1.3", "10.0.0", "6.0.1"))
    holder = "an installer of Ünits"
    options = ["--os", system, "--lock-held", holder]
    before, machine = dict(contents(hklm)), f"{arguments.keep}/machine-{arguments.seed}-{index}.reg"
    write_export(before, machine, encoding)
    done = Transaction(hklm, [*map(int, system.split("."))], holder)
    after, order = dict(contents(hklm)), done.order
    expected = [
        *done.lines, "waited", done.elapsed, done.printed,
        "lists", order.im, entries(joined(order.devid)), "results", "0x00000000",
        *(("0x0004A020", True) if order.outcome == "changed" else ("0x00000000", False)),
        "changes", *sorted({place for place, _ in before.items() ^ after.items()}),
        "registry", *sorted(after.items()), "registry after importing the changes", *sorted(after.items())]
    with tempfile.TemporaryDirectory() as folder:
        out, changes = f"{folder}/out.reg", f"{folder}/changes.reg"
        run = subprocess.run([arguments.ztlsim, "run", "upgrade", "--json", "--machine", machine, *options,
                              "--out", out, "--changes", changes], stdout=subprocess.PIPE, timeout=60, check=True)
        told = json.loads(run.stdout)
        actual = [
            *told["log"], "waited", told["elapsed_ms"],
            told["standard_output"] or "", "lists", told["im_list"], told["devid_list"],
            "results", *told["result"].values(), told["reboot_required"], "changes",
            *sorted((f"[{change['key']}]", f'"{change["name"]}"' if change["name"] else "")
                    for change in told["changes"]),
            "registry", *sorted(read_export(out, {}).items()),
            "registry after importing the changes", *sorted(read_export(changes, before).items())]
    happened = [order.outcome] + [name for name, sign in SIGNS.items() if any(sign in line for line in done.lines)]
    if expected == actual:
        os.remove(machine)
        return happened, None
    label = f"model, {machine} {' '.join(options)}"
    diff = difflib.unified_diff([*map(str, expected)], [*map(str, actual)], label, "ztlsim", lineterm="")
    return happened, "\n".join(line[:1000] for line in itertools.islice(diff, 60))


def main():
    parser = argparse.ArgumentParser(description="Holds ztlsim's passes against a model of their own.")
    options = {"ztlsim": "ztlsim", "count": 300, "seed": "1", "start": 0, "keep": ""}
    for name, default in options.items():
        parser.add_argument(f"--{name}", type=type(default), default=default)
    arguments = parser.parse_args()
    # Of this run alone: others may run, and other users' files lie in the folder for all.
    own = None if arguments.keep else tempfile.mkdtemp(prefix="ztl-model-")
    arguments.keep = arguments.keep or own
    outcomes, compared = dict.fromkeys(("changed", "unchanged", "stopped", *SIGNS), 0), 0
    with concurrent.futures.ProcessPoolExecutor(2) as pool:
        indexes = range(arguments.start, arguments.start + arguments.count)
        for happened, wrong in pool.map(check_machine, itertools.repeat(arguments), indexes):
            outcomes.update({name: outcomes[name] + 1 for name in happened})
            if wrong:
                raise SystemExit(wrong)
            compared += 1
    if own:
        os.rmdir(own)  # a machine that went wrong has stayed
    print(f"{compared} machines: " + ", ".join(f"{number} {outcome}" for outcome, number in outcomes.items()))
    raise SystemExit(compared != max(arguments.count, 1) or (compared >= 200 and 0 in outcomes.values()))


if __name__ == "__main__":
    main()
