"""The acceptance kit: every program of the tests, and what they need, for a Windows that has nothing else."""
import os
import shutil
import subprocess

NOTICES = {"googletest.txt": "/usr/share/doc/googletest/copyright"}
IMAGES = (".exe", ".dll", ".sys")


def images(folder):
    return [path for path in folder.iterdir() if path.suffix in IMAGES]


def fill(build, folder, shipped):
    """The files of the kit but for its texts; `shipped` are the product's own images."""
    for part, files in {"suite": [*images(build / "standins"), *shipped], "tests": images(build / "tests")}.items():
        (folder / part).mkdir()
        for file in files:
            shutil.copyfile(file, folder / part / file.name)
    shutil.copyfile(build / "tools/acceptance.exe", folder / "acceptance.exe")


def wrong_images(root, folder, symbols, shipped):
    """What check_image.py says of them; empty when they load on every Windows."""
    run = subprocess.run([root / "tests/check_image.py", shipped, symbols, folder, folder / "suite", folder / "tests"], stdin=subprocess.DEVNULL,
                         capture_output=True, check=False, text=True)
    return (run.stdout + run.stderr).rstrip() if run.returncode else ""


def list_contents(folder):
    """contents.txt, by which the kit knows whether it is whole."""
    files = sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())
    (folder / "contents.txt").write_bytes("".join(f"{file.replace(os.sep, chr(92))}\r\n" for file in files).encode())
