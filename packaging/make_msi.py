#!/usr/bin/env python3
"""Makes the MSI package.

usage: packaging/make_msi.py STAGE ACTIONS.dll VERSION OUTPUT.msi

Packs the files of the directory STAGE. wixl writes the tables it knows; msibuild adds the others. The same input gives
the same bytes: all identifiers are computed from names, and SOURCE_DATE_EPOCH is the time of everything.
"""

import hashlib
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import uuid
from xml.sax.saxutils import quoteattr

import maker

HERE = os.path.dirname(os.path.abspath(__file__))
NAMESPACE = uuid.UUID("6f0b6f0e-5a0e-4c3c-9d0b-6d0f1e7f5a11")
# Never changes: by it the system recognises all versions as one product.
UPGRADE_CODE = "{4B0E1B2A-7C55-4E0B-8C1E-2D8D5E7B9A10}"
PACKAGE_KEY = r"SOFTWARE\Brenmark VORTA\Torvane Log Server Package"
EVENT_KEY = r"SYSTEM\CurrentControlSet\Services\EventLog\Application\TamLogServer"
# What the server grants at its own registration: the usual rights, and start and stop for everyone.
SERVICE_RIGHTS = ("D:(A;;CCLCSWRPWPDTLOCRRC;;;SY)(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;BA)(A;;CCLCSWLOCRRC;;;IU)"
                  "(A;;CCLCSWLOCRRC;;;SU)(A;;RPWPRC;;;WD)")


def guid(*words):
    return "{" + str(uuid.uuid5(NAMESPACE, "/".join(words))).upper() + "}"


def identifier(kind, name):
    return kind + uuid.uuid5(NAMESPACE, kind + name).hex[:16]


class Tree:
    """The directories and files of the stage, as elements of wixl's language."""

    def __init__(self, work):
        self.stage = os.path.join(work, "files")
        self.components = []

    def directory(self, relative, indent):
        lines = []
        pad = " " * indent
        for name in sorted(os.listdir(os.path.join(self.stage, relative))):
            path = os.path.join(relative, name) if relative else name
            if os.path.isdir(os.path.join(self.stage, path)):
                lines.append(f"{pad}<Directory Id={quoteattr(identifier('d', path))} Name={quoteattr(name)}>")
                lines += self.directory(path, indent + 2)
                lines.append(f"{pad}</Directory>")
            elif path != "TamLogServer.exe":
                lines += self.component(path, name, indent)
        return lines

    def component(self, path, name, indent):
        pad = " " * indent
        own = identifier("c", path)
        self.components.append(own)
        file = quoteattr("files/" + path)
        return [f"{pad}<Component Id={quoteattr(own)} Guid={quoteattr(guid('component', path))} Win64=\"yes\">",
                f"{pad}  <File Id={quoteattr(identifier('f', path))} Name={quoteattr(name)} "
                f"Source={file} KeyPath=\"yes\"/>",
                f"{pad}</Component>"]


def source(work, version):
    """Paths are relative to the directory `work`, in which wixl runs."""
    tree = Tree(work)
    body = "\n".join(tree.directory("", 12))
    about = maker.values()
    references = "\n".join(f'      <ComponentRef Id="{name}"/>' for name in ["Server", *tree.components])
    return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="{guid('product', version)}" Name="Torvane Log Server" Language="1033" Version="{version}"
           Manufacturer="Brenmark VORTA" UpgradeCode="{UPGRADE_CODE}">
    <Package InstallerVersion="500" Compressed="yes" InstallScope="perMachine"
             Description="Torvane Log Server {version}" Manufacturer="Brenmark VORTA"/>
    <MajorUpgrade DowngradeErrorMessage="A newer version is installed; remove it before you install this one."/>
    <Media Id="1" Cabinet="files.cab" EmbedCab="yes"/>
    <Binary Id="Actions" SourceFile="actions.dll"/>
    <Icon Id="torvane.ico" SourceFile="torvane.ico"/>
    <Property Id="ARPPRODUCTICON" Value="torvane.ico"/>
    <Property Id="ARPNOMODIFY" Value="1"/>
    <Property Id="ARPCONTACT" Value={quoteattr(about["MAKER_CONTACT"])}/>
    <Property Id="ARPURLINFOABOUT" Value={quoteattr(about["MAKER_HOMEPAGE"])}/>
    <Property Id="MSIRESTARTMANAGERCONTROL" Value="DisableShutdown"/>
    <!-- A program in use, such as tamlogctl follow, would otherwise let a silent upgrade restart the machine. -->
    <Property Id="REBOOT" Value="ReallySuppress"/>
    <Directory Id="TARGETDIR" Name="SourceDir">
      <Directory Id="ProgramFiles64Folder">
        <Directory Id="INSTALLDIR" Name="Torvane">
            <Component Id="Server" Guid="{guid('component', 'TamLogServer.exe')}" Win64="yes">
              <File Id="TamLogServer.exe" Name="TamLogServer.exe"
                    Source="files/TamLogServer.exe" KeyPath="yes"/>
              <ServiceInstall Id="TamLogServer" Name="TamLogServer" DisplayName="Torvane Log Server"
                              Description="Collects messages produced by Brenmark VORTA Torvane software components"
                              Type="ownProcess" Start="auto" ErrorControl="normal"/>
              <ServiceControl Id="StopServer" Name="TamLogServer" Stop="both" Remove="uninstall" Wait="yes"/>
              <ServiceControl Id="StartServer" Name="TamLogServer" Start="install" Wait="yes"/>
              <RegistryValue Root="HKLM" Key="{EVENT_KEY}" Name="EventMessageFile" Type="expandable"
                             Value="%SystemRoot%\\System32\\EventCreate.exe"/>
              <RegistryValue Root="HKLM" Key="{EVENT_KEY}" Name="TypesSupported" Type="integer" Value="7"/>
              <RegistryValue Root="HKLM" Key="{EVENT_KEY}" Name="CustomSource" Type="integer" Value="1"/>
              <RegistryValue Root="HKLM" Key="{PACKAGE_KEY}" Name="Kind" Type="string" Value="msi"/>
              <RegistryValue Root="HKLM" Key="{PACKAGE_KEY}" Name="Version" Type="string" Value="[ProductVersion]"/>
              <RegistryValue Root="HKLM" Key="{PACKAGE_KEY}" Name="Directory" Type="string" Value="[INSTALLDIR]"/>
            </Component>
{body}
        </Directory>
      </Directory>
    </Directory>
    <Feature Id="Complete" Level="1" Title="Torvane Log Server">
{references}
    </Feature>
  </Product>
</Wix>
"""


def statements():
    """The tables that wixl does not write."""
    yield ("CREATE TABLE `Environment` (`Environment` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL LOCALIZABLE, "
           "`Value` CHAR(255) LOCALIZABLE, `Component_` CHAR(72) NOT NULL PRIMARY KEY `Environment`)")
    yield ("INSERT INTO `Environment` (`Environment`, `Name`, `Value`, `Component_`) "
           "VALUES ('Path', '=-*PATH', '[~];[INSTALLDIR]', 'Server')")
    yield ("CREATE TABLE `MsiServiceConfigFailureActions` (`MsiServiceConfigFailureActions` CHAR(72) NOT NULL, "
           "`Name` CHAR(255) NOT NULL LOCALIZABLE, `Event` SHORT NOT NULL, `ResetPeriod` LONG, "
           "`RebootMessage` CHAR(255) LOCALIZABLE, `Command` CHAR(255) LOCALIZABLE, `Actions` CHAR(255), "
           "`DelayActions` CHAR(255), `Component_` CHAR(72) NOT NULL PRIMARY KEY `MsiServiceConfigFailureActions`)")
    # 1: restart the service. Delays in ms, the period in s. 5: at installation and at repair. For readers of the MSI: the
    # action SetRestarts sets the same, because the standard one "is not working as expected" by its documentation.
    yield ("INSERT INTO `MsiServiceConfigFailureActions` (`MsiServiceConfigFailureActions`, `Name`, `Event`, "
           "`ResetPeriod`, `Actions`, `DelayActions`, `Component_`) VALUES ('Restart', 'TamLogServer', 5, 86400, "
           "'1[~]1[~]1', '5000[~]30000[~]60000', 'Server')")
    yield ("CREATE TABLE `MsiLockPermissionsEx` (`MsiLockPermissionsEx` CHAR(72) NOT NULL, `LockObject` CHAR(72) NOT "
           "NULL, `Table` CHAR(32) NOT NULL, `SDDLText` CHAR(0) NOT NULL, `Condition` CHAR(255) "
           "PRIMARY KEY `MsiLockPermissionsEx`)")
    yield ("INSERT INTO `MsiLockPermissionsEx` (`MsiLockPermissionsEx`, `LockObject`, `Table`, `SDDLText`) VALUES "
           f"('Service', 'TamLogServer', 'ServiceInstall', '{SERVICE_RIGHTS}')")
    # 18: a value of the 64-bit registry.
    yield ("INSERT INTO `RegLocator` (`Signature_`, `Root`, `Key`, `Name`, `Type`) VALUES "
           f"('PackageKind', 2, '{PACKAGE_KEY}', 'Kind', 18)")
    yield "INSERT INTO `AppSearch` (`Property`, `Signature_`) VALUES ('PACKAGEKIND', 'PackageKind')"
    yield ("INSERT INTO `LaunchCondition` (`Condition`, `Description`) VALUES ('NOT PACKAGEKIND = \"setup\"', "
           "'The setup program installed this product; remove it before you use the MSI.')")
    yield ("INSERT INTO `LaunchCondition` (`Condition`, `Description`) VALUES ('VersionNT64 >= 601', "
           "'The Torvane Log Server needs 64-bit Windows 7 or later.')")
    # 1: a function of a library in the table Binary. 64: its failure does not matter. 3072: with the rights of the
    # system, when the script of the installation runs. 512: only after everything else was done, because nothing
    # could bring the deleted messages back. 256: only when the installation fails. 51: sets a property.
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('CheckDevice', 65, 'Actions', 'CheckDevice')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('RememberData', 1, 'Actions', 'RememberData')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('DeleteNewData', 3393, 'Actions', 'DeleteNewData')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('DeleteData', 3649, 'Actions', 'DeleteData')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('QuoteCommand', 3073, 'Actions', 'QuoteCommand')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('SetRestarts', 3073, 'Actions', 'SetRestarts')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('MakeDirectory', 3073, 'Actions', 'MakeDirectory')")
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('RemoveNewDirectory', 3393, 'Actions', 'RemoveNewDirectory')")
    # An upgrade goes to the directory of the old version, unless the command line names another.
    yield ("INSERT INTO `RegLocator` (`Signature_`, `Root`, `Key`, `Name`, `Type`) VALUES "
           f"('PackageDirectory', 2, '{PACKAGE_KEY}', 'Directory', 18)")
    yield "INSERT INTO `AppSearch` (`Property`, `Signature_`) VALUES ('OLDDIRECTORY', 'PackageDirectory')"
    yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
           "VALUES ('KeepDirectory', 51, 'INSTALLDIR', '[OLDDIRECTORY]')")
    for action in ("DeleteData", "MakeDirectory", "QuoteCommand"):
        yield ("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
               f"VALUES ('DirectoryFor{action}', 51, '{action}', '[INSTALLDIR]')")
    remove = 'REMOVE="ALL" AND DELETEDATA=1 AND NOT UPGRADINGPRODUCTCODE'
    install = 'NOT REMOVE="ALL"'
    sequence = (("AppSearch", "", 50), ("KeepDirectory", "OLDDIRECTORY AND NOT INSTALLDIR", 60),
                ("RemoveNewDirectory", install, 3650), ("DirectoryForMakeDirectory", install, 3651),
                ("MakeDirectory", install, 3652), ("RememberData", install, 1398), ("CheckDevice", install, 1399),
                ("DirectoryForDeleteData", remove, 3601), ("DeleteData", remove, 3602),
                ("DirectoryForQuoteCommand", install, 5801), ("QuoteCommand", install, 5802),
                ("DeleteNewData", install, 5899), ("WriteEnvironmentStrings", "", 5200),
                ("RemoveEnvironmentStrings", "", 3300), ("SetRestarts", install, 5803))
    for action, condition, number in sequence:
        yield (f"INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
               f"VALUES ('{action}', '{condition}', {number})")
    # wixl drops the mark of a text in which the system replaces %NAMES%.
    yield (r"UPDATE `Registry` SET `Value` = '#%%SystemRoot%\System32\EventCreate.exe' "
           "WHERE `Name` = 'EventMessageFile'")
    # There are no dialogs. Costs of the user interface would fix INSTALLDIR before KeepDirectory.
    for action in ("FindRelatedProducts", "LaunchConditions", "ValidateProductID", "CostInitialize", "FileCost",
                   "CostFinalize", "MigrateFeatureStates"):
        yield f"DELETE FROM `InstallUISequence` WHERE `Action` = '{action}'"
    # Within the transaction, so that a failure brings the old version back.
    yield "UPDATE `InstallExecuteSequence` SET `Sequence` = 1501 WHERE `Action` = 'RemoveExistingProducts'"
    yield "UPDATE `InstallExecuteSequence` SET `Condition` = 'NOT DEVICEMISSING' WHERE `Action` = 'StartServices'"


def run(*command, cwd=None):
    done = subprocess.run(command, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=cwd)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)[:300]}\n{done.stdout}")
    return done.stdout


def set_times(folder, moment):
    for where, _, names in os.walk(folder):
        for name in [*names, ""]:
            os.utime(os.path.join(where, name), (moment, moment))


def settle_summary(content, version, moment):
    """Replaces the random code of the package and the times of its making, which wixl writes into the summary."""
    summary = uuid.UUID("f29f85e0-4ff9-1068-ab91-08002b27b3d9").bytes_le
    begin = content.find(summary)
    if begin < 0 or content.find(summary, begin + 1) >= 0:
        raise RuntimeError("the MSI has no summary, or more than one")
    section = begin - 28 + struct.unpack_from("<I", content, begin + 16)[0]
    (count,) = struct.unpack_from("<I", content, section + 4)
    stamp = (moment + 11644473600) * 10_000_000  # since 1601, in units of 100 ns
    code = guid("package", version, hashlib.sha256(bytes(content[:begin])).hexdigest()).encode()
    settled = 0
    for number, offset in struct.iter_unpack("<II", content[section + 8:section + 8 + 8 * count]):
        at = section + offset
        (kind,) = struct.unpack_from("<I", content, at)
        if number in (12, 13) and kind == 64:
            struct.pack_into("<Q", content, at + 4, stamp)
            settled += 1
        elif number == 9 and kind == 30 and re.fullmatch(rb"\{[0-9A-F-]{36}\}", content[at + 8:at + 46]):
            content[at + 8:at + 46] = code
            settled += 1
    if settled != 3:
        raise RuntimeError("the summary of the MSI is not as wixl writes it")


def build(stage, actions, version, output):
    moment = int(os.environ["SOURCE_DATE_EPOCH"])
    with tempfile.TemporaryDirectory() as work:
        files = os.path.join(work, "files")
        shutil.copytree(stage, files)
        set_times(files, moment)
        shutil.copyfile(os.path.join(HERE, "resources", "torvane.ico"), os.path.join(work, "torvane.ico"))
        shutil.copyfile(actions, os.path.join(work, "actions.dll"))
        with open(os.path.join(work, "package.wxs"), "w", encoding="utf-8") as file:
            file.write(source(work, version))
        made = os.path.join(work, "package.msi")
        run("wixl", "--arch", "x64", "--output", "package.msi", "package.wxs", cwd=work)
        for statement in statements():
            run("msibuild", made, "-q", statement)
        with open(made, "rb") as file:
            content = bytearray(file.read())
        settle_summary(content, version, moment)
        with open(output, "wb") as file:
            file.write(content)


def main(arguments):
    if len(arguments) != 4 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    try:
        build(*arguments)
    except RuntimeError as failure:
        print(f"make_msi.py: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
