"""Root's runs cut short at the worst moment (a power loss, a kill): the tracer kills the run on
entry to an exact rename, and whatever it left must change no later run (D28). The next run finds
/usr/local read-only again and no staged file anywhere a run reads or counts by name; a KBPK is
never loaded without the FLAG written with it; a restore or install goes on as if the cut-short run
had never happened."""
import os

import pytest
from orvin_sim import sapi as S

from helpers import KBPK_VALUE, SAPI, provision, run_cmd, signed_file, traced

pytestmark = traced

STORE = "/usr/local/share/certs/"
KBPK = "/tmp/kbpk.bin"


def tree(term):
    root = term.path("/usr/local")
    return sorted(os.path.relpath(os.path.join(d, n), root)
                  for d, dirs, files in os.walk(root) for n in dirs + files)


def killed_at_rename(term, args, nth, pattern="*"):
    r = term.run(args, kill_at=("rename", pattern, nth))
    assert r.killed, r
    return r


def next_run_puts_right(term):
    """Any caller's run, even one that changes nothing, leaves /usr/local as no run cut short it."""
    term.run([], uid=1000)
    assert term.usr_local_readonly()


@pytest.fixture
def restorable(term, pki):
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    pki.issue("terminal", "terminal-0001", "prod-sign")
    term.nvram_set("ProdSignCert", pki.cert("prod-sign").hex().encode() + b"\n")
    term.nvram_set("TerminalCert", pki.cert("terminal").hex().encode() + b"\n")
    return term


# Each certificate is written to the run's private directory, then installed: four renames. The
# next run restores what is still missing, as if nothing had been tried before.
@pytest.mark.parametrize("nth,missing", [(1, 2), (2, 2), (3, 1), (4, 1)])
def test_d28_restore_cut_short_at_any_rename_is_done_again_by_the_next(restorable, pki, nth,
                                                                       missing):
    killed_at_rename(restorable, ["--init-keys"], nth)
    next_run_puts_right(restorable)
    assert run_cmd(restorable, ["--init-keys"]) == (0, b"Certificate installed.\n" * missing)
    assert restorable.read(STORE + "prod-sign.crt") == pki.cert("prod-sign")
    assert restorable.read(STORE + "terminal.crt") == pki.cert("terminal")
    assert tree(restorable) == ["share", "share/certs", "share/certs/prod-sign.crt",
                                "share/certs/terminal.crt"]
    assert restorable.usr_local_readonly()


# A certificate takes one rename into the store; a signed file two, its signature first.
@pytest.mark.parametrize("kind,nth", [("cert", 1), ("signed", 1), ("signed", 2)])
def test_d28_install_cut_short_leaves_no_staged_file_in_the_tree(term, kind, nth):
    if kind == "cert":
        provision(term, "prod-sign")
        term.write("/tmp/offered.crt", term.pki.cert("acme"))
        args, pattern = ["--install-cert", "/tmp/offered.crt"], STORE + "*"
        new = ["share/certs/offered.crt"]
    else:
        provision(term, "acme")
        signed_file(term, "/tmp/app", "acme")
        args, pattern = ["--install", "/tmp/app", "/usr/local/share/"], "/usr/local/share/app*"
        new = ["share/app", "share/app.sig", "share/certs/acme.crt"]
    killed_at_rename(term, args, nth, pattern)
    assert not term.usr_local_readonly()  # cut short inside its writable window
    next_run_puts_right(term)
    assert run_cmd(term, args).status == 0
    assert tree(term) == sorted(["share", "share/certs", "share/certs/prod-sign.crt"] + new)
    assert term.usr_local_readonly()


# The registry, then the FLAG file, then the KBPK file that commits the state.
@pytest.mark.parametrize("nth", [1, 2, 3])
def test_d28_kbpk_install_cut_short_never_leaves_a_kbpk_without_its_flags(term, nth):
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    provision(term, "HSM-PCI-PIN")
    signed_file(term, KBPK, "HSM-PCI-PIN", data=KBPK_VALUE)
    killed_at_rename(term, ["--install-kbpk", "5", KBPK], nth, SAPI + "*")
    # The power comes back: the device has forgotten, the start-up reloads it from the files.
    term.sapi.remove_kbpk(5)
    assert run_cmd(term, ["--init-keys"]) == (0, b"")
    reloaded = term.sapi.kbpk(5)
    assert reloaded is None or reloaded.flags & S.FLAG_PCI_PIN
    verdict = run_cmd(term, ["--verify-kbpk-pci-pin", "5"]).status
    assert verdict == (10 if reloaded is None else 0)


def test_d28_kbpk0_from_nvram_takes_no_flags_from_a_removal_cut_short(term):
    """A removal cut short between its two deletions leaves the FLAG file alone; the KBPK that the
    start-up then takes from nvram has no FLAG file of its own."""
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    term.write(SAPI + ".FLAG0000", b"8000")
    term.nvram_set("KBPK0000", bytes(range(32)).hex().encode() + b"\n")
    assert run_cmd(term, ["--init-keys"]) == (0, b"")
    assert term.sapi.kbpk(0).flags == 0
    assert not term.exists(SAPI + ".FLAG0000")
