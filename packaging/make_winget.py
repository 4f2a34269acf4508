#!/usr/bin/env python3
"""Writes the winget manifest of the MSI and the setup program.

usage: packaging/make_winget.py VERSION URL MSI SETUP TARGET

URL is the address of the directory from which both files will be downloaded. TARGET gets the three files of a
manifest: version, locale, installer.
"""

import datetime
import hashlib
import json
import os
import sys

import maker
import make_msi

IDENTIFIER = "BrenmarkVORTA.TorvaneLogServer"
SCHEMA = "1.6.0"


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest().upper()


def manifest(kind, lines):
    head = [f"# yaml-language-server: $schema=https://aka.ms/winget-manifest.{kind}.{SCHEMA}.schema.json", ""]
    return "\n".join([*head, *lines, f"ManifestType: {kind}", f"ManifestVersion: {SCHEMA}", ""])


def files(version, url, msi, setup):
    name = [f"PackageIdentifier: {IDENTIFIER}", f"PackageVersion: {version}"]
    about = maker.values()
    day = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    yield f"{IDENTIFIER}.yaml", manifest("version", [*name, "DefaultLocale: en-US"])
    yield f"{IDENTIFIER}.locale.en-US.yaml", manifest("defaultLocale", [
        *name, "PackageLocale: en-US", "Publisher: Brenmark VORTA", "PackageName: Torvane Log Server",
        f"PackageUrl: {about['MAKER_HOMEPAGE']}", f"License: {json.dumps(about['MAKER_LICENSE'])}",
        f"Copyright: {json.dumps(about['MAKER_COPYRIGHT'])}",
        "ShortDescription: Collects messages produced by Brenmark VORTA Torvane software components"])
    yield f"{IDENTIFIER}.installer.yaml", manifest("installer", [
        *name, "MinimumOSVersion: 6.1.7601.0", "Scope: machine", "ElevationRequirement: elevationRequired",
        "UpgradeBehavior: install", f"ReleaseDate: {day:%Y-%m-%d}", "Installers:",
        "- Architecture: x64", "  InstallerType: wix", f"  InstallerUrl: {url}/{os.path.basename(msi)}",
        f"  InstallerSha256: {digest(msi)}", f"  ProductCode: '{make_msi.guid('product', version)}'",
        "- Architecture: x64", "  InstallerType: nullsoft", f"  InstallerUrl: {url}/{os.path.basename(setup)}",
        f"  InstallerSha256: {digest(setup)}", "  ProductCode: Torvane Log Server",
        "  ExpectedReturnCodes:", "  - InstallerReturnCode: 3", "    ReturnResponse: downgrade"])


def main(arguments):
    if len(arguments) != 5 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    *described, target = arguments
    os.makedirs(target, exist_ok=True)
    for name, text in files(*described):
        with open(os.path.join(target, name), "w", encoding="utf-8", newline="\n") as file:
            file.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
