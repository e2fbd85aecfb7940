#!/usr/bin/python3
"""Makes the packages of a build: the archive that a user installs, the symbol store as an archive, the bill of materials and the sums.

The same sources, built by the same tools, give the same bytes: in the archives the files are sorted and have the time of the commit.
The folder is made as a whole: on any failure an older one stays as it is.
"""
import argparse
import hashlib
import os
import pathlib
import shutil
import signal
import subprocess
import sys

import acceptance_kit
import package_bom
import pefile
import sign_images
import symbol_store

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAME = "corvid-wsc"
IMAGES = ["wsc.dll", "libgcc_s_dw2-1.dll"]
NO_COMMIT = 315532800  # 1980-01-01, the first moment that an archive can name
NOTICES = {  # where Debian has the terms of what is inside
    "mingw-w64.txt": "/usr/share/doc/mingw-w64-i686-dev/copyright",
    "gcc.txt": "/usr/share/doc/gcc-mingw-w64-i686-win32-runtime/copyright",
    "GPL-3.txt": "/usr/share/common-licenses/GPL-3",
}


class Refused(Exception):
    pass


def product_version(path):
    """The version resource's text: number and commit, "1.0.0+3fa9c1d2e4b5"."""
    image = pefile.PE(str(path))
    texts = [table.entries for info in image.FileInfo for block in info for table in getattr(block, "StringTable", [])]
    return texts[0][b"ProductVersion"].decode()


def commit_time():
    def git(*words):
        run = subprocess.run(["git", "-C", ROOT, *words], stdin=subprocess.DEVNULL, capture_output=True, check=False, text=True)
        return run.stdout.strip() if run.returncode == 0 else None

    try:
        of_our_own = git("rev-parse", "--show-prefix") == ""
        return int(git("log", "-1", "--format=%ct") or NO_COMMIT) if of_our_own else NO_COMMIT
    except FileNotFoundError:
        return NO_COMMIT


def archive(path, folder, moment):
    """Without what differs between machines: the files' owners, their times of access, the time zone."""
    files = sorted(str(file.relative_to(folder)) for file in folder.rglob("*") if file.is_file())
    for file in files:
        os.chmod(folder / file, 0o644)
        os.utime(folder / file, (moment, moment))
    subprocess.run(["zip", "-X", "-9", "-q", str(path), "-@"], cwd=folder, input="\n".join(files), text=True, check=True,
                   env={**os.environ, "TZ": "UTC"}, stdout=sys.stderr)


def text_file(name, values):
    """A text of packaging/ with what differs from release to release, its lines ended as Windows ends them."""
    text = (ROOT / "packaging" / name).read_text("utf-8")
    for key, value in values.items():
        text = text.replace(f"@{key}@", value)
    return text.replace("\n", "\r\n").encode()


def look_at(images, symbols):
    run = subprocess.run([ROOT / "tests/check_image.py", images, symbols], stdin=subprocess.DEVNULL, capture_output=True, check=False,
                         text=True)
    if run.returncode:
        raise Refused("the images are not fit to ship:\n" + (run.stdout + run.stderr).rstrip())


def install_text(version, bom):
    libgcc = next(part.debian for part in package_bom.PARTS if part.id == "libgcc")
    debian = package_bom.ask_debian(libgcc)
    return text_file("INSTALL.txt", {"PRODUCT_VERSION": version, "BOM": bom, "LIBGCC": f"  {libgcc} {debian.version},",
                                     "LIBGCC_SOURCE": f"{debian.source} {debian.source_version}"})


def make_kit(build, folder, images, symbols, version):
    wanted = [build / "tools/acceptance.exe", build / "standins/matrix.exe", build / "tests/wsc_tests.exe"]
    for file in wanted:
        if not file.is_file():
            raise Refused(f"there is no {file}; build first")
    (folder / "notices").mkdir(parents=True)
    for name, source in {**NOTICES, **acceptance_kit.NOTICES}.items():
        shutil.copyfile(source, folder / "notices" / name)
    acceptance_kit.fill(build, folder, [images / image for image in IMAGES])
    wrong = acceptance_kit.wrong_images(ROOT, folder, symbols, images)
    if wrong:
        raise Refused("the images of the acceptance kit are not fit to ship:\n" + wrong)
    (folder / "README.txt").write_bytes(text_file("ACCEPTANCE.txt", {"PRODUCT_VERSION": version}))
    acceptance_kit.list_contents(folder)


def make(build, out, options):
    """Fills `out`, a new folder."""
    symbols = build / "symbols"
    for file in [*(build / "dist" / image for image in IMAGES), symbols / "wsc.pdb"]:
        if not file.is_file():
            raise Refused(f"there is no {file}; build first")
    work, content = out / "work", out / "work/content"
    (content / "notices").mkdir(parents=True)
    images = work / "images"
    images.mkdir()
    for image in IMAGES:
        shutil.copy(build / "dist" / image, images)
    if options.sign:
        sign_images.sign([images / image for image in IMAGES], options)
    look_at(images, symbols)

    version = product_version(images / "wsc.dll")
    stem = f"{NAME}-{version.split('+')[0]}"
    moment = commit_time()
    for image in IMAGES:
        shutil.copy(images / image, content)
    for name, source in NOTICES.items():
        shutil.copyfile(source, content / "notices" / name)
    (content / "INSTALL.txt").write_bytes(install_text(version, f"{stem}.spdx.json"))
    archive(out / f"{stem}.zip", content, moment)
    symbol_store.make(work / "store", symbols, [images / image for image in IMAGES])
    archive(out / f"{stem}-symbols.zip", work / "store", moment)
    contents = {str(file.relative_to(content)): file.read_bytes() for file in content.rglob("*") if file.is_file()}
    (out / f"{stem}.spdx.json").write_text(package_bom.compose(NAME, version, moment, contents, bool(options.sign)), "utf-8")
    if options.kit:
        make_kit(build, work / "kit", images, symbols, version)
        archive(out / f"{stem}-acceptance.zip", work / "kit", moment)
    shutil.rmtree(work)
    sums = [f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.name}\n" for file in sorted(out.iterdir())]
    (out / "SHA256SUMS").write_text("".join(sums), "utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path, help="the build tree")
    parser.add_argument("out", type=pathlib.Path, help="the folder that is made")
    parser.add_argument("--kit", action="store_true", help="make the acceptance kit as well")
    sign_images.add_options(parser)
    options = parser.parse_args()
    wrong = sign_images.wrong_use(options)
    if wrong:
        print(f"package: {wrong}", file=sys.stderr)
        return 2
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    options.build, options.out = options.build.resolve(), options.out.resolve()
    new = options.out.with_name(options.out.name + ".new")
    try:
        shutil.rmtree(new, ignore_errors=True)
        new.mkdir(parents=True)
        make(options.build, new, options)
        shutil.rmtree(options.out, ignore_errors=True)
        new.rename(options.out)
    except (Refused, sign_images.SigningError, OSError, subprocess.SubprocessError) as failure:
        print(f"package: {failure}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    finally:
        shutil.rmtree(new, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
