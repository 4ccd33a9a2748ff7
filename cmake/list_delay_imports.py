"""Fills a DLL's directory of delay-loaded libraries, which GNU's linker leaves empty (binutils up to 2.44 do): what lists a
program's libraries (dumpbin, a virus scanner, an administrator) then learns of these too.

    python3 list_delay_imports.py kiv.dll credui.dll crypt32.dll ole32.dll

The descriptors that dlltool makes lie one after the other; a null one must follow them. ("PE Format", "Delay-Load Import
Tables".)"""

from __future__ import annotations

import struct
import sys
from pathlib import Path

SIGNATURE = b"PE\0\0"
PE32_PLUS = 0x20B
OPTIONAL_HEADER = 24
CHECKSUM = OPTIONAL_HEADER + 64
DELAY_IMPORT = OPTIONAL_HEADER + 112 + 13 * 8
DESCRIPTOR_SIZE = 32
ATTRIBUTES_RVA = 1


class Image:
    """A 64-bit PE file, read and changed in memory."""

    def __init__(self, data: bytes) -> None:
        self.data = bytearray(data)
        self.header: int = self.number("<I", 0x3C)
        if self.data[self.header:self.header + 4] != SIGNATURE or self.number("<H", self.header + OPTIONAL_HEADER) != PE32_PLUS:
            raise ValueError("not a 64-bit PE file")

    def number(self, form: str, offset: int) -> int:
        return struct.unpack_from(form, self.data, offset)[0]

    def sections(self) -> list[tuple[int, int, int]]:
        """Address, offset in the file, and size of each section."""
        count = self.number("<H", self.header + 6)
        table = self.header + OPTIONAL_HEADER + self.number("<H", self.header + 20)
        return [(self.number("<I", at + 12), self.number("<I", at + 20), self.number("<I", at + 16))
                for at in range(table, table + 40 * count, 40)]

    def addresses(self, wanted: bytes) -> list[int]:
        """Where these bytes are, as addresses relative to the image's."""
        found = []
        for address, offset, size in self.sections():
            at = self.data.find(wanted, offset, offset + size)
            while at >= 0:
                found.append(address + at - offset)
                at = self.data.find(wanted, at + 1, offset + size)
        return found

    def bytes_at(self, address: int, size: int) -> bytes:
        for start, offset, length in self.sections():
            if start <= address and address + size <= start + length:
                return bytes(self.data[offset + address - start:offset + address - start + size])
        raise ValueError(f"nothing at {address:#x}")

    def write(self, form: str, offset: int, *numbers: int) -> None:
        struct.pack_into(form, self.data, offset, *numbers)

    def write_checksum(self) -> None:
        """The sum of all 16-bit words with the carry added, and the size. (As the linker computes it.)"""
        self.write("<I", self.header + CHECKSUM, 0)
        padded = bytes(self.data) + bytes(len(self.data) % 2)
        total = sum(struct.unpack(f"<{len(padded) // 2}H", padded))
        while total > 0xFFFF:
            total = (total & 0xFFFF) + (total >> 16)
        self.write("<I", self.header + CHECKSUM, total + len(self.data))


def descriptor_of(image: Image, library: str) -> int:
    """The address of the one descriptor that names the library."""
    found = [descriptor for name in image.addresses(library.encode() + b"\0")
             for descriptor in image.addresses(struct.pack("<II", ATTRIBUTES_RVA, name))]
    if len(found) != 1:
        raise ValueError(f"{len(found)} descriptors name {library}")
    return found[0]


def list_delay_imports(image: Image, libraries: list[str]) -> None:
    descriptors = sorted(descriptor_of(image, library) for library in libraries)
    first, end = descriptors[0], descriptors[0] + len(descriptors) * DESCRIPTOR_SIZE
    if descriptors != list(range(first, end, DESCRIPTOR_SIZE)):
        raise ValueError("the descriptors do not lie one after the other")
    if image.bytes_at(end, DESCRIPTOR_SIZE) != bytes(DESCRIPTOR_SIZE):
        raise ValueError("no null descriptor follows the others")
    image.write("<II", image.header + DELAY_IMPORT, first, end + DESCRIPTOR_SIZE - first)
    image.write_checksum()


def main() -> int:
    file, libraries = Path(sys.argv[1]), sys.argv[2:]
    image = Image(file.read_bytes())
    if image.number("<I", image.header + DELAY_IMPORT) != 0:
        return 0
    try:
        list_delay_imports(image, libraries)
    except ValueError as problem:
        print(f"{file}: {problem}", file=sys.stderr)
        return 1
    file.write_bytes(image.data)
    return 0


if __name__ == "__main__":
    sys.exit(main())
