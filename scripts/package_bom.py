"""The bill of materials of a package, as SPDX 2.3: its files, what of others is in them, and what built them."""
import collections
import datetime
import hashlib
import json
import subprocess
import uuid

# relation: what the file wsc.dll is to the part. Versions are asked of the machine that built.
Part = collections.namedtuple("Part", "id name debian licence relation")

GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
PARTS = [
    Part("mingw-w64", "mingw-w64 runtime", "mingw-w64-i686-dev", "ZPL-2.1", "STATIC_LINK"),
    Part("winpthreads", "winpthreads", "mingw-w64-i686-dev", "MIT AND BSD-3-Clause", "STATIC_LINK"),
    Part("libstdcxx", "libstdc++", "g++-mingw-w64-i686-posix", GCC_LICENCE, "STATIC_LINK"),
    Part("libgcc-static", "libgcc (start-up code and helpers)", "gcc-mingw-w64-i686-posix", GCC_LICENCE, "STATIC_LINK"),
    Part("libgcc", "libgcc (libgcc_s_dw2-1.dll)", "gcc-mingw-w64-i686-win32-runtime", GCC_LICENCE, "DYNAMIC_LINK"),
    Part("boost", "Boost headers", "libboost1.74-dev", "BSL-1.0", "GENERATED_FROM"),
]
TOOLS = ["clang-16", "lld-16", "llvm-16", "binutils-mingw-w64-i686", "cmake", "ninja-build", "osslsigncode"]

Debian = collections.namedtuple("Debian", "version architecture source source_version")


def ask_debian(package):
    """An installed package's version, architecture, and source package with its version."""
    form = "${Version}\t${Architecture}\t${source:Package}\t${source:Version}"
    run = subprocess.run(["dpkg-query", "-W", "-f", form, package], stdin=subprocess.DEVNULL, capture_output=True, check=False, text=True)
    if run.returncode:
        raise OSError(f"the Debian package {package}, which the build used, is not known to dpkg: {run.stderr.strip()}")
    return Debian(*run.stdout.split("\t"))


def digest(algorithm, data):
    return {"algorithm": algorithm.upper(), "checksumValue": hashlib.new(algorithm, data).hexdigest()}


def package(identity, name, debian_name, licence):
    debian = ask_debian(debian_name)
    locator = f"pkg:deb/debian/{debian_name.replace('+', '%2B')}@{debian.version.replace('+', '%2B').replace(':', '%3A')}"
    return {
        "SPDXID": f"SPDXRef-{identity}", "name": name, "versionInfo": debian.version, "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False, "licenseConcluded": licence, "licenseDeclared": licence, "copyrightText": "NOASSERTION",
        "supplier": "Organization: Debian",
        "sourceInfo": f"Debian package {debian_name}, built from the source package {debian.source} {debian.source_version}",
        "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                          "referenceLocator": f"{locator}?arch={debian.architecture}"}],
    }


def relation(one, kind, other):
    return {"spdxElementId": f"SPDXRef-{one}", "relationshipType": kind, "relatedSpdxElement": f"SPDXRef-{other}"}


def compose(name, version, moment, contents, signed):
    """The document as text. `contents`: path in the package -> bytes; `moment`: seconds since 1970."""
    files, sums, relations = [], [], [relation("DOCUMENT", "DESCRIBES", "package")]
    for number, (path, data) in enumerate(sorted(contents.items()), 1):
        sums.append(hashlib.sha1(data).hexdigest())
        kind = "BINARY" if path.endswith(".dll") else "TEXT"
        identity = path.replace("_", "-") if kind == "BINARY" else f"file-{number}"
        files.append({"SPDXID": f"SPDXRef-{identity}", "fileName": f"./{path}", "fileTypes": [kind],
                      "checksums": [digest("sha1", data), digest("sha256", data)], "licenseConcluded": "NOASSERTION",
                      "copyrightText": "NOASSERTION"})
        relations.append(relation("package", "CONTAINS", identity))
    product = {
        "SPDXID": "SPDXRef-package", "name": name, "versionInfo": version, "downloadLocation": "NOASSERTION", "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": hashlib.sha1("".join(sorted(sums)).encode()).hexdigest()},
        "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION",
        "supplier": "Organization: CORVID Software", "primaryPackagePurpose": "LIBRARY",
    }
    packages = [product]
    for part in PARTS:
        packages.append(package(part.id, part.name, part.debian, part.licence))
        relations.append(relation("wsc.dll", part.relation, part.id))
    relations.append(relation("libgcc-s-dw2-1.dll", "GENERATED_FROM", "libgcc"))
    for tool in TOOLS:
        if tool != "osslsigncode" or signed:
            packages.append(package(f"tool-{tool}", tool, tool, "NOASSERTION"))
            relations.append(relation(f"tool-{tool}", "BUILD_TOOL_OF", "package"))
    created = datetime.datetime.fromtimestamp(moment, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": f"{name}-{version}",
        "creationInfo": {"created": created, "creators": ["Organization: CORVID Software", "Tool: make_package.py"]},
        "packages": packages, "files": files, "relationships": relations,
    }
    # A name of its own for each content, and the same one for the same content.
    document["documentNamespace"] = uuid.uuid5(uuid.NAMESPACE_OID, json.dumps(document, sort_keys=True)).urn
    return json.dumps(document, indent=2) + "\n"
