"""The KBPK store through the simulated Security API device: requests byte for byte, state and
FLAG files under /home/orvin/.sapi/, the key hash registry, acquirer IDs and caller rules."""
import errno
import hashlib
import os

import pytest
from orvin_sim import sapi as S

from helpers import KBPK_VALUE, SAPI, Outcome, give_kbpk, signed_file, startup_output

KBPK = "/tmp/kbpk.bin"
ON, OFF = b"PCI PIN security enabled.\n", b"PCI PIN security disabled.\n"
INSTALLED, REINSTALL = b"KBPK installed.\n", b"WARNING: Cryptographic key is being re-installed.\n"
DUPLICATE = b"FATAL: Duplicate cryptographic key value detected.\n"
READ = b"FATAL: Read from the Security API device failed with code "
WRITE = b"FATAL: Write to the Security API device failed with code "
OPEN = b"FATAL: Failed to open the Security API device.\n"
NO_WRITE = b"FATAL: Failed to write to the Security API device.\n"
FILE_COMMANDS = ["--install-kbpk-check", "--install-kbpk", "--update-kbpk-pci-pin"]


def key_terminal(term, prod_sign=True):
    """State directory, device and the signers of KBPK files: under "prod-sign" from "KeySigning",
    or the same names under the RKI anchor."""
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    for role in (["prod-sign", "HSM-PCI-PIN", "acme", "keysign-main-user", "main-user"] if prod_sign
                 else ["rki-HSM-PCI-PIN", "rki-acme"]):
        term.install_cert(role)
    term.head = startup_output(term)
    return term


@pytest.fixture
def kt(term):
    return key_terminal(term)


def run(term, command, acquirer, path=KBPK, uid=0):
    """The status and what the command printed after the start-up lines."""
    r = term.run([command, acquirer] + ([path] if command in FILE_COMMANDS else []), uid=uid)
    assert r.stdout.startswith(term.head), r.stdout
    return Outcome(r.status, r.stdout[len(term.head):])


def files(term, *names):
    return {n: term.read(SAPI + n) if term.exists(SAPI + n) else None for n in names}


@pytest.mark.parametrize("role,prod_sign,flags,uid", [
    ("rki-acme", False, b"\x00\x00", 0), ("rki-HSM-PCI-PIN", False, b"\x00\x80", 0),
    ("acme", True, b"\x00\x40", 500), ("HSM-PCI-PIN", True, b"\x00\xc0", 0)])
def test_install_sends_the_file_behind_flags_and_stores_the_reply(term, role, prod_sign, flags,
                                                                  uid):
    kt = key_terminal(term, prod_sign)
    signed_file(kt, KBPK, role, data=KBPK_VALUE, mode=0o600, uid=uid, gid=uid)
    assert run(kt, "--install-kbpk-check", "12", uid=uid) == (0, b"KBPK can be installed.\n")
    assert kt.sapi.requests() == []
    pin = role.endswith("HSM-PCI-PIN")
    assert run(kt, "--install-kbpk", "12", uid=uid) == (0, (ON if pin else b"") + INSTALLED)
    (reply,) = kt.sapi.replies()
    events = kt.sapi.events(S.DEVICE)  # one open, on which the reply is read
    assert [(e.op, e.size, e.flags) for e in events] == [("open", 0, os.O_RDWR), ("write", 0, 0),
                                                         ("read", 96, 0), ("close", 0, 0)]
    assert files(kt, ".KBPK0012", ".FLAG0012") == {".KBPK0012": reply[64:],
                                                   ".FLAG0012": b"8000" if pin else b"0000"}
    assert kt.exists(KBPK) and kt.exists(KBPK + ".sig")
    req = b"\xb4\xd1\x0c\x00\x02\x01\x00\x00" + flags + KBPK_VALUE
    assert kt.sapi.requests() == [req]
    assert kt.read(SAPI + ".sha256") == hashlib.sha256(KBPK_VALUE).digest() + hashlib.sha256(req).digest()


@pytest.mark.parametrize("kbpk,flag,status,message", [
    ("file", "8000", 0, b"KBPK removed.\n"), ("file", None, 0, b"KBPK removed.\n"),
    ("dir", "8000", 9, b"Failed to delete KBPK0007.\n"), ("file", "dir", 9, b"Failed to delete FLAG0007.\n")])
def test_remove_tells_the_device_then_deletes_the_files(kt, kbpk, flag, status, message):
    give_kbpk(kt, 7, None if flag == "dir" else flag)
    if kbpk == "dir":  # unlink() takes no directory
        kt.remove(SAPI + ".KBPK0007")
        kt.mkdir(SAPI + ".KBPK0007", 0o700)
    if flag == "dir":
        kt.mkdir(SAPI + ".FLAG0007", 0o700)
    assert run(kt, "--remove-kbpk", "7") == (status, message)
    assert kt.sapi.requests() == [b"\xb3\xd1\x07\x00\x00\x00\x00\x00"]
    assert kt.sapi.replies() == [] and kt.sapi.kbpk(7) is None  # the device goes first
    assert kt.exists(SAPI + ".KBPK0007") == (kbpk == "dir")
    assert kt.exists(SAPI + ".FLAG0007") == (flag == "dir" or (kbpk == "dir" and flag is not None))


@pytest.mark.parametrize("flag,status", [("8000", 0), (None, 14), ("0000", 14), ("80", 9)])
def test_verify_reads_the_flag_file(kt, flag, status):
    give_kbpk(kt, 7, flag)
    out = {0: b"KBPK has PCI PIN security enabled.\n", 14: b"KBPK has PCI PIN security disabled.\n", 9: b""}
    # The program's own state, read as root.
    assert run(kt, "--verify-kbpk-pci-pin", "7", uid=500) == (status, out[status])
    assert kt.sapi.requests() == []


@pytest.mark.parametrize("role,flags,text,out", [("HSM-PCI-PIN", b"\x00\xc0", b"8000", ON),
                                                 ("acme", b"\x00\x40", b"0000", OFF)])
def test_update_switches_pci_pin_security(kt, role, flags, text, out):
    give_kbpk(kt, 9, "8000" if text == b"0000" else "0000")
    signed_file(kt, KBPK, role, data=KBPK_VALUE, uid=500, gid=500)
    assert run(kt, "--update-kbpk-pci-pin", "9", uid=500) == (0, out + b"KBPK PCI PIN Security updated.\n")
    assert kt.sapi.requests() == [S.request(S.KBPK_UPDATE_PCI_PIN, 9, flags + KBPK_VALUE)]
    assert kt.sapi.replies() == [] and kt.read(SAPI + ".FLAG0009") == text
    assert kt.sapi.kbpk(9).pci_pin == (text == b"8000") and not kt.exists(SAPI + ".sha256")


@pytest.mark.parametrize("command,arm,message", [
    ("--install-kbpk", lambda s: s.short_reply(95), READ + b"0x00.\n"),
    ("--install-kbpk", lambda s: s.fail_next_read(errno.EAGAIN), READ + b"0x0B.\n"),
    ("--install-kbpk", lambda s: s.fail_next_write(252), WRITE + b"0xFC.\n"),  # 14 is for key installs only
    ("--install-kbpk", lambda s: s.short_write(265, S.DEVICE), WRITE + b"0x00.\n"),
    ("--install-kbpk", lambda s: s.refuse_open(), OPEN),
    ("--update-kbpk-pci-pin", lambda s: s.set_kbpk(3, KBPK_VALUE[::-1]), WRITE + b"0x05.\n"),  # another KBPK
    ("--remove-kbpk", lambda s: s.fail_next_write(252), NO_WRITE),
])
def test_device_failures_end_with_9_and_change_no_file(kt, command, arm, message):
    if command != "--install-kbpk":
        give_kbpk(kt, 3, "0000")
    signed_file(kt, KBPK, "HSM-PCI-PIN", data=KBPK_VALUE)
    before = files(kt, ".KBPK0003", ".FLAG0003", ".sha256")
    arm(kt.sapi)
    assert run(kt, command, "3") == (9, (ON if command in FILE_COMMANDS else b"") + message)
    assert files(kt, *before) == before and kt.exists(KBPK) and kt.exists(KBPK + ".sig")


@pytest.mark.parametrize("command", FILE_COMMANDS)
@pytest.mark.parametrize("shape", ["255", "257", "link"])
def test_kbpk_file_of_another_size_is_refused_and_kept(kt, command, shape):
    give_kbpk(kt, 3, "0000")
    if shape == "link":  # judged, and signed, by the link's own size
        signed_file(kt, "/tmp/k256", "acme", data=KBPK_VALUE)
        kt.symlink("/tmp/k256", KBPK)
        kt.write(KBPK + ".sig", kt.pki.sign(KBPK_VALUE[:len("/tmp/k256")], "acme"))
    else:
        signed_file(kt, KBPK, "acme", data=(KBPK_VALUE * 2)[:int(shape)])
    off = OFF if "update" in command else b""
    assert run(kt, command, "3" if "update" in command else "4") == (11, off + b"Invalid KBPK file.\n")
    assert kt.sapi.requests() == [] and kt.exists(KBPK) and kt.exists(KBPK + ".sig")


OLD = hashlib.sha256(b"old").digest() * 2
NEW = hashlib.sha256(KBPK_VALUE).digest()
NEW_PAIR = NEW + hashlib.sha256(S.request(S.KBPK_INSTALL, 4, b"\x00\x40" + KBPK_VALUE)).digest()


@pytest.mark.parametrize("name,before,status,message,after,paired", [
    (".sha256", OLD, 0, INSTALLED, OLD + NEW_PAIR, None),
    (".sha256", OLD + b"x" * 6, 0, INSTALLED, OLD + b"x" * 6 + NEW_PAIR, None),
    (".sha256", OLD + b"x" * 36, 9, b"Invalid cryptographic key hash file length.\n", None, None),
    (".sha256", NEW + bytes(32), 12, DUPLICATE, None, None),
    (".sha256", NEW_PAIR + b"x" * 36, 0, REINSTALL + INSTALLED, None, None),  # found before the part record
    (".sha256-hashes", OLD[:32] + b"y" * 8, 0, INSTALLED, OLD[:32] + b"y" * 8 + NEW, None),
    # Both there: the single registry is in force, and only it knows the key.
    (".sha256-hashes", NEW, 12, DUPLICATE, None, OLD),
])
def test_install_meets_the_registry_in_force(kt, name, before, status, message, after, paired):
    kt.write(SAPI + name, before)
    if paired is not None:
        kt.write(SAPI + ".sha256", paired)
    signed_file(kt, KBPK, "acme", data=KBPK_VALUE)
    assert run(kt, "--install-kbpk", "4") == (status, message)
    assert kt.read(SAPI + name) == (before if after is None else after)
    assert kt.exists(SAPI + ".sha256") == (name == ".sha256" or paired is not None)
    if paired is not None:
        assert kt.read(SAPI + ".sha256") == paired
    assert kt.exists(SAPI + ".KBPK0004") == (status == 0) == kt.exists(SAPI + ".FLAG0004")
    assert kt.sapi.kbpk(4) is not None  # the device is told nothing of a refusal


def test_removed_kbpk_comes_back_as_a_reinstall_and_elsewhere_as_a_duplicate(kt):
    signed_file(kt, KBPK, "HSM-PCI-PIN", data=KBPK_VALUE)
    assert run(kt, "--install-kbpk", "5").stdout == ON + INSTALLED
    assert run(kt, "--remove-kbpk", "5").status == 0
    assert run(kt, "--install-kbpk", "5") == (0, ON + REINSTALL + INSTALLED)
    assert len(kt.read(SAPI + ".sha256")) == 64 and kt.read(SAPI + ".FLAG0005") == b"8000"


@pytest.mark.parametrize("command,present", [
    ("--install-kbpk-check", True), ("--install-kbpk", True), ("--update-kbpk-pci-pin", False),
    ("--remove-kbpk", False), ("--verify-kbpk-pci-pin", False)])
def test_presence_is_judged_before_the_signature(kt, command, present):
    if present:
        give_kbpk(kt, 8)
    kt.write(KBPK, KBPK_VALUE)  # and no signature at all
    assert run(kt, command, "8") == (10, b"")
    assert kt.sapi.requests() == [] and kt.exists(KBPK)


@pytest.mark.parametrize("command,deleted", [("--install-kbpk-check", False), ("--install-kbpk", True),
                                             ("--update-kbpk-pci-pin", True)])
@pytest.mark.parametrize("signer", ["main-user", "tampered"])
def test_refused_signers(kt, command, deleted, signer):
    give_kbpk(kt, 9, "8000")
    # D2: the deletion is the caller's, here one who may not delete the refused signer's file;
    # its refusal changes no status.
    path, uid = ("/tmp/ro/k", 500) if signer == "main-user" else (KBPK, 0)
    kt.mkdir("/tmp/ro", 0o755)
    signed_file(kt, path, signer if signer == "main-user" else "acme", data=KBPK_VALUE, uid=uid,
                gid=uid)
    if signer == "tampered":
        kt.write(KBPK, KBPK_VALUE[::-1])
    off = OFF if "update" in command else b""
    message = {"main-user": b"Invalid signature: main-user.\n" + off + (
                   b"Failed to delete invalid data/executable: /tmp/ro/k.\n" if deleted else b""),
               "tampered": b"Signature check failed.\n"}[signer]
    assert run(kt, command, "9" if "update" in command else "2", path=path, uid=uid) == (7, message)
    kept = not deleted or signer == "main-user"
    assert kt.exists(path) == kept and kt.exists(path + ".sig") == kept
    assert kt.sapi.requests() == []
    assert files(kt, ".FLAG0009", ".KBPK0002") == {".FLAG0009": b"8000", ".KBPK0002": None}


def test_d28_flag_file_that_cannot_be_written_leaves_no_kbpk_to_load_without_it(kt):
    kt.mkdir(SAPI + ".FLAG0005", 0o700)
    signed_file(kt, KBPK, "HSM-PCI-PIN", data=KBPK_VALUE)
    assert run(kt, "--install-kbpk", "5") == (9, ON)
    assert not kt.exists(SAPI + ".KBPK0005")
    assert run(kt, "--verify-kbpk-pci-pin", "5").status == 10
