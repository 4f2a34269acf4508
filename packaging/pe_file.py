"""Reads what the packages need of a Windows program or library: headers, imports, resources, build id."""

import struct

ICON, GROUP_ICON, VERSION, MANIFEST = 3, 14, 16, 24

RELOCATIONS_STRIPPED = 0x0001
HIGH_ENTROPY, DYNAMIC_BASE, NX_COMPATIBLE = 0x0020, 0x0040, 0x0100


class BadFile(Exception):
    """The file is no 64-bit Windows program, or is cut."""


class PeFile:
    """One file, read as a whole. All methods raise BadFile for offsets outside of it."""

    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = file.read()
        (header,) = self.unpack("<I", 0x3C)
        if self.bytes_at(0, 2) != b"MZ" or self.bytes_at(header, 4) != b"PE\0\0":
            raise BadFile("no Windows program")
        (self.machine, count, self.timestamp, self.symbols, self.symbol_count, optional_size,
         self.file_flags) = self.unpack("<HHIIIHH", header + 4)
        optional = header + 24
        (magic,) = self.unpack("<H", optional)
        if magic != 0x20B or self.machine != 0x8664:
            raise BadFile("no program for 64-bit processors")
        (self.image_base,) = self.unpack("<Q", optional + 24)
        self.subsystem, self.dll_flags = self.unpack("<HH", optional + 68)
        (directories,) = self.unpack("<I", optional + 108)
        self.directories = [self.unpack("<II", optional + 112 + 8 * k) for k in range(min(directories, 16))]
        self.sections = []
        for k in range(count):
            at = optional + optional_size + 40 * k
            name = self.bytes_at(at, 8).rstrip(b"\0").decode("ascii", "replace")
            size, address, raw_size, raw = self.unpack("<IIII", at + 8)
            (flags,) = self.unpack("<I", at + 36)
            self.sections.append((name, address, max(size, raw_size), raw, raw_size, flags))

    def bytes_at(self, offset, size):
        if offset + size > len(self.data):
            raise BadFile("the file is cut")
        return self.data[offset:offset + size]

    def unpack(self, form, offset):
        return struct.unpack(form, self.bytes_at(offset, struct.calcsize(form)))

    def offset_of(self, address):
        for _, begin, size, raw, raw_size, _ in self.sections:
            if begin <= address < begin + size and address - begin < raw_size:
                return raw + address - begin
        raise BadFile(f"no bytes for the address {address:#x}")

    def text_at(self, offset):
        return self.data[offset:self.data.index(b"\0", offset)].decode("ascii")

    def imports(self):
        """Returns {library in lower case: [function, ...]}."""
        found = {}
        at, size = self.directories[1]
        if size == 0:
            return found
        offset = self.offset_of(at)
        while True:
            names, _, _, library, addresses = self.unpack("<IIIII", offset)
            if library == 0:
                return found
            functions = found.setdefault(self.text_at(self.offset_of(library)).lower(), [])
            entry = self.offset_of(names or addresses)
            while (value := self.unpack("<Q", entry)[0]) != 0:
                functions.append(f"#{value & 0xFFFF}" if value >> 63 else self.text_at(self.offset_of(value) + 2))
                entry += 8
            offset += 20

    def resources(self, kind):
        """Returns the contents of every resource of a type, by number."""
        at, size = self.directories[2]
        if size == 0:
            return []
        root = self.offset_of(at)

        def entries(table):
            named, numbered = self.unpack("<HH", table + 12)
            return [self.unpack("<II", table + 16 + 8 * k) for k in range(named + numbered)]

        found = []
        for identifier, to in entries(root):
            if identifier != kind:
                continue
            for _, names in entries(root + (to & 0x7FFFFFFF)):
                for _, language in entries(root + (names & 0x7FFFFFFF)):
                    address, length = self.unpack("<II", root + language)
                    found.append(self.bytes_at(self.offset_of(address), length))
        return found

    def build_id(self):
        """Returns the id that debuggers compare, in hexadecimal digits; empty without one."""
        at, size = self.directories[6]
        for k in range(size // 28):
            kind, length, _, raw = self.unpack("<IIII", self.offset_of(at) + 28 * k + 12)
            if kind == 2 and self.bytes_at(raw, 4) == b"RSDS" and length >= 20:
                return self.bytes_at(raw + 4, 16).hex()
        return ""

    def symbol_names(self):
        """Returns the names of the symbol table; empty in a stripped file."""
        names = set()
        strings = self.symbols + 18 * self.symbol_count
        k = 0
        while k < self.symbol_count:
            entry = self.bytes_at(self.symbols + 18 * k, 18)
            if entry[:4] == b"\0\0\0\0":
                begin = strings + struct.unpack("<I", entry[4:8])[0]
                names.add(self.data[begin:self.data.index(b"\0", begin)].decode("latin-1"))
            else:
                names.add(entry[:8].rstrip(b"\0").decode("latin-1"))
            k += 1 + entry[17]
        return names


def version_texts(resource):
    """Returns {name: text} of a version resource."""
    texts = {}

    def walk(at, end):
        while at + 6 <= end:
            length, value_length, kind = struct.unpack_from("<HHH", resource, at)
            if length == 0:
                return
            stop = min(at + length, end)
            name_end = at + 6
            while resource[name_end:name_end + 2] != b"\0\0" and name_end < stop:
                name_end += 2
            name = resource[at + 6:name_end].decode("utf-16-le")
            value = (name_end + 2 + 3) // 4 * 4
            if kind == 1 and value_length > 0:
                texts[name] = resource[value:value + 2 * value_length].decode("utf-16-le").rstrip("\0")
            else:
                walk((value + value_length + 3) // 4 * 4, stop)
            at = (stop + 3) // 4 * 4

    walk(0, len(resource))
    return texts
