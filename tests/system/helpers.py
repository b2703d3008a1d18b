"""Expected texts and small steps shared by the system tests."""
import os
from collections import namedtuple

import pytest

Outcome = namedtuple("Outcome", "status stdout")

# Races won every time: the tracer holds the program at the system call the attack aims at.
traced = pytest.mark.skipif(bool(os.environ.get("ORVIN_EMULATED")),
                            reason="the traced process is the emulator, not the program")

BANNER = b"\nOrvin Authentication and Installation Tool.\n"

_VISIBLE = [
    ("--install-cert-check", "<certificate file>"), ("--install-cert", "<certificate file>"),
    ("--install-image-check", "<image file>"), ("--install-image", "<image file>"),
    ("--install-check", "<signed file> <installed filename>"),
    ("--install", "<signed file> <installed filename>"),
    ("--remove", "<cert/signed file>"), ("--rename", "<cert/signed file> <new filename>"),
    ("--update-os", "<operating system image file>"),
    ("--make-factory", ""), ("--make-restore", ""), ("--wipe", ""),
    ("--install-kbpk-check", "<acquirer ID> <kbpk file>"),
    ("--install-kbpk", "<acquirer ID> <kbpk file>"), ("--remove-kbpk", "<acquirer ID>"),
    ("--update-kbpk-pci-pin", "<acquirer ID> <kbpk file>"),
    ("--verify-kbpk-pci-pin", "<acquirer ID>"),
    ("--install-key-check", "<acq ID> <tr31 file> <opk file>"),
    ("--install-key", "<acq ID> <tr31 file> <opk file>"),
]


def usage(name="orvin-auth"):
    text = f"\nUsage: {name} <option> <parameters>\nWhere:\n    <option>                 <parameters>\n"
    text += "".join(f"    {opt:<21}    {params}\n" for opt, params in _VISIBLE)
    return text.encode()


def signed_file(term, path, role, data=b"payload\n", mode=0o644, uid=0, gid=0, extra=b""):
    """Writes a file and its detached signature by role."""
    term.write(path, data, mode=mode, uid=uid, gid=gid)
    term.sign(path, role, extra=extra)
    return path


# Certificates that a role's certificate chains through, so it survives the start-up sweep.
_CHAIN = {"main-user": ["keysign-main-user"], "detamper": [], "prod-sign": [],
          "keysign-main-user": []}


def provision(term, *roles):
    """Puts each role's certificate into the store with the intermediates it needs."""
    wanted = []
    for role in roles:
        wanted += _CHAIN.get(role, ["prod-sign"]) + [role]
    for role in dict.fromkeys(wanted):
        term.install_cert(role)


def startup_output(term, uid=0):
    """What every run prints before its command: the banner and the certificate sweep's lines."""
    r = term.run([], uid=uid)
    assert r.stdout.endswith(usage()), r.stdout
    return r.stdout[: -len(usage())]


def run_cmd(term, args, **kw):
    """Runs a command; gives its status and what it printed after the start-up lines."""
    prefix = startup_output(term, uid=kw.get("uid", 0))
    r = term.run(args, **kw)
    assert r.stdout.startswith(prefix), (prefix, r.stdout)
    return Outcome(r.status, r.stdout[len(prefix):])


SAPI = "/home/orvin/.sapi/"
KBPK_VALUE = bytes(range(256))


def tr31(size=112, usage=b"K0", filler=b"X"):
    """A TR-31 key block whose length field matches its size."""
    head = b"B%04d" % size + usage + b"TB00E0000"
    return head + filler * (size - len(head))


def give_kbpk(term, acquirer, flag=None):
    """An acquirer with a KBPK in the device and in its state file (and FLAG file if flag)."""
    kbpk = term.sapi.set_kbpk(acquirer, KBPK_VALUE, 0x8000 if flag == "8000" else 0)
    term.write(SAPI + f".KBPK{acquirer:04d}", kbpk.protected)
    if flag is not None:
        term.write(SAPI + f".FLAG{acquirer:04d}", flag)
