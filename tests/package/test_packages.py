# SPDX-License-Identifier: Apache-2.0
"""The packages that ./package has built: what is in them, and that it runs."""

import json
import pathlib
import re
import subprocess
import tarfile

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGES = ROOT / "build" / "packages"
VERSION = re.search(r"^project\(vus VERSION (\S+) ", (ROOT / "CMakeLists.txt").read_text(),
                    flags=re.M).group(1)
# What a package depends on that is no library.
OTHERS = {"kmod", "mount", "systemd", "vus-tools"}


def deb(name):
    found = list(PACKAGES.glob(f"{name}_*.deb"))
    assert len(found) == 1, f"run ./package: {found}"
    return found[0]


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True,
                          text=True, timeout=120, **options).stdout


def contents(name):
    """Path to mode and owner."""
    rows = [line.split(None, 5) for line in run("dpkg-deb", "-c", deb(name)).splitlines()]
    return {row[5].split(" -> ")[0].lstrip("."): (row[0], row[1]) for row in rows}


def field(name, key):
    return run("dpkg-deb", "-f", deb(name), key).strip()


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    """Both packages unpacked over each other: no file is in both."""
    top = tmp_path_factory.mktemp("root")
    for name in ("vus", "vus-tools"):
        run("dpkg-deb", "-x", deb(name), top)
    return top


@pytest.mark.parametrize("name", ["vus", "vus-tools"])
def test_version(name):
    assert field(name, "Version") == VERSION


@pytest.mark.parametrize("name", ["vus", "vus-tools"])
def test_everything_in_it_is_of_the_changelogs_time(name):
    """Not of the checkout's, which nobody else has."""
    when = run("dpkg-parsechangelog", "--file", ROOT / "debian" / "changelog", "--show-field", "Timestamp")
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", deb(name)], stdout=subprocess.PIPE) as archive:
        with tarfile.open(fileobj=archive.stdout, mode="r|") as members:
            assert [member.name for member in members if member.mtime != int(when)] == []


def test_the_copyright_names_whose_source_is_compiled_in(installed):
    text = (installed / "usr/share/doc/vus/copyright").read_text()
    source = text[text.index("Files: build/downloads/frameworks-native/*"):].split("\n\n")[0]
    assert "The Android Open Source Project" in source and "License: Apache-2.0" in source


@pytest.mark.parametrize("name", ["vus", "vus-tools"])
def test_the_bill_of_materials_names_what_is_in_it(name, installed):
    bill = json.loads((installed / "usr/share/doc" / name / "sbom.spdx.json").read_text())
    assert (bill["spdxVersion"], bill["SPDXID"], bill["dataLicense"]) == ("SPDX-2.3", "SPDXRef-DOCUMENT", "CC0-1.0")
    packages = {package["name"]: package for package in bill["packages"]}
    assert packages[name]["versionInfo"] == VERSION
    related = {row["relatedSpdxElement"] for row in bill["relationships"]}
    assert related == {package["SPDXID"] for package in bill["packages"]}
    assert len({package["SPDXID"] for package in bill["packages"]}) == len(packages)
    libraries = {text.split()[0] for text in field(name, "Depends").split(", ")} - OTHERS
    assert libraries <= set(packages), "a library that the bill does not name"
    assert "android-platform-frameworks-native" in packages


def test_packages_fit_together():
    assert f"vus-tools (= {VERSION})" in field("vus", "Depends")
    assert re.search(r"\bvus\b(?!-)", field("vus-tools", "Depends")) is None


def test_no_file_is_in_both():
    both = set(contents("vus")) & set(contents("vus-tools"))
    assert [path for path in both if not path.endswith("/")] == []


@pytest.mark.parametrize("name", ["vus", "vus-tools"])
def test_everything_is_roots_and_nothing_has_more_rights(name):
    for path, (mode, owner) in contents(name).items():
        assert owner == "root/root", path
        assert re.fullmatch(r"[-dl]rw[-x]r-[-x]r-[-x]|lrwxrwxrwx", mode), (path, mode)


def test_programs_are_where_they_belong():
    programs = {path for name in ("vus", "vus-tools") for path, (mode, _) in contents(name).items()
                if mode.startswith("-rwx")}
    assert programs == {"/usr/bin/vusctl", "/usr/sbin/vus_hotplug", "/usr/libexec/vus/vusd",
                        "/usr/libexec/vus/servicemanager", "/usr/libexec/vus/binder-up",
                        "/usr/libexec/vus/open-door", "/usr/libexec/vus/still-alive"}


def test_tools_need_no_daemon():
    assert not any(path.startswith(("/lib/systemd", "/usr/libexec", "/usr/sbin"))
                   for path in contents("vus-tools"))


def test_everything_that_an_administrator_reads_is_there():
    tools = contents("vus-tools")
    for path in ("/usr/share/man/man1/vusctl.1.gz", "/usr/share/man/man5/usb_device_config.5.gz",
                 "/usr/share/man/man7/vus-policy-lint.7.gz", "/usr/share/vus/usb_device_config.xsd",
                 "/usr/share/bash-completion/completions/vusctl",
                 "/usr/share/zsh/vendor-completions/_vusctl",
                 "/usr/share/fish/vendor_completions.d/vusctl.fish",
                 "/usr/share/doc/vus-tools/examples/till.xml"):
        assert path in tools
    for path in ("/usr/share/man/man8/vusd.8.gz", "/usr/share/man/man8/vus_hotplug.8.gz"):
        assert path in contents("vus")


def test_programs_run_from_where_they_are_installed(installed):
    for path in ("usr/bin/vusctl", "usr/sbin/vus_hotplug"):
        assert run(installed / path, "--version") == f"{path.rsplit('/', 1)[1]} {VERSION}\n"
    libraries = run("ldd", installed / "usr/libexec/vus/vusd")
    assert "not found" not in libraries
    ours = re.search(r"libbacktrace\.so\.0 => (\S+)", libraries).group(1)
    assert pathlib.Path(ours).resolve() == (installed / "usr/lib/vus/libbacktrace.so.0").resolve()


def test_examples_are_policies(installed):
    examples = list((installed / "usr/share/doc/vus-tools/examples").glob("*.xml"))
    assert len(examples) >= 3
    for example in examples:
        out = run(installed / "usr/bin/vusctl", "policy", "check", example)
        assert out.startswith("SUCCESS\n")


@pytest.mark.parametrize("shell", ["bash"])
def test_completion_is_what_the_shell_loads(installed, shell):
    script = installed / "usr/share/bash-completion/completions/vusctl"
    ask = f'. {script}; COMP_WORDS=(vusctl policy rep); COMP_CWORD=2; _vusctl; echo "${{COMPREPLY[*]}}"'
    assert run(shell, "-c", ask) == "repair\n"


def test_removal_opens_the_door_behind_the_services(tmp_path):
    run("dpkg-deb", "-e", deb("vus"), tmp_path)
    script = (tmp_path / "prerm").read_text()
    assert 0 < script.find("deb-systemd-invoke") < script.find("/usr/libexec/vus/open-door")


def test_units_are_the_trees(installed):
    units = sorted(path.name for path in (installed / "lib/systemd/system").iterdir())
    assert units == sorted(path.stem for path in (ROOT / "packaging" / "systemd").glob("*.in"))
    for unit in units:
        text = (installed / "lib/systemd/system" / unit).read_text()
        for program in re.findall(r"^Exec\w+=(\S+)", text, flags=re.M):
            assert (installed / program.lstrip("/")).exists(), program
