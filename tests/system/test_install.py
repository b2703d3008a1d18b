"""Installing signed files: owners, modes, atomicity (D8) and exactly the verified bytes (D6)."""
import os
import stat

import pytest

from helpers import provision, run_cmd, signed_file, traced


@pytest.fixture
def signers(term):
    provision(term, "main-user", "acme")
    return term


def install(term, src, dest, uid=0, **kw):
    return run_cmd(term, ["--install", src, dest], uid=uid, **kw)


def test_application_files_belong_to_root_and_the_application_group(signers):
    # D17: whatever follows the signature in the caller's ".sig" never reaches /usr/local/.
    signed_file(signers, "/tmp/app.bin", "main-user", mode=0o640, uid=500, gid=500, extra=b"\xff" * 4096)
    sig = signers.read("/tmp/app.bin.sig")[:256]
    dest = "/usr/local/main-user/lib/x/"
    assert install(signers, "/tmp/app.bin", dest, uid=500) == (0, (
        f"Signature installed: {dest}app.bin.sig\nData file installed: {dest}app.bin\n"
        "Signed file installed.\n").encode())
    for name, mode, data in [("app.bin.sig", 0o740, sig), ("app.bin", 0o755, b"payload\n")]:
        st = signers.lstat(dest + name)
        assert (st.st_uid, st.st_gid, stat.S_IMODE(st.st_mode)) == (0, 500, mode)
        assert signers.read(dest + name) == data
    for d in ["/usr/local/main-user", "/usr/local/main-user/lib", "/usr/local/main-user/lib/x"]:
        assert stat.S_IMODE(signers.lstat(d).st_mode) == 0o555
    assert signers.usr_local_readonly()


@pytest.mark.parametrize("src_mode,installed", [(0o4750, 0o755), (0o600, 0o755), (0o1777, 0o777),
                                               (0o6775, 0o775), (0o2711, 0o755)])
def test_data_mode_is_source_mode_with_0755_and_no_privilege_bits(signers, src_mode, installed):
    signed_file(signers, "/tmp/tool", "acme", mode=src_mode)
    assert install(signers, "/tmp/tool", "/usr/local/acme/").status == 0
    st = signers.lstat("/usr/local/acme/tool")
    assert (st.st_uid, st.st_gid, stat.S_IMODE(st.st_mode)) == (0, 0, installed)


def test_empty_file_installs(signers):
    signed_file(signers, "/tmp/empty", "acme", data=b"")
    assert install(signers, "/tmp/empty", "/usr/local/share/").status == 0
    assert signers.read("/usr/local/share/empty") == b""


@pytest.mark.parametrize("where,uid,kept,out", [
    ("/tmp", 0, False, b""),
    # D2: the caller may not delete a root file in a root directory, so neither may the program.
    ("/srv", 1000, True, b"Failed to delete invalid data/executable: /srv/app.\n")])
def test_badly_signed_source_is_deleted_with_the_callers_rights(signers, where, uid, kept, out):
    if where == "/srv":
        signers.mkdir(where, 0o755)
    signed_file(signers, where + "/app", "acme")
    signers.write(where + "/app", b"changed\n")
    r = install(signers, where + "/app", "/usr/local/acme/", uid=uid)
    assert r == (7, b"Signature check failed.\n" + out)
    assert signers.exists(where + "/app") == kept == signers.exists(where + "/app.sig")
    assert not signers.exists("/usr/local/acme")


@traced
def test_source_swapped_after_its_check_never_installs_unverified_bytes(signers):
    # D6: a caller rewriting the source while the program runs gets the signed bytes or nothing.
    # The swap comes after the source passed its check, as the data file's copy is begun.
    # (The second file staged is the data file; the first is its signature.)
    good = os.urandom(300_000)
    signers.mkdir("/usr/local/acme", 0o555)
    signers.write("/tmp/src", good, uid=500, gid=500)
    signers.write("/tmp/src.sig", signers.pki.sign(good, "acme"), uid=500, gid=500)
    with signers.traced(["--install", "/tmp/src", "/usr/local/acme/n"],
                        ("openat", "/usr/local/.staging/??????", 2), uid=500) as run:
        run.wait_stopped()
        signers.write("/tmp/src", bytes(reversed(good)), uid=500, gid=500)
        r = run.resume()
    assert (r.status, r.stdout[-24:]) == (7, b"Signature check failed.\n")
    # Nothing is left in the directory, no temporary above all.
    assert os.listdir(signers.path("/usr/local/acme")) == [] and signers.usr_local_readonly()
    assert not signers.exists("/usr/local/.staging")
