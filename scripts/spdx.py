#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""spdx.py BUILD_FOLDER: an SPDX 2.3 document, as JSON on standard output, of what the folder's libraries and programs are made
of: the shared libraries that each needs, as the linker wrote it down, and the packages whose headers were compiled into
it, as ninja noted it at the build. Which package a file is of, dpkg says."""
import collections
import datetime
import hashlib
import json
import os
import re
import subprocess
import sys

MADE = ["libnq_gev_rdma_tl.cti", "nq-gev", "nq-gev-features.so", "gentl-check", "nq-gev-camera", "nq-software-rdma",
        "libnq_rdma_loopback.so"]
# Names of licences in Debian's copyright files that SPDX has others for.
LICENCES = {"Apache-2.0": "Apache-2.0", "BSD-2-clause": "BSD-2-Clause", "BSD-3-clause": "BSD-3-Clause", "BSD-3-Clause": "BSD-3-Clause",
            "Expat": "MIT", "MIT": "MIT", "GPL-2": "GPL-2.0-only", "GPL-2+": "GPL-2.0-or-later", "GPL-3+": "GPL-3.0-or-later",
            "LGPL-2.1": "LGPL-2.1-only", "LGPL-2.1+": "LGPL-2.1-or-later", "Zlib": "Zlib", "zlib": "Zlib"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"}).stdout


def digest(path, kind):
    with open(path, "rb") as file:
        return hashlib.new(kind, file.read()).hexdigest()


def packages_of(paths):
    """The Debian package of each file that has one. /lib is a link to /usr/lib; dpkg knows a file by either name."""
    names = {}
    for path in paths:
        names[path] = path
        names[path.removeprefix("/usr") if path.startswith("/usr/lib") else "/usr" + path] = path
    owners = {}
    listed = sorted(names)
    for start in range(0, len(listed), 500):
        result = subprocess.run(["dpkg", "-S", *listed[start:start + 500]], capture_output=True, text=True, check=False,
                                env={**os.environ, "LC_ALL": "C"})
        for line in result.stdout.splitlines():
            owner, _, path = line.partition(": ")
            if path in names and not owner.startswith("diversion by"):
                owners[names[path]] = owner.split(", ")[0].split(":")[0]
    return owners


def libraries_of(path):
    """The files that the loader takes for the libraries a file was linked with itself, not for those of its libraries."""
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-d", path))
    found = dict(re.findall(r"^\s*(\S+) => (/\S+)", output_of("ldd", path), flags=re.MULTILINE))
    return [os.path.realpath(found[name]) for name in needed if name in found]


def headers_by_object(folder):
    """What each object and each precompiled header was compiled from. Newer CMakes note what a program is linked with, too."""
    headers, name = collections.defaultdict(list), None
    for line in output_of("ninja", "-C", folder, "-t", "deps").splitlines():
        if line.startswith("    ") and name.endswith((".o", ".gch", ".pch")):
            headers[name].append(os.path.realpath(os.path.join(folder, line.strip())))
        elif ": #deps" in line:
            name = line.partition(":")[0]
    return headers


def foreign_headers(folder, made, headers):
    """The headers from outside the sources and the build that went into a file."""
    inside = (os.path.realpath(folder) + "/", os.path.realpath(os.path.dirname(__file__) + "/..") + "/")
    inputs = output_of("ninja", "-C", folder, "-t", "inputs", made).split()
    return {header for name in inputs for header in headers.get(name, []) if not header.startswith(inside)}


def licence(package):
    """What the package's own copyright file says of most of its files, in words of SPDX."""
    try:
        with open(f"/usr/share/doc/{package}/copyright", encoding="utf-8", errors="replace") as file:
            first = re.search(r"^Files: *\*\n(?:.+\n)*?License: *(\S+)$", file.read(), flags=re.MULTILINE)
    except OSError:
        return "NOASSERTION"
    return LICENCES.get(first[1], "NOASSERTION") if first else "NOASSERTION"


def package_id(name):
    return f"SPDXRef-Package-{name.replace('+', '-plus')}"


def debian_package(name):
    version, architecture = output_of("dpkg-query", "-W", "-f", "${Version} ${Architecture}\n", name).splitlines()[0].split()
    return {"SPDXID": package_id(name), "name": name, "versionInfo": version,
            "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
            "licenseConcluded": "NOASSERTION", "licenseDeclared": licence(name), "copyrightText": "NOASSERTION",
            "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                              "referenceLocator": f"pkg:deb/debian/{name}@{version}?arch={architecture}"}]}


def parts_of_files(folder):
    """Of each file that was built its libraries, and the headers of others that went into it."""
    headers, found = headers_by_object(folder), {}
    for name in MADE:
        path = os.path.join(folder, name)
        if os.path.exists(path):
            made = os.path.basename(os.path.realpath(path))
            found[name] = (set(libraries_of(path)), foreign_headers(folder, made, headers))
        else:
            print(f"{name} is not built", file=sys.stderr)
    return found


def document(folder):
    with open(os.path.join(folder, "CMakeCache.txt"), encoding="utf-8") as file:
        version = re.search(r"^CMAKE_PROJECT_VERSION:.*=(.*)$", file.read(), flags=re.MULTILINE)[1]
    own = {"SPDXID": "SPDXRef-Package-nq-gev-rdma-tl", "name": "nq_gev_rdma_tl", "versionInfo": version,
           "downloadLocation": "NOASSERTION", "filesAnalyzed": True, "licenseConcluded": "Apache-2.0",
           "licenseDeclared": "Apache-2.0", "copyrightText": "NOASSERTION"}
    files, relations = [], [("SPDXRef-DOCUMENT", "DESCRIBES", own["SPDXID"])]
    found = parts_of_files(folder)
    # One question for all: dpkg reads its whole list for each.
    owners = packages_of({path for linked, compiled in found.values() for path in linked | compiled})
    used = set(owners.values())
    for name, (linked, compiled) in found.items():
        path = os.path.realpath(os.path.join(folder, name))
        identity = "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.]", "-", name)
        files.append({"SPDXID": identity, "fileName": "./" + os.path.basename(path), "licenseConcluded": "Apache-2.0",
                      "copyrightText": "NOASSERTION",
                      "checksums": [{"algorithm": kind.upper(), "checksumValue": digest(path, kind)} for kind in ("sha1", "sha256")]})
        relations.append((own["SPDXID"], "CONTAINS", identity))
        relations += [(identity, "DYNAMIC_LINK", package_id(package))
                      for package in sorted({owners[path] for path in linked if path in owners})]
        relations += [(package_id(package), "BUILD_DEPENDENCY_OF", identity)
                      for package in sorted({owners[path] for path in compiled if path in owners})]
    own["packageVerificationCode"] = {"packageVerificationCodeValue": hashlib.sha1(
        "".join(sorted(file["checksums"][0]["checksumValue"] for file in files)).encode()).hexdigest()}
    contents = hashlib.sha256(json.dumps([files, relations]).encode()).hexdigest()
    time = int(os.environ.get("SOURCE_DATE_EPOCH", datetime.datetime.now().timestamp()))
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": f"nq_gev_rdma_tl-{version}",
            "documentNamespace": f"https://spdx.org/spdxdocs/nq_gev_rdma_tl-{version}-{contents}",
            "creationInfo": {"created": datetime.datetime.fromtimestamp(time, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
                             "creators": ["Tool: scripts/spdx.py"]},
            "packages": [own] + [debian_package(name) for name in sorted(used)], "files": files,
            "relationships": [{"spdxElementId": first, "relationshipType": kind, "relatedSpdxElement": second}
                              for first, kind, second in relations]}


def main(folder):
    json.dump(document(folder), sys.stdout, indent=2)
    print()
    return 0


sys.exit(main(*sys.argv[1:]))
