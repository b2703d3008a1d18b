"""Where a signer may install: the destination rules, D7 included."""
import pytest

from helpers import provision, run_cmd, signed_file

OK = b"Signed file can be installed.\n"


@pytest.fixture
def app(term):
    provision(term, "acme")
    signed_file(term, "/tmp/app", "acme")
    return term


def check(term, dest):
    return run_cmd(term, ["--install-check", "/tmp/app", dest])


@pytest.mark.parametrize("dest", [
    "/usr/local/acme/", "/usr/local/acme/app", "/usr/local/acme/bin/deep/", "/usr/local/share/",
    "/usr/local/share/fonts/x", "/usr/local/share/..x",
    "/usr/local/acme/alias/app"])  # a link inside the area is followed
def test_signer_directory_and_shared_area_are_allowed(app, dest):
    app.mkdir("/usr/local/acme/real", 0o555)
    app.symlink("/usr/local/acme/real", "/usr/local/acme/alias")
    assert check(app, dest) == (0, OK)


@pytest.mark.parametrize("dest", [
    "/usr/local/other/app", "/usr/local/ACME/app", "/usr/local/share", "/usr/local/acmex/app",
    "/usr/local/share/certs/x.crt", "/usr/local/share/certs/", "/tmp/app2", "usr/local/share/x",
    "/usr/local/acme/../other/app", "/usr/local/acme/./app", "/usr/local/acme//app",
    "/usr/local/share/fonts/..", "/usr/local//share/x", "/usr/local/share/.", "/usr/local/share//",
    "app"])  # no slash at all: refused without a word
def test_other_destinations_are_refused(app, dest):
    r = check(app, dest)
    out = f"Invalid destination path: {dest}\n".encode() if "/" in dest else b""
    assert (r.status, r.stdout) == (8, out)


def test_existing_destination_is_never_overwritten(app):
    app.mkdir("/usr/local/share/fonts", 0o555)
    app.write("/usr/local/share/app", b"old")
    app.symlink("/etc/created-by-install", "/usr/local/share/link")  # dangling, yet there
    for dest, full in [("/usr/local/share/fonts", "/usr/local/share/fonts"),
                       ("/usr/local/share/", "/usr/local/share/app"),
                       ("/usr/local/share/link", "/usr/local/share/link")]:
        assert check(app, dest) == (4, f"Destination file already exists: {full}\n".encode())


@pytest.mark.parametrize(
    "link,target,dest",
    [
        ("/usr/local/acme", "/etc", "/usr/local/acme/app"),
        ("/usr/local/acme", "/usr/local/share", "/usr/local/acme/app"),
        ("/usr/local/share/gone", "/nonexistent/dir", "/usr/local/share/gone/x"),
        ("/usr/local/acme", "/tmp", "/usr/local/acme/new/deeper/app"),
    ],
)
def test_links_leading_out_of_the_area_are_refused(app, link, target, dest):
    # D7: the deepest existing directory decides, resolved through its links.
    app.symlink(target, link)
    assert check(app, dest) == (8, f"Invalid destination path: {dest}\n".encode())


def test_signer_named_share_cannot_reach_the_store(term, pki):
    pki.issue("share", "share", "prod-sign")
    provision(term, "share")
    signed_file(term, "/tmp/app", "share")
    assert check(term, "/usr/local/share/x").status == 0
    r = check(term, "/usr/local/share/certs/x")
    assert (r.status, r.stdout) == (8, b"Invalid destination path: /usr/local/share/certs/x\n")
