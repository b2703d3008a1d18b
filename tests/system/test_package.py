"""The Debian package, built from a copy of the tree: what it holds and with which modes, what
lintian says, and a short session of the packaged program in the simulated terminal.

Building a package takes a while, so the suite runs this only when ORVIN_TEST_PACKAGE is set
(tools/test.sh does, once)."""
import glob
import os
import re
import subprocess

import pytest
from orvin_sim import Terminal

from conftest import BUILD_DIR, REPO
from helpers import provision, run_cmd, signed_file

pytestmark = pytest.mark.skipif(not os.environ.get("ORVIN_TEST_PACKAGE"),
                                reason="set ORVIN_TEST_PACKAGE=1 to build the Debian package")

PROGRAM = "./usr/sbin/orvin-auth"
MANUAL = "./usr/share/man/man8/orvin-auth.8.gz"


def run(*args, **kw):
    return subprocess.run(args, check=True, capture_output=True, text=True, **kw).stdout


@pytest.fixture(scope="module")
def deb(tmp_path_factory):
    """Builds the package from the tracked and new files of the tree, in a directory under /tmp,
    so the work tree stays clean."""
    work = tmp_path_factory.mktemp("package")
    source = work / "orvin-auth"
    files = run("git", "-C", REPO, "ls-files", "-z", "--cached", "--others", "--exclude-standard")
    source.mkdir()
    subprocess.run(["tar", "-C", REPO, "--null", "-T", "-", "-cf", "-"], input=files.encode(),
                   check=True, stdout=open(work / "tree.tar", "wb"))
    run("tar", "-C", str(source), "-xf", str(work / "tree.tar"))
    env = dict(os.environ, DEB_BUILD_OPTIONS=f"parallel={os.cpu_count() or 1}")
    r = subprocess.run(["dpkg-buildpackage", "-us", "-uc", "-b"], cwd=source, env=env,
                       capture_output=True, text=True)
    assert r.returncode == 0, r.stdout[-4000:] + r.stderr[-4000:]
    # Debian's own compiler flags must not bring warnings back.
    assert not re.search(r":\d+:\d+: warning:", r.stdout + r.stderr), r.stdout + r.stderr
    arch = run("dpkg", "--print-architecture").strip()
    (path,) = glob.glob(str(work / f"orvin-auth_*_{arch}.deb"))
    return path


def test_package_holds_the_set_uid_program_and_its_manual_only(deb):
    listing = {line.split()[-1]: line.split()[:2] for line in run("dpkg-deb", "-c", deb).splitlines()}
    assert listing[PROGRAM] == ["-rwsr-xr-x", "root/root"]
    assert listing[MANUAL][1] == "root/root"
    files = {p for p, (mode, _) in listing.items() if not mode.startswith("d")}
    assert files == {PROGRAM, MANUAL, "./usr/share/doc/orvin-auth/changelog.gz",
                     "./usr/share/doc/orvin-auth/copyright",
                     "./usr/share/lintian/overrides/orvin-auth"}
    info = run("dpkg-deb", "-I", deb)
    assert "Package: orvin-auth" in info and "libssl3" in info and "libc6" in info


def test_lintian_finds_no_error_or_unexplained_warning(deb):
    r = subprocess.run(["lintian", "--fail-on", "error,warning", deb], capture_output=True, text=True)
    assert r.returncode == 0, r.stdout + r.stderr


def test_packaged_program_installs_a_signed_file_in_a_terminal(deb, pki, tmp_path):
    root = tmp_path / "root"
    run("dpkg-deb", "-x", deb, str(root))
    with Terminal(BUILD_DIR, pki, program=str(root / "usr/sbin/orvin-auth")) as term:
        assert term.read("/usr/sbin/orvin-auth") == (root / "usr/sbin/orvin-auth").read_bytes()
        provision(term, "prod-sign", "main-user")
        signed_file(term, "/tmp/app", "main-user", uid=500, gid=500)
        assert run_cmd(term, ["--install", "/tmp/app", "/usr/local/main-user/"], uid=500) == (
            0, b"Signature installed: /usr/local/main-user/app.sig\n"
               b"Data file installed: /usr/local/main-user/app\nSigned file installed.\n")
        assert term.lstat("/usr/local/main-user/app").st_gid == 500
