"""Detached-signature verification, seen through "--install-check"."""
import subprocess

import pytest

from helpers import provision, run_cmd, signed_file

OK = b"Signed file can be installed.\n"


@pytest.fixture
def acme(term):
    provision(term, "acme")
    return term


def check(term, path="/tmp/app", dest="/usr/local/acme/", uid=0):
    return run_cmd(term, ["--install-check", path, dest], uid=uid)


@pytest.mark.parametrize("size", [0, 1, 4095, 4096, 4097, 8192, 3 * 4096 + 5])
def test_files_of_every_block_shape_verify(acme, size):
    signed_file(acme, "/tmp/app", "acme", data=bytes(i % 251 for i in range(size)))
    assert check(acme) == (0, OK)


@pytest.mark.parametrize("sig,status,message", [
    (b"x" * 44, 0, OK),  # after a good signature: only the first 256 bytes count
    (None, 7, b"Cannot access signature file: /tmp/app.sig\n"),
    (b"\0" * 255, 9, b"Failed to read the signature file: /tmp/app.sig\n"),
    (b"", 9, b"Failed to read the signature file: /tmp/app.sig\n"),
    ("tampered", 7, b"Signature check failed.\n"),
])
def test_signature_files(acme, sig, status, message):
    signed_file(acme, "/tmp/app", "acme", extra=sig if status == 0 else b"")
    if sig == "tampered":
        acme.write("/tmp/app", b"payload!\n")
    elif sig is None:
        acme.remove("/tmp/app.sig")
    elif status != 0:
        acme.write("/tmp/app.sig", sig)
    assert check(acme) == (status, message)
    assert acme.exists("/tmp/app") and acme.exists("/tmp/app.sig") == (sig is not None)  # left in place


@pytest.mark.parametrize("stored,signer,dest,status", [
    ((), "OperatingSystem", "/usr/local/OperatingSystem/", 0),   # found in the system directory
    ((), "root", "/usr/local/acme/", 7),                          # the bundle of roots signs nothing
    (("ec-signer",), "OperatingSystem", "/usr/local/OperatingSystem/", 0),  # other key types passed over
    (("acme-slash",), "acme-slash", "/usr/local/acme/", 0),       # common name cut at the first slash
])
def test_signer_search(term, stored, signer, dest, status):
    provision(term, *stored)
    signed_file(term, "/tmp/app", signer)
    assert check(term, dest=dest).status == status


def test_store_is_searched_before_system_directory(term, pki, tmp_path):
    # The same key under another name in /usr/ssl/ must lose to the stored certificate.
    twin = tmp_path / "twin.crt"
    subprocess.run(["openssl", "req", "-new", "-x509", "-key", pki.key_path("acme"), "-subj",
                    "/CN=zeta", "-days", "30", "-out", str(twin)], check=True, capture_output=True)
    term.write("/usr/ssl/twin.crt", twin.read_bytes())
    provision(term, "acme")
    signed_file(term, "/tmp/app", "acme")
    assert check(term, dest="/usr/local/acme/").status == 0
    assert check(term, dest="/usr/local/zeta/").status == 8


def test_unreadable_store_entry_stops_the_search(term):
    # A stored file that is no certificate is swept at start-up; a directory stays and is read.
    term.mkdir("/usr/local/share/certs/sub", 0o755)
    signed_file(term, "/tmp/app", "OperatingSystem")
    r = check(term, dest="/usr/local/OperatingSystem/")
    assert (r.status, r.stdout) == (9, b"Failed to read certificate file.\n")


@pytest.mark.parametrize("path,modes,status,message", [
    ("/tmp/app", (0o600, 0o644), 9, b"FATAL: Failed to open the file to verify.\n"),
    ("/tmp/app", (0o644, 0o600), 7, b"Cannot access signature file: /tmp/app.sig\n"),
    ("/tmp/private/app", (0o644, 0o644), 1, b"Invalid file: /tmp/private/app\n"),  # as if missing
])
def test_files_are_read_with_the_callers_rights(acme, path, modes, status, message):
    # D3: root can read them all, the caller cannot.
    acme.mkdir("/tmp/private", 0o700)
    signed_file(acme, path, "acme", mode=modes[0])
    acme.chmod(path + ".sig", modes[1])
    assert check(acme, path=path, uid=1000) == (status, message)
    assert check(acme, path=path, uid=0).status == 0
