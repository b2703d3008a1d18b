"""The Debian packages, each built from a copy of the tree: the native one and the terminal's armhf
one, cross-built from the private sysroot of tools/cross-test.sh. What each holds and with which
modes, for which architecture, what lintian says, and a short session of the native packaged
program in the simulated terminal.

Building a package takes a while, so the suite builds one only when ORVIN_TEST_PACKAGE names it:
"1" (or "native") for the native package, "armhf" for the terminal's; tools/test.sh asks for each
once."""
import glob
import os
import re
import subprocess

import pytest
from orvin_sim import Terminal

from conftest import BUILD_DIR, REPO
from helpers import provision, run_cmd, signed_file

PROGRAM = "./usr/sbin/orvin-auth"
MANUAL = "./usr/share/man/man8/orvin-auth.8.gz"
NATIVE = subprocess.run(["dpkg", "--print-architecture"], check=True, capture_output=True,
                        text=True).stdout.strip()
WANTED = {NATIVE if w in ("1", "native") else w
          for w in os.environ.get("ORVIN_TEST_PACKAGE", "").split(",")}
# What file(1) says of the program built for each architecture.
MACHINE = {"amd64": "x86-64", "arm64": "ARM aarch64", "armhf": "ARM, EABI5", "i386": "Intel 80386"}
SYSROOT = os.environ.get("ORVIN_ARMHF_SYSROOT", os.path.join(REPO, "build-armhf", "sysroot"))


def run(*args, **kw):
    return subprocess.run(args, check=True, capture_output=True, text=True, **kw).stdout


def _wanted(arch):
    asked = "1" if arch == NATIVE else arch
    return pytest.param(arch, marks=pytest.mark.skipif(
        arch not in WANTED, reason=f"set ORVIN_TEST_PACKAGE={asked} to build the {arch} package"))


@pytest.fixture(scope="module", params=[_wanted(arch) for arch in dict.fromkeys([NATIVE, "armhf"])])
def deb(request, tmp_path_factory):
    """Builds the package from the tracked and new files of the tree, in a directory under /tmp,
    so the work tree stays clean; gives its architecture and path."""
    arch = request.param
    work = tmp_path_factory.mktemp(f"package-{arch}")
    source = work / "orvin-auth"
    files = run("git", "-C", REPO, "ls-files", "-z", "--cached", "--others", "--exclude-standard")
    source.mkdir()
    subprocess.run(["tar", "-C", REPO, "--null", "-T", "-", "-cf", "-"], input=files.encode(),
                   check=True, stdout=open(work / "tree.tar", "wb"))
    run("tar", "-C", str(source), "-xf", str(work / "tree.tar"))
    env = dict(os.environ, DEB_BUILD_OPTIONS=f"parallel={os.cpu_count() or 1}")
    command = ["dpkg-buildpackage", "-us", "-uc", "-b"]
    if arch != NATIVE:
        # The armhf libraries come from the sysroot, not from installed packages: no build
        # dependencies to check (-d), and no tests to run on the build machine.
        assert os.path.isfile(os.path.join(SYSROOT, ".complete")), "run tools/cross-test.sh armhf"
        command[1:1] = [f"-a{arch}", "-d"]
        env["ORVIN_ARMHF_SYSROOT"] = SYSROOT
        env["DEB_BUILD_OPTIONS"] += " nocheck"
    r = subprocess.run(command, cwd=source, env=env, capture_output=True, text=True)
    assert r.returncode == 0, r.stdout[-4000:] + r.stderr[-4000:]
    # Debian's own compiler flags must not bring warnings back.
    assert not re.search(r":\d+:\d+: warning:", r.stdout + r.stderr), r.stdout + r.stderr
    (path,) = glob.glob(str(work / f"orvin-auth_*_{arch}.deb"))
    return arch, path


def test_package_holds_the_set_uid_program_and_its_manual_only(deb, tmp_path):
    arch, path = deb
    listing = {line.split()[-1]: line.split()[:2]
               for line in run("dpkg-deb", "-c", path).splitlines()}
    assert listing[PROGRAM] == ["-rwsr-xr-x", "root/root"]
    assert listing[MANUAL][1] == "root/root"
    files = {p for p, (mode, _) in listing.items() if not mode.startswith("d")}
    assert files == {PROGRAM, MANUAL, "./usr/share/doc/orvin-auth/changelog.gz",
                     "./usr/share/doc/orvin-auth/copyright",
                     "./usr/share/lintian/overrides/orvin-auth"}
    assert run("dpkg-deb", "-f", path, "Package", "Architecture").split() == [
        "Package:", "orvin-auth", "Architecture:", arch]
    # The terminal's own packages, not the build machine's cross toolchain or architecture.
    depends = run("dpkg-deb", "-f", path, "Depends").strip()
    assert {d.split()[0] for d in depends.split(", ")} >= {"libc6", "libssl3", "libstdc++6"}
    assert ":" not in depends and "-cross" not in depends, depends
    run("dpkg-deb", "-x", path, str(tmp_path))
    assert MACHINE.get(arch, arch) in run("file", "-b", str(tmp_path / PROGRAM))


def test_lintian_finds_no_error_or_unexplained_warning(deb):
    r = subprocess.run(["lintian", "--fail-on", "error,warning", deb[1]], capture_output=True,
                       text=True)
    assert r.returncode == 0, r.stdout + r.stderr


def test_packaged_program_installs_a_signed_file_in_a_terminal(deb, pki, tmp_path):
    arch, path = deb
    if arch != NATIVE:
        pytest.skip("the simulated terminal runs programs of the build machine's architecture")
    root = tmp_path / "root"
    run("dpkg-deb", "-x", path, str(root))
    with Terminal(BUILD_DIR, pki, program=str(root / "usr/sbin/orvin-auth")) as term:
        assert term.read("/usr/sbin/orvin-auth") == (root / "usr/sbin/orvin-auth").read_bytes()
        provision(term, "prod-sign", "main-user")
        signed_file(term, "/tmp/app", "main-user", uid=500, gid=500)
        assert run_cmd(term, ["--install", "/tmp/app", "/usr/local/main-user/"], uid=500) == (
            0, b"Signature installed: /usr/local/main-user/app.sig\n"
               b"Data file installed: /usr/local/main-user/app\nSigned file installed.\n")
        assert term.lstat("/usr/local/main-user/app").st_gid == 500
