"""Control of the simulated Security API device (orvin-sim-sapi): a FUSE daemon whose "sapi0" and
"proc" files stand in for "/dev/sapi0" and "/proc/sapi", and which logs every exchange."""
import errno
import hashlib
import os
import shutil
import signal
import struct
import subprocess
import tempfile
from dataclasses import dataclass

from . import mounts

TAG = 0xD1
KBPK_REMOVE = 0xB3
KBPK_INSTALL = 0xB4
KEY_INSTALL = 0xB7
KEY_ISSUER_INIT = 0xBE
RATE_LIMIT_INIT = 0xBF
KBPK_UPDATE_PCI_PIN = 0xC2
FLAG_PCI_PIN = 0x8000
FLAG_KEYSIGNING_CA = 0x4000
PCI_PIN_ERRNO = 252
DEVICE, PROC = "dev", "proc"
# The kernel adds it to every open on a 64-bit system, so it says nothing about the caller.
_O_LARGEFILE = 0o100000
_FILES = (DEVICE, PROC)


def request(command, acquirer=0, payload=b""):
    """The bytes of one request: the 8-byte header, then the payload."""
    return struct.pack("<BBBBI", command, TAG, acquirer, 0, len(payload)) + payload


def kbpk_flags(pci_pin=False, keysigning_ca=False):
    """The two flag bytes that open a KBPK install or update."""
    return struct.pack("<H", (FLAG_PCI_PIN if pci_pin else 0) | (FLAG_KEYSIGNING_CA if keysigning_ca else 0))


def key_digest(value):
    """The key digest the device gives for a KBPK value or a key block."""
    return hashlib.sha256(value).digest()


def key_block(bits, exponent=b"\x01\x00\x01"):
    """A public key block: big-endian lengths, a modulus of exactly `bits` bits."""
    n = bytearray(b"\x5a" * ((bits + 7) // 8))
    n[0], n[-1] = 1 << ((bits - 1) % 8), 0x5B
    return struct.pack(">H", len(n)) + bytes(n) + struct.pack(">H", len(exponent)) + exponent


def _texts(cn, usage):
    return bytes([len(cn)]) + cn + bytes([len(usage)]) + usage


def csr_record(block, cn=b"node-1", usage=b"digitalSignature"):
    """The record the device leaves in "/proc/sapi" for a certificate request."""
    return struct.pack("<HH", len(block), 0xA5A5) + block + _texts(cn, usage)


def gen_record(block, cn=b"-node", usage=b"digitalSignature", trailing=b"\x07" * 9):
    """The record the device leaves in "/proc/sapi" for a certificate it is to sign."""
    return (struct.pack("<HHH", len(block), 0xA5A5, len(trailing)) + block + _texts(cn, usage)
            + trailing)


@dataclass
class Event:
    """One operation on the device or the proc file, as the device saw it. result is the system
    call's result (a byte count, 0, or minus the errno); data the bytes written or returned; size
    what a read asked for; flags the open flags (those the kernel passes on: O_CLOEXEC is not among
    them); note the device's word on a write ("ok",
    "no-kbpk", "pin-key-without-pci-pin", "injected", ...)."""
    file: str
    handle: int
    op: str
    result: int
    data: bytes = b""
    size: int = 0
    flags: int = 0
    note: str = ""


@dataclass
class Kbpk:
    acquirer: int
    flags: int
    digest: bytes
    protected: bytes
    origin: str  # "file", "protected" (sent back by the program), "set" (by a test)

    @property
    def pci_pin(self):
        return bool(self.flags & FLAG_PCI_PIN)


@dataclass
class DeviceState:
    kbpks: dict
    subject: bytes = None
    terminal_key: bytes = None
    rate_limit: bytes = None


def _hex(data):
    return data.hex() if data else "-"


def _unhex(text):
    return b"" if text == "-" else bytes.fromhex(text)


class Sapi:
    """One running device. device_path and proc_path are the host paths of its two files;
    Terminal.start_sapi binds them into a terminal."""

    def __init__(self, build_dir):
        daemon = os.path.join(os.path.abspath(build_dir), "sim", "sapi", "orvin-sim-sapi")
        if not os.access(daemon, os.X_OK):
            raise FileNotFoundError(f"{daemon} is missing: build the project first")
        mounts.enter_private_namespace()
        self._binds = []
        self._proc = None
        self.mount_point = tempfile.mkdtemp(prefix="orvin-sapi-")
        read_end, write_end = os.pipe()
        try:
            self._proc = subprocess.Popen([daemon, self.mount_point, str(write_end)],
                                          pass_fds=(write_end,), stdin=subprocess.DEVNULL)
            os.close(write_end)
            write_end = None
            if os.read(read_end, 1) != b"1":
                raise RuntimeError(f"orvin-sim-sapi did not start (status {self._proc.wait()})")
        except BaseException:
            self.close()
            raise
        finally:
            os.close(read_end)
            if write_end is not None:
                os.close(write_end)
        self.device_path = os.path.join(self.mount_point, "sapi0")
        self.proc_path = os.path.join(self.mount_point, "proc")

    def bind_into(self, term, device="/dev/sapi0", proc="/proc/sapi"):
        for host, path in ((self.device_path, device), (self.proc_path, proc)):
            term.bind(host, path)
            self._binds.append(term.path(path))

    def close(self):
        for target in reversed(self._binds):
            try:
                mounts.umount(target)
            except mounts.MountError:
                pass
        self._binds = []
        if self._proc is not None:
            if self._proc.poll() is None:
                self._proc.send_signal(signal.SIGTERM)
                try:
                    self._proc.wait(timeout=5)
                except subprocess.TimeoutExpired:
                    self._proc.kill()
                    self._proc.wait()
            self._proc = None
        if self.mount_point is not None:
            if os.path.ismount(self.mount_point):
                try:
                    mounts.umount(self.mount_point)
                except mounts.MountError:
                    pass
            shutil.rmtree(self.mount_point, ignore_errors=True)
            self.mount_point = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # ---- control -----------------------------------------------------------------------------

    def _control(self, *words):
        fd = os.open(os.path.join(self.mount_point, "ctl"), os.O_WRONLY)
        try:
            os.write(fd, " ".join(str(w) for w in words).encode())
        except OSError as e:
            raise ValueError(f"orvin-sim-sapi refused {words[0]}: {e.strerror}") from None
        finally:
            os.close(fd)

    def _snapshot(self, name):
        with open(os.path.join(self.mount_point, name), "rb") as f:
            return f.read().decode()

    @staticmethod
    def _file(which):
        if which not in _FILES:
            raise ValueError(f"which is {DEVICE!r} or {PROC!r}")
        return which

    def clear(self):
        """Forgets the logged events (the device state stays)."""
        self._control("clear")

    def fail_next_write(self, err, which=DEVICE):
        """The next write fails with errno err and the device does not act on it."""
        self._control("fail-write", self._file(which), err)

    def fail_next_read(self, err, which=DEVICE):
        self._control("fail-read", self._file(which), err)

    def short_write(self, n, which=PROC):
        """The next accepted write reports n bytes written."""
        self._control("short-write", self._file(which), n)

    def short_reply(self, n):
        """The next device reply is cut to n bytes (0: the read gets nothing)."""
        self._control("short-reply", n)

    def next_reply(self, data):
        """The next request with a reply is acted on as usual but answered with data."""
        self._control("next-reply", _hex(data))

    def refuse_open(self, on=True, err=errno.ENXIO, which=DEVICE):
        self._control("refuse-open", self._file(which), err if on else 0)

    def set_proc_record(self, data, first_read=None):
        """What reads of the proc file return; first_read caps the first read at offset 0, so
        that the record arrives in two parts."""
        words = ["proc-record", _hex(data)] + ([first_read] if first_read is not None else [])
        self._control(*words)

    def set_kbpk(self, acquirer, value=None, flags=0, protected=None):
        """Gives the device a KBPK, by its 256-byte value or its 32-byte protected form."""
        if (value is None) == (protected is None):
            raise ValueError("give value or protected")
        if value is not None:
            self._control("kbpk", acquirer, flags, _hex(value))
        else:
            self._control("kbpk-protected", acquirer, flags, _hex(protected))
        return self.kbpk(acquirer)

    def remove_kbpk(self, acquirer):
        self._control("kbpk-remove", acquirer)

    # ---- what the device saw and holds -------------------------------------------------------

    def events(self, which=None):
        out = []
        for line in self._snapshot("events").splitlines():
            f = line.split(" ")
            e = Event(f[0], int(f[1]), f[2], int(f[3]))
            if e.op == "open":
                e.flags = int(f[4], 16) & ~_O_LARGEFILE
            elif e.op == "write":
                e.data, e.note = _unhex(f[4]), f[5]
            elif e.op == "read":
                e.size, e.data = int(f[4]), _unhex(f[5])
            out.append(e)
        return [e for e in out if which is None or e.file == which]

    def requests(self):
        """Every write to the device in order, byte for byte, refused ones included."""
        return [e.data for e in self.events(DEVICE) if e.op == "write"]

    def replies(self):
        """Every reply the device handed out, one entry per successful read."""
        return [e.data for e in self.events(DEVICE) if e.op == "read" and e.result > 0]

    def proc_writes(self):
        return [e.data for e in self.events(PROC) if e.op == "write"]

    def state(self):
        s = DeviceState({})
        for line in self._snapshot("state").splitlines():
            f = line.split(" ")
            if f[0] == "kbpk":
                a = int(f[1])
                s.kbpks[a] = Kbpk(a, int(f[2], 16), _unhex(f[3]), _unhex(f[4]), f[5])
            elif f[0] == "terminal-key":
                s.subject, s.terminal_key = _unhex(f[1]), _unhex(f[2])
            elif f[0] == "rate-limit":
                s.rate_limit = _unhex(f[1])
        return s

    def kbpk(self, acquirer):
        return self.state().kbpks.get(acquirer)
