#!/usr/bin/python3
"""Makes packages of a build in every way and looks at what comes out: check_package.py BUILD_FOLDER

A second tree in another folder, built without a cache, has to give the same bytes; signed images have to be accepted by sbverify and to
run in the Wine prefix, where the suite is installed; what cannot be packed or signed has to be refused, with the reason and with nothing
left. Prints a line for each check, "N passed, M failed" at the end; the status is 0 when none failed.
"""
import contextlib
import hashlib
import http.server
import os
import pathlib
import shutil
import subprocess
import sys
import threading
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import machine  # noqa: E402

IMAGES = ["wsc.dll", "libgcc_s_dw2-1.dll"]
PASSWORD_VARIABLE = "CORVID_WSC_SIGN_PASSWORD"
PASSWORD = "a throw-away password"
REQUEST = ["run", "/svc", "/unregister", "/antivirus"]
LINK_TIME = 8  # its place in the header that e_lfanew leads to
LONGEST_BUILD = 1500  # s


def run(*words, **options):
    done = subprocess.run(list(map(str, words)), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                          timeout=LONGEST_BUILD, **options)
    done.text = done.stdout.decode("utf-8", "replace").replace("\r", "")
    return done


def must(*words, **options):
    done = run(*words, **options)
    if done.returncode:
        raise OSError(f"{' '.join(map(str, words))} failed:\n{done.text[-3000:]}")
    return done.text


def sums(folder):
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest()
            for path in sorted(folder.rglob("*")) if path.is_file()}


def unpack(package, ending, folder):
    """An archive of a package in a folder of its own."""
    shutil.rmtree(folder, ignore_errors=True)
    archive, = [path for path in package.glob("*.zip") if path.name.endswith("-symbols.zip") == (ending == "-symbols.zip")]
    with zipfile.ZipFile(archive) as content:
        content.extractall(folder)
    return folder


@contextlib.contextmanager
def time_stamp_server(folder):
    """Its address, and its certificate; OpenSSL answers."""
    folder.mkdir()
    key, certificate, settings = (folder / name for name in ("key.pem", "certificate.pem", "settings"))
    settings.write_text(f"[server]\nserial={folder}/serial\ndigests=sha256\nsigner_digest=sha256\ndefault_policy=1.2.3.4\n")
    must("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", certificate, "-days", "2",
         "-subj", "/CN=Throw-away time", "-addext", "extendedKeyUsage=critical,timeStamping")

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_POST(self):
            query, reply = folder / "query", folder / "reply"
            query.write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
            must("openssl", "ts", "-reply", "-config", settings, "-section", "server", "-queryfile", query, "-signer", certificate,
                 "-inkey", key, "-out", reply)
            self.send_response(200)
            self.send_header("Content-Type", "application/timestamp-reply")
            self.end_headers()
            self.wfile.write(reply.read_bytes())

        def log_message(self, *_):
            pass

    with http.server.HTTPServer(("127.0.0.1", 0), Handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            yield f"http://127.0.0.1:{server.server_port}/", certificate
        finally:
            server.shutdown()


class Checks:
    def __init__(self, build):
        self.build = build
        self.work = build / "check/package"
        self.package = build / "stores/package"  # the unsigned one
        self.signed = self.work / "signed"
        self.passed = self.failed = 0
        shutil.rmtree(self.work, ignore_errors=True)
        self.work.mkdir(parents=True)

    def check(self, what, wrong):
        self.passed, self.failed = self.passed + (not wrong), self.failed + bool(wrong)
        print(f"FAILED  {what}: {wrong}" if wrong else f"passed  {what}", flush=True)

    def make(self, out, *words, build=None, root=ROOT, password=""):
        return run(root / "scripts/make_package.py", build or self.build, out, *words, env={**os.environ, PASSWORD_VARIABLE: password})

    # The same sources in another folder, the changes that are not committed among them.
    def second_tree(self):
        tree = self.work / "a second tree/in a deeper folder"
        must("git", "clone", "-q", "--no-hardlinks", ROOT, tree)
        changes = subprocess.run(["git", "-C", ROOT, "diff", "--binary", "HEAD"], capture_output=True, check=True).stdout
        if changes:
            subprocess.run(["git", "-C", tree, "apply", "-"], input=changes, check=True)
        for name in must("git", "-C", ROOT, "ls-files", "-z", "--others", "--exclude-standard").split("\0")[:-1]:
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, tree / name)
        return tree

    def reproducible(self):
        tree = self.second_tree()
        no_cache = {**os.environ, "CCACHE_DISABLE": "1", "TZ": "Pacific/Chatham"}
        must("cmake", "--preset", "windows", cwd=tree, env=no_cache)
        must("ninja", "-C", "build", "src/all", cwd=tree, env=no_cache)
        for name in ("dist/wsc.dll", "symbols/wsc.pdb"):
            same = (tree / "build" / name).read_bytes() == (self.build / name).read_bytes()
            self.check(f"a second tree gives the same {name}", "" if same else f"it differs from {tree}/build/{name}")
        made = self.make(self.work / "second", build=tree / "build", root=tree)
        ours, theirs = sums(self.package), sums(self.work / "second") if not made.returncode else made.text
        self.check("a second tree gives the same package", "" if ours == theirs else f"{ours} and {theirs}")
        if not self.failed:
            shutil.rmtree(tree.parent)

    def contents(self):
        wrong = run("sha256sum", "-c", "--strict", "SHA256SUMS", cwd=self.package)
        listed = {line.split()[1] for line in (self.package / "SHA256SUMS").read_text().splitlines()}
        kinds = [name for name in listed if not name.endswith((".zip", ".spdx.json"))]
        complete = len(listed) == 3 and not kinds and listed | {"SHA256SUMS"} == set(sums(self.package))
        self.check("the package's sums are right and complete", wrong.text if wrong.returncode or not complete else "")
        unpacked = unpack(self.package, ".zip", self.work / "unpacked")
        wanted = {*IMAGES, "INSTALL.txt", "notices/gcc.txt", "notices/mingw-w64.txt", "notices/GPL-3.txt"}
        self.check("the archive for users holds what is meant for them", "" if set(sums(unpacked)) == wanted else str(sorted(sums(unpacked))))
        differs = [name for name in IMAGES if (unpacked / name).read_bytes() != (self.build / "dist" / name).read_bytes()]
        self.check("the archive for users holds the images of the build", ", ".join(differs))
        text = (unpacked / "INSTALL.txt").read_text("utf-8")
        self.check("the install text is filled in", "a mark is left" if "@" in text else "")

    def make_certificate(self):
        key, certificate, both = (self.work / name for name in ("key.pem", "certificate.pem", "key.p12"))
        must("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", certificate, "-days", "2",
             "-subj", "/CN=Throw-away", "-addext", "extendedKeyUsage=codeSigning")
        must("openssl", "pkcs12", "-export", "-inkey", key, "-in", certificate, "-out", both, "-passout", f"pass:{PASSWORD}")
        return both, certificate

    def signing(self, both, certificate):
        words = self.work / "password"
        words.write_text(f"{PASSWORD}\nits first line alone counts\n", "utf-8")
        with time_stamp_server(self.work / "time") as (address, time_certificate):
            made = self.make(self.signed, f"--sign={both}", f"--password-file={words}", f"--timestamp={address}")
        self.check("a package is signed", made.text if made.returncode else "")
        if made.returncode:
            return
        images = unpack(self.signed, ".zip", self.work / "signed images")
        for name in IMAGES:
            said = run("osslsigncode", "verify", "-CAfile", certificate, "-TSA-CAfile", time_certificate, "-in", images / name)
            stamped = not said.returncode and "Timestamp Server Signature verification: ok" in said.text
            self.check(f"the signature of {name} has a time stamp", "" if stamped else said.text)
            said = run("sbverify", "--cert", certificate, images / name)
            self.check(f"sbverify accepts the signature of {name}", said.text if said.returncode else "")
            stored = list(unpack(self.signed, "-symbols.zip", self.work / "signed store").glob(f"{name}/*/{name}"))
            same = len(stored) == 1 and stored[0].read_bytes() == (images / name).read_bytes()
            self.check(f"the symbol store has the signed {name}", "" if same else str(stored))
        self.run_signed(images)
        changed = self.work / "changed"
        shutil.copytree(images, changed, ignore=shutil.ignore_patterns("notices", "*.txt"))
        content = bytearray((changed / "wsc.dll").read_bytes())
        content[len(content) // 3] ^= 1
        (changed / "wsc.dll").write_bytes(content)
        looked = run(ROOT / "tests/check_image.py", changed, self.build / "symbols")
        found = [line for line in looked.text.splitlines() if line.startswith("FAILED wsc.dll has a valid signature")]
        self.check("a changed signed image is found out", "" if found else looked.text)

    def run_signed(self, images):
        suite, _ = machine.installed()
        try:
            for name in IMAGES:
                shutil.copy(images / name, suite)
            said = run(ROOT / "scripts/suite", "centre.exe", *REQUEST).text
            self.check("a request runs through the signed images", "" if said.endswith("result 0x00000000\n") else said)
        finally:
            must(ROOT / "scripts/stage", self.build)

    def refused(self, what, reason, *words, build=None, password="", status=1):
        """Nothing is made, and the package that was there stays."""
        before = sums(self.signed)
        made = self.make(self.signed, *words, build=build, password=password)
        rest = [path.name for path in self.work.glob("*.new")]
        right = made.returncode == status and reason in made.text and sums(self.signed) == before and not rest
        right = right and "Traceback" not in made.text and PASSWORD not in made.text
        self.check(f"refused: {what}", "" if right else f"status {made.returncode}, left {rest}:\n{made.text}")

    def refusals(self, both, certificate):
        self.refused("an empty name of the key", "--sign is empty", "--sign=", status=2)
        self.refused("details of a signature alone", "--timestamp without --sign", "--timestamp=http://127.0.0.1:9/", status=2)
        self.refused("a wrong password", "Wrong password", f"--sign={both}", password="wrong")
        self.refused("a certificate without a key", "could not be signed", f"--sign={certificate}", password=PASSWORD)
        self.refused("a key that is not there", "cannot be read", "--sign=/nowhere/key.p12", password=PASSWORD)
        self.refused("a token that is not there", "could not be signed", "--sign=pkcs11:object=none",
                     "--pkcs11-module=/nowhere/module.so", password=PASSWORD)
        self.refused("a time-stamp server that does not answer", "could not be signed", f"--sign={both}",
                     "--timestamp=http://127.0.0.1:9/", password=PASSWORD)
        other = self.work / "unbuilt"
        self.refused("a tree that is not built", "build first", build=other)
        for folder in ("dist", "symbols"):
            shutil.copytree(self.build / folder, other / folder)
        image = other / "dist/wsc.dll"
        content = bytearray(image.read_bytes())
        at = int.from_bytes(content[60:64], "little") + LINK_TIME
        content[at:at + 4] = bytes(4)
        image.write_bytes(content)
        self.refused("an image that fails its checks", "FAILED wsc.dll has a link time", build=other)


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    checks = Checks(build)
    try:
        must(ROOT / "scripts/stores", build)
        checks.contents()
        both, certificate = checks.make_certificate()
        checks.signing(both, certificate)
        checks.refusals(both, certificate)
        checks.reproducible()
    except (OSError, subprocess.SubprocessError) as failure:
        checks.check("everything could be tried", str(failure))
    print(f"{checks.passed} passed, {checks.failed} failed")
    return 1 if checks.failed else 0


if __name__ == "__main__":
    sys.exit(main())
