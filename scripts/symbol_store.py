#!/usr/bin/python3
"""Makes a symbol store of images and their program databases: symbol_store.py STORE SYMBOLS_FOLDER IMAGE...

STORE is a folder, made anew, in the layout that debuggers and symbol servers for Windows know: an image lies in NAME/TIMESIZE/NAME, by
its link time and size, and its program database in NAME/GUIDAGE/NAME, by the identity that the image's debug record gives it. The
databases are looked for in SYMBOLS_FOLDER; an image that has no debug record is stored alone.
"""
import pathlib
import shutil
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from triage_lib.symbol_files import BadImage, read_image, stored  # noqa: E402


def files_of(paths, symbols):
    """Place in the store -> file, for images and the databases that their records name."""
    files = {}
    for path in map(pathlib.Path, paths):
        image = read_image(path.read_bytes())
        files[stored(path.name, image.key)] = path
        if image.record:
            files[stored(*image.record)] = pathlib.Path(symbols) / image.record.name
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


def main():
    if len(sys.argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        make(sys.argv[1], sys.argv[2], sys.argv[3:])
    except (OSError, BadImage) as failure:
        print(f"symbol_store.py: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
