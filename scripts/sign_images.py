"""Signs images with osslsigncode, by a PKCS#12 file or a key on a PKCS#11 token."""
import os
import pathlib
import re
import shutil
import subprocess

PASSWORD_VARIABLE = "CORVID_WSC_SIGN_PASSWORD"
LONGEST_SIGNING = 120  # s; a time-stamp server answers in seconds or never
ENGINE_MODULE = "/usr/lib/x86_64-linux-gnu/p11-kit-proxy.so"  # knows every module that the machine has registered


class SigningError(Exception):
    pass


def add_options(parser):
    group = parser.add_argument_group("signing")
    group.add_argument("--sign", metavar="KEY", help="a PKCS#12 file, or the PKCS#11 URI of a key (pkcs11:...)")
    group.add_argument("--certificate", metavar="FILE", help="the certificates for a PKCS#11 key, unless the token has them")
    group.add_argument("--pkcs11-module", metavar="FILE", help="the token's library")
    group.add_argument("--password-file", metavar="FILE", help=f"holds the password or PIN; else {PASSWORD_VARIABLE} in the environment")
    group.add_argument("--timestamp", metavar="URL", help="an RFC 3161 time-stamp server")


def wrong_use(options):
    """What is wrong with the options; empty when nothing is. An empty one comes of a variable that nobody set: never taken for no wish to
    sign."""
    details = {"--timestamp": options.timestamp, "--certificate": options.certificate, "--password-file": options.password_file,
               "--pkcs11-module": options.pkcs11_module}
    empty = [name for name, value in {"--sign": options.sign, **details}.items() if value == ""]
    if empty:
        return f"{empty[0]} is empty"
    if options.sign is None and any(details.values()):
        return f"{', '.join(name for name, value in details.items() if value)} without --sign"
    return ""


def read_password(options):
    if options.password_file:
        return next(iter(pathlib.Path(options.password_file).read_text("utf-8").splitlines()), "")
    return os.environ.get(PASSWORD_VARIABLE, "")


def key_options(options):
    if not options.sign.startswith("pkcs11:"):
        if not os.access(options.sign, os.R_OK):
            raise SigningError(f"the file {options.sign} cannot be read")
        return ["-pkcs12", options.sign]
    certificate = ["-certs", options.certificate] if options.certificate else ["-pkcs11cert", options.sign]
    return ["-pkcs11module", options.pkcs11_module or ENGINE_MODULE, *certificate, "-key", options.sign]


def sign(images, options):
    """Each image is replaced by its signed one. No password stands on a command line or in a file of ours."""
    if not shutil.which("osslsigncode"):
        raise SigningError("there is no osslsigncode; scripts/setup installs it")
    command = ["osslsigncode", "sign", *key_options(options), "-h", "sha256", "-n", "Corvid Antivirus"]
    if options.timestamp:
        command += ["-ts", options.timestamp]
    password = read_password(options).encode()
    for image in images:
        signed = image.with_name(image.name + ".signed")
        memory = os.memfd_create("password")
        try:
            os.write(memory, password)
            words = [*command, *(["-readpass", f"/proc/self/fd/{memory}"] if password else []), "-in", str(image), "-out", str(signed)]
            run = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                                 timeout=LONGEST_SIGNING, pass_fds=[memory])
        except subprocess.TimeoutExpired as failure:
            raise SigningError(f"osslsigncode gave no answer within {LONGEST_SIGNING} s") from failure
        finally:
            os.close(memory)
        if run.returncode or not signed.exists():
            said = [line for line in run.stdout.decode("utf-8", "replace").splitlines() if line.strip() and not re.match("Failed$", line)]
            raise SigningError(f"{image.name} could not be signed with {options.sign}; osslsigncode says:\n  " + "\n  ".join(said))
        shutil.copymode(image, signed)
        signed.replace(image)
