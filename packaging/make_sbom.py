#!/usr/bin/env python3
"""Writes the licences of what is linked into the programs, and the bill of materials in the format SPDX 2.3.

usage: packaging/make_sbom.py BUILD STAGE VERSION SBOM.json

BUILD is the CMake directory of the Windows build, STAGE the directory whose files the packages contain. The licences
go to STAGE/licenses. SOURCE_DATE_EPOCH is the time of the document.
"""

import datetime
import hashlib
import json
import os
import re
import sys

import components

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PRODUCT = "SPDXRef-Package-torvane-log-server"


def identifier(text):
    return re.sub(r"[^A-Za-z0-9.]+", "-", text).strip("-")


def files_below(folder):
    for where, folders, names in os.walk(folder):
        folders.sort()
        for name in sorted(names):
            path = os.path.join(where, name)
            yield os.path.relpath(path, folder), path


def file_entry(name, path):
    with open(path, "rb") as file:
        content = file.read()
    return {
        "fileName": "./" + name.replace(os.sep, "/"),
        "SPDXID": "SPDXRef-File-" + identifier(name),
        "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
                      {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()}],
        "licenseConcluded": "NOASSERTION",
        "copyrightText": "NOASSERTION",
    }


def component_entry(component):
    return {
        "name": component.name,
        "SPDXID": "SPDXRef-Package-" + identifier(component.package),
        "versionInfo": component.version,
        "supplier": "Organization: Debian",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": component.licence,
        "licenseDeclared": component.licence,
        "copyrightText": "NOASSERTION",
        "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                          "referenceLocator": f"pkg:deb/debian/{component.package}@{component.version}"}],
    }


def document(stage, version, found):
    files = [file_entry(name, path) for name, path in files_below(stage)]
    sha1s = sorted(entry["checksums"][0]["checksumValue"] for entry in files)
    verification = hashlib.sha1("".join(sha1s).encode()).hexdigest()
    created = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    product = {
        "name": "torvane-log-server",
        "SPDXID": PRODUCT,
        "versionInfo": version,
        "supplier": "Organization: Brenmark VORTA",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": verification},
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "licenseInfoFromFiles": ["NOASSERTION"],
        "copyrightText": "NOASSERTION",
    }

    def relation(subject, kind, other):
        return {"spdxElementId": subject, "relationshipType": kind, "relatedSpdxElement": other}

    relations = [relation("SPDXRef-DOCUMENT", "DESCRIBES", PRODUCT)]
    relations += [relation(PRODUCT, "CONTAINS", entry["SPDXID"]) for entry in files]
    names = {os.path.basename(entry["fileName"]): entry["SPDXID"] for entry in files}
    for component in found:
        for program in sorted(component.programs & set(names)):
            relations.append(relation(names[program], "STATIC_LINK",
                                      "SPDXRef-Package-" + identifier(component.package)))
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"torvane-log-server-{version}-x64",
        "documentNamespace": f"urn:torvane-log-server:{version}:{verification}",
        "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": ["Organization: Brenmark VORTA", "Tool: make_sbom.py"]},
        "packages": [product] + [component_entry(component) for component in found],
        "files": files,
        "relationships": relations,
        "hasExtractedLicensingInfos": [{
            "licenseId": "LicenseRef-MinGW-w64",
            "name": "Licences of the MinGW-w64 run-time",
            "extractedText": "ZPL-2.1 and, by file, other permissive licences; see licenses/mingw-w64-x86-64-dev.txt",
        }],
    }


def write_licences(stage, found):
    folder = os.path.join(stage, "licenses")
    os.makedirs(folder, exist_ok=True)
    lines = ["The programs contain these parts of others. Each file holds the notices of one part.", ""]
    for component in found:
        with open(os.path.join(folder, component.package + ".txt"), "w", encoding="utf-8") as file:
            file.write(component.copyright())
        lines += [f"{component.name}", f"    version   {component.version}", f"    licence   {component.licence}",
                  f"    in        {', '.join(sorted(component.programs))}", f"    notices   {component.package}.txt", ""]
    with open(os.path.join(folder, "README.txt"), "w", encoding="utf-8") as file:
        file.write("\n".join(lines))


def main(arguments):
    if len(arguments) != 4 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    build, stage, version, target = arguments
    try:
        found = components.find(os.path.abspath(build), ROOT)
    except components.Unknown as failure:
        print(f"make_sbom.py: {failure}", file=sys.stderr)
        return 1
    write_licences(stage, found)
    with open(target, "w", encoding="utf-8") as file:
        json.dump(document(stage, version, found), file, indent=2)
        file.write("\n")
    print(f"linked in: {', '.join(component.name for component in found)}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
