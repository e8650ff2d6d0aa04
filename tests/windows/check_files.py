#!/usr/bin/env python3
"""Checks the built Windows files without running them: check_files.py BIN_FOLDER i686|x86_64

Exports of the module under their plain names, imports from nothing but the system and TavrinDAServer.dll, resources equal to
their sources, and the order of the operations in the tables of the built module; in the 32-bit build also how many bytes of
arguments each of them removes from the stack.
"""

import re
import struct
import subprocess
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "Protocol/resources"))
import make_string_table  # noqa: E402

PROGRAMS = ("ostrel-host.exe", "ostrel-meter.exe")
MODULES = ("OstrelProtocol.dll", "TavrinDAServer.dll")
SYSTEM_DLLS = {"advapi32", "kernel32", "msvcrt", "mswsock", "ole32", "oleaut32", "shell32", "user32", "ws2_32"}
TYPE_STRING, TYPE_VERSION = 6, 16

# Bytes of arguments behind the object pointer, 4 each.
UNKNOWN = [("QueryInterface", 8), ("AddRef", 0), ("Release", 0)]
PROTOCOL = UNKNOWN + [
    ("GetChannel", 0), ("AddDevice", 4), ("RemoveDevice", 4), ("AddTag", 8), ("ReadHistoryValue", 16),
    ("GetHistoryInterval", 12), ("GetHistoryDepth", 8), ("GetHistoryTimestamps", 24), ("CheckHistoryTimestamp", 16),
    ("Stop", 0), ("Start", 0), ("SignalStop", 0), ("SetPortSettings", 8), ("LockExchange", 0), ("UnlockExchange", 0),
    ("Lock", 0), ("Unlock", 0), ("LockPoll", 0), ("UnlockPoll", 0), ("TransmitAndRecieve", 20), ("CanPollDevice", 4)]
BROWSER = UNKNOWN + [("GetTagName", 20), ("GetFirstTagId", 4), ("Reserved", 8), ("GetTagDescriptor", 16), ("GetTagDescription", 12)]
TYPES = UNKNOWN + [("GetCount", 4), ("Next", 4), ("Reset", 0)]
FACTORY = UNKNOWN + [("CreateInstance", 12), ("LockServer", 4)]
EXPORTS = {"DllCanUnloadNow": 0, "DllGetClassObject": 12, "DllRegisterServer": 0, "DllUnregisterServer": 0}


def expect(holds, message):
    if not holds:
        sys.exit(f"check_files: {message}")


class Image:
    """A file of the PE format: its sections, and the symbols and code that the binutils see in it."""

    def __init__(self, path, target):
        self.path = path
        self.tool = lambda name, *options: subprocess.run(
            [f"{target}-w64-mingw32-{name}", *options, str(path)], check=True, capture_output=True, text=True).stdout
        self.data = path.read_bytes()
        self.pointer = 4 if target == "i686" else 8
        header = struct.unpack_from("<I", self.data, 0x3C)[0]
        count, optional = struct.unpack_from("<H", self.data, header + 6)[0], struct.unpack_from("<H", self.data, header + 20)[0]
        self.base = struct.unpack_from("<I" if self.pointer == 4 else "<Q", self.data, header + (52 if self.pointer == 4 else 48))[0]
        directories = header + 24 + (96 if self.pointer == 4 else 112)
        self.resource_root = struct.unpack_from("<I", self.data, directories + 16)[0]
        self.sections = [struct.unpack_from("<IIII", self.data, header + 24 + optional + 40 * i + 8) for i in range(count)]

    def offset(self, address):
        for size, start, raw_size, raw in self.sections:
            if start <= address < start + max(size, raw_size):
                return raw + address - start
        sys.exit(f"check_files: {self.path.name}: no section holds {address:#x}")

    def read(self, address, size):
        return self.data[self.offset(address):self.offset(address) + size]

    def exports(self):
        return re.findall(r"^\s+\[\s*\d+\] (?:\+base\[\s*\d+\]\s+\w+ )?([A-Za-z_]\S*)$", self.tool("objdump", "-p"), re.M)

    def imports(self):
        return re.findall(r"DLL Name: (\S+)", self.tool("objdump", "-p"))

    def resources(self):
        """Content by (type, id)."""
        found = {}

        def walk(offset, path):
            named, numbered = struct.unpack_from("<HH", self.read(self.resource_root + offset, 16), 12)
            for i in range(named + numbered):
                key, value = struct.unpack("<II", self.read(self.resource_root + offset + 16 + 8 * i, 8))
                if key & 0x80000000:
                    place = self.resource_root + (key & 0x7FFFFFFF)
                    key = self.read(place + 2, 2 * struct.unpack("<H", self.read(place, 2))[0]).decode("utf-16-le")
                if value & 0x80000000:
                    walk(value & 0x7FFFFFFF, path + [key])
                else:
                    address, size = struct.unpack("<II", self.read(self.resource_root + value, 8))
                    found[tuple(path[:2])] = self.read(address, size)

        walk(0, [])
        return found


class Code:
    """Names by address, and how many bytes each function takes from the stack when it returns."""

    def __init__(self, image):
        self.image = image
        self.names, self.addresses = {}, {}
        symbols = re.findall(r"^([0-9a-f]+) \S ([^.\s]\S*)$", image.tool("nm"), re.M)
        for address, name in zip((int(address, 16) for address, _ in symbols), self.plain(name for _, name in symbols)):
            self.names.setdefault(address, name)
            self.addresses.setdefault(name, address)
        self.returns = {}
        function = None
        for line in image.tool("objdump", "-d", "--no-show-raw-insn").splitlines():
            if start := re.match(r"([0-9a-f]+) <.*>:$", line):
                function = int(start[1], 16)
            elif back := re.search(r"\tret[lq]?\s*(?:\$0x([0-9a-f]+))?$", line):
                self.returns.setdefault(function, set()).add(int(back[1] or "0", 16))

    def plain(self, symbols):
        """Without the 32-bit compiler's own decoration, and as C++ names."""
        if self.image.pointer == 4:
            symbols = (re.sub(r"^_|@\d+$", "", symbol) for symbol in symbols)
        return subprocess.run(["c++filt"], input="\n".join(symbols), check=True, capture_output=True, text=True).stdout.splitlines()

    def tables(self, class_name):
        """The entries of each face's table, in order; a table begins behind its offset and its type."""
        size, image = self.image.pointer, self.image
        start = self.addresses[f"vtable for {class_name}"] - image.base
        faces, here = [], start
        while True:
            address = struct.unpack("<I" if size == 4 else "<Q", image.read(here, size))[0]
            name = self.names.get(address, "")
            if re.match(r"typeinfo for", name):
                faces.append([])
            elif faces and "::" in name and "(" in name and not name.startswith(("vtable", "typeinfo")):
                faces[-1].append((address, name))
            elif faces and not self.offset_to_top(address):
                return faces
            here += size

    def offset_to_top(self, value):
        bits = 8 * self.image.pointer
        return -64 <= (value - (1 << bits) if value >> (bits - 1) else value) < 0

    def removed(self, address):
        return self.returns.get(address, set())


def check_imports(image):
    for name in image.imports():
        stem = name.lower().removesuffix(".dll")
        known = stem in SYSTEM_DLLS or (name == "TavrinDAServer.dll" and image.path.name != name)
        expect(known, f"{image.path.name} needs {name}")


def check_strings(resources):
    strings = {}
    for (kind, block), content in resources.items():
        if kind != TYPE_STRING:
            continue
        for i in range(16):
            length = struct.unpack_from("<H", content)[0]
            if length:
                strings[(block - 1) * 16 + i] = content[2:2 + 2 * length].decode("utf-16-le")
            content = content[2 + 2 * length:]
    source = make_string_table.read_script(SOURCE / "Protocol/resources/strings.rc")
    expect(strings == source, f"strings differ: {sorted(set(strings.items()) ^ set(source.items()))[:4]}")
    return len(strings)


def check_resources(image):
    resources = image.resources()
    script = resources.get(("REGISTRY", 102))
    expect(script == (SOURCE / "Protocol/resources/module.rgs").read_bytes(), "the registry script differs from its source")
    expect((TYPE_VERSION, 1) in resources, "no version")
    return check_strings(resources)


def check_table(code, title, entries, expected):
    short = [re.search(r"::(~?\w+)\(", name)[1] for _, name in entries]
    wanted = [name for name, _ in expected]
    print(f"  {title}")
    for slot, ((address, name), bytes_) in enumerate(zip(entries, (bytes_ for _, bytes_ in expected))):
        print(f"    {slot:2} {short[slot]}")
        removed = code.removed(address)
        if code.image.pointer == 4 and "thunk" not in name:
            expect(removed == {bytes_ + 4}, f"{name} removes {removed} bytes instead of {bytes_ + 4}")
    expect(short[:len(wanted)] == wanted, f"{title}: {short} instead of {wanted}")
    return len(entries) - len(expected)


def check_module(image):
    expect(sorted(image.exports()) == sorted(EXPORTS), f"exports are {image.exports()}")
    code = Code(image)
    if image.pointer == 4:
        for name, bytes_ in EXPORTS.items():
            removed = code.removed(code.addresses[name])
            expect(removed == {bytes_}, f"{name} removes {removed} bytes instead of {bytes_}")
    faces = code.tables("ostrel::(anonymous namespace)::CountedProtocol")
    # The three that hosts are given, and the line that the floors of the module itself see.
    expect(len(faces) == 4, f"{len(faces)} faces")
    # Behind its last entry the compiler keeps entries that only the module itself calls, the destructor's among them.
    expect(check_table(code, "IProtocol", faces[0], PROTOCOL) > 0, "IProtocol's table has no destructor behind it")
    for title, face, expected in (("IBrowser", faces[1], BROWSER), ("IEnumTypes", faces[2], TYPES)):
        expect(check_table(code, title, face, expected) == 0, f"{title} has entries too many")
    factory = code.tables("ostrel::CoFactory")
    expect(check_table(code, "IClassFactory", factory[0], FACTORY) == 0, "IClassFactory has entries too many")


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_files.py BIN_FOLDER i686|x86_64")
    folder, target = Path(sys.argv[1]), sys.argv[2]
    for name in MODULES + PROGRAMS:
        check_imports(Image(folder / name, target))
    module = Image(folder / MODULES[0], target)
    check_module(module)
    print(f"  {check_resources(module)} strings, registry script, version")


if __name__ == "__main__":
    main()
