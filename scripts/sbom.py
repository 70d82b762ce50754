"""The SPDX document of scripts/sbom.sh: sbom.py FOLDER HEADERS..., where HEADERS are compiled into the tool."""

import datetime
import glob
import hashlib
import json
import os
import re
import subprocess
import sys
import uuid

NOTHING_SAID = "NOASSERTION"
DOCUMENT = "SPDXRef-DOCUMENT"
LIBRARY = "libveltra[0-9.]+"


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def spdx_id(name):
    return "SPDXRef-Package-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)


def names(dependencies):
    """The packages of a Depends field, of alternatives the installed one."""
    for alternatives in filter(None, (text.strip() for text in re.sub(r"\n", " ", dependencies).split(","))):
        found = [re.match(r"[a-z0-9.+-]+", text.strip()).group() for text in alternatives.split("|")]
        yield next((name for name in found if installed(name)), found[0])


def installed(name):
    return subprocess.run(["dpkg-query", "-W", name], check=False, capture_output=True).returncode == 0


def entry(name, version, architecture, **more):
    purl = f"pkg:deb/debian/{name}@{version.replace('+', '%2B').replace(':', '%3A')}?arch={architecture}"
    reference = {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": purl}
    return {"SPDXID": spdx_id(name), "name": name, "versionInfo": version, "supplier": NOTHING_SAID,
            "downloadLocation": NOTHING_SAID, "filesAnalyzed": False, "licenseConcluded": NOTHING_SAID,
            "licenseDeclared": NOTHING_SAID, "copyrightText": NOTHING_SAID, "externalRefs": [reference], **more}


def used_package(name):
    """A package of Debian's that is in use here."""
    fields = "${Version}\t${Architecture}\t${source:Package}\t${source:Version}\n"
    version, architecture, source, source_version = output("dpkg-query", "-W", "-f", fields, name).splitlines()[0].split("\t")
    return entry(name, version, architecture, sourceInfo=f"built from: {source} {source_version}")


def made_package(path):
    """A package of ours, with its checksum, and what it depends on."""
    name, version, architecture, depends = (output("dpkg-deb", "--field", path, field)
                                            for field in ("Package", "Version", "Architecture", "Depends"))
    with open(path, "rb") as file:
        checksum = hashlib.sha256(file.read()).hexdigest()
    more = {"packageFileName": os.path.basename(path), "checksums": [{"algorithm": "SHA256", "checksumValue": checksum}]}
    return entry(name, version, architecture, **more), list(names(depends))


def document(folder, headers):
    packages, relations = {}, []

    def relate(one, relation, other):
        relations.append({"spdxElementId": one, "relationshipType": relation, "relatedSpdxElement": other})

    made = [made_package(path) for path in sorted(glob.glob(folder + "/*.deb"))]
    own = {package["name"] for package, _ in made}
    library = next(name for name in own if re.fullmatch(LIBRARY, name))
    for package, _ in made:
        packages[package["name"]] = package
        relate(DOCUMENT, "DESCRIBES", package["SPDXID"])
    for package, depends in made:
        for name in depends:
            linked = name not in own and not name.endswith("-dev")
            packages.setdefault(name, None)
            relate(package["SPDXID"], "DYNAMIC_LINK" if linked else "DEPENDS_ON", spdx_id(name))
    with open("debian/control", encoding="utf-8") as file:
        built_with = re.search(r"^Build-Depends:((?:.|\n )*)", file.read(), re.M).group(1)
    for name in [*names(built_with), "g++"]:
        if name == "debhelper-compat":
            name = "debhelper"
        packages.setdefault(name, None)
        if name in headers:
            relate(spdx_id("veltra-tools"), "STATIC_LINK", spdx_id(name))
        else:
            relate(spdx_id(name), "BUILD_DEPENDENCY_OF", spdx_id(library))
    entries = [package or used_package(name) for name, package in sorted(packages.items())]

    created = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    version = packages["veltra-tools"]["versionInfo"]
    content = uuid.uuid5(uuid.NAMESPACE_OID, json.dumps([created.timestamp(), entries, relations]))
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": DOCUMENT, "name": f"veltra-{version}",
            "documentNamespace": f"urn:uuid:{content}",
            "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: veltra-sbom"]},
            "packages": entries, "relationships": relations}


def faults(result):
    """What the format forbids, and what this document is to hold besides."""
    ids = [package["SPDXID"] for package in result["packages"]]
    named = {package["name"] for package in result["packages"]}
    if len(set(ids)) != len(ids):
        yield "an identifier stands for two packages"
    for package in result["packages"]:
        if not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", package["SPDXID"]):
            yield f"{package['SPDXID']} is no identifier"
        if not package["versionInfo"]:
            yield f"{package['name']} has no version"
        if ("sourceInfo" in package) == ("checksums" in package):
            yield f"{package['name']} is neither made here nor Debian's"
    for relation in result["relationships"]:
        for end in (relation["spdxElementId"], relation["relatedSpdxElement"]):
            if end not in ids and end != DOCUMENT:
                yield f"{end} is related, but not listed"
    for what, pattern in (("library", LIBRARY), ("libcurl", "libcurl4(t64)?"), ("GLib", "libglib2.0-0(t64)?"),
                          ("pugixml", "libpugixml1v5"), ("CLI11", "libcli11-dev"), ("JSON", "nlohmann-json3-dev")):
        if not any(re.fullmatch(pattern, name) for name in named):
            yield f"the {what} is missing"


def main():
    result = document(sys.argv[1], sys.argv[2:])
    found = list(faults(result))
    if found:
        sys.exit("\n".join("sbom: " + fault for fault in found))
    path = os.path.join(sys.argv[1], result["name"] + ".spdx.json")
    with open(path, "w", encoding="utf-8") as file:
        json.dump(result, file, indent=1)
        file.write("\n")
    print(f"{path}: {len(result['packages'])} packages, {len(result['relationships'])} relations")


main()
