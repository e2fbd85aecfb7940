#!/usr/bin/python3
"""Makes a symbol store of images and their program databases: symbol_store.py STORE SYMBOLS_FOLDER IMAGE...

STORE is a folder, made anew, in the layout that debuggers and symbol servers for Windows know: an image lies in NAME/TIMESIZE/NAME, by
its link time and size, and its program database in NAME/GUIDAGE/NAME, by the identity that the image's debug record gives it. The
databases are looked for in SYMBOLS_FOLDER; an image that has no debug record is stored alone.
"""
import collections
import pathlib
import shutil
import sys
import zipfile

import pefile

Record = collections.namedtuple("Record", "name key")  # of the program database

CODEVIEW = pefile.DEBUG_TYPE["IMAGE_DEBUG_TYPE_CODEVIEW"]


def image_key(time, size):
    """The folder of an image; symbol servers are asked for exactly this mix of cases."""
    return f"{time:08X}{size:x}"


def read_image_key(image):
    return image_key(image.FILE_HEADER.TimeDateStamp, image.OPTIONAL_HEADER.SizeOfImage)


def read_record(image):
    """What the debug record of a parsed image says of its program database; None without one."""
    for entry in getattr(image, "DIRECTORY_ENTRY_DEBUG", []):
        if entry.struct.Type == CODEVIEW:
            record = entry.entry
            tail = image.get_data(entry.struct.AddressOfRawData + 12, 8)  # the last 8 bytes of the GUID are no number
            key = f"{record.Signature_Data1:08X}{record.Signature_Data2:04X}{record.Signature_Data3:04X}{tail.hex().upper()}"
            return Record(record.PdbFileName.rstrip(b"\0").decode(), f"{key}{record.Age:x}")
    return None


def stored(name, key):
    return f"{name}/{key}/{name}"


def files_of(paths, symbols):
    """Place in the store -> file, for images and the databases that their records name."""
    files = {}
    for path in map(pathlib.Path, paths):
        image = pefile.PE(str(path))
        files[stored(path.name, read_image_key(image))] = path
        record = read_record(image)
        if record:
            files[stored(record.name, record.key)] = pathlib.Path(symbols) / record.name
        image.close()
    return files


def make(store, symbols, paths):
    """Makes the folder in one step: whoever looks sees the old store or the new one."""
    store = pathlib.Path(store)
    new = store.with_name(store.name + ".new")
    shutil.rmtree(new, ignore_errors=True)
    for place, path in files_of(paths, symbols).items():
        (new / place).parent.mkdir(parents=True)
        shutil.copyfile(path, new / place)
    shutil.rmtree(store, ignore_errors=True)
    new.rename(store)


class Store:
    """A store to read from: its folder, or an archive of it."""

    def __init__(self, path):
        path = pathlib.Path(path)
        if path.is_dir():
            self.places = {str(file.relative_to(path)).lower(): file.read_bytes for file in path.glob("*/*/*")}
        else:
            archive = zipfile.ZipFile(path)
            self.places = {name.lower(): (lambda name=name: archive.read(name)) for name in archive.namelist()}

    def read(self, name, key):
        """The bytes of a file; None when the store lacks it."""
        found = self.places.get(stored(name, key).lower())
        return found() if found else None


def main():
    if len(sys.argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        make(sys.argv[1], sys.argv[2], sys.argv[3:])
    except (OSError, pefile.PEFormatError) as failure:
        print(f"symbol_store.py: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
