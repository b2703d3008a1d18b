"""Writes the seed corpus of every fuzz target from the simulated terminal's own records and test PKI.

Run from the top of the tree: python3 tools/fuzz-seeds.py [PKI cache dir]. Seeds are small and
committed; this only remakes them.
"""
import hashlib
import os
import struct
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), ".."))
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "sim"))
from orvin_sim.pki import PKI  # noqa: E402

CORPUS = os.path.join(os.path.dirname(__file__), "..", "tests", "fuzz", "corpus")


def key_block(bits, exponent=b"\x01\x00\x01"):
    n = bytearray(b"\x5a" * ((bits + 7) // 8))
    n[0], n[-1] = 1 << ((bits - 1) % 8), 0x5B
    return struct.pack(">H", len(n)) + bytes(n) + struct.pack(">H", len(exponent)) + exponent


def texts(cn, usage):
    return bytes([len(cn)]) + cn + bytes([len(usage)]) + usage


def tr31(size=112):
    head = b"B%04dK0RS00E0000" % size
    return head + b"0" * (size - len(head))


def digest(text):
    return hashlib.sha256(text).digest()


MTD = (b'dev:    size   erasesize  name\n'
       b'mtd0: 00100000 00020000 "bootloader"\n'
       b'mtd1: 00020000 00020000 "environment"\n'
       b'mtd2: 00800000 00020000 "kernel"\n'
       b'mtd4: 00800000 00020000 "screens"\n'
       b'mtd5: 04000000 00020000 "os-update"\n')


def seeds(pki):
    k, s = digest(b"key"), digest(b"second")
    return {
        "sapi_wire": {
            "kbpk-reply": k + s + bytes(range(32)),
            "key-reply": k + s + b"\x11" * 48,
            "terminal-key-reply": b"\x00" * 32 + b"\x22" * 64,
            "short": b"\xb4\xd1\x07\x00",
            "kbpk-file": bytes(range(256)),
        },
        "tr31_kbpk": {
            "tr31-112": tr31(112),
            "tr31-56": tr31(56),
            "bad-version": b"Z0056" + b"0" * 51,
            "flag-8000": b"8000",
            "flag-0000": b"0000",
            "role-pci-pin": b"HSM-PCI-PIN",
            "role-main-user": b"main-user",
            "state-name": b".KBPK0007",
        },
        "mtd": {
            "screens": b"screens\n" + MTD,
            "os-update": b'"os-update"\n' + MTD,
            "missing": b"recovery\n" + MTD,
            "long-device": b"screens\nmtd123: 00800000 00020000 \"screens\"\n",
            "short-line": b"kernel\nmtd2:\n",
        },
        "hex": {
            "upper": b"00FFA5C3",
            "lower": b"deadbeef",
            "odd": b"ABC",
            "bad-digit": b"12G4",
            "acquirer": b"0007",
        },
        "ksn": {
            "one-entry": b"\x03\x00" + bytes.fromhex("FFFF9876543210E00001"),
            "log": b"\x03\x00\xff\xff\x98\x76\x54\x32\x10\xe0\x00\x01"
                   + b"\n3:FFFF9876543210E00001\n4:FFFF9876543210E00002\n",
            "damaged": b"\x05\x00" + b"\x00" * 10 + b"\nx:ZZ\n 5:\n-1:0000000000000000000\n",
            "high-index": b"\x90\x01" + b"\xab" * 10 + b"\n144:ABABABABABABABABABAB\n",
        },
        "registry": {
            "paired-match": k + s + b"\x00" + k + s,
            "paired-other": k + s + b"\x00" + digest(b"a") + digest(b"b") + k + digest(b"c"),
            "single-short-read": k + s + b"\x10" + digest(b"a") + k,
            "paired-odd": k + s + b"\x00" + k + s[:20],
        },
        "cert_pem": {
            "prod-sign": pki.cert("prod-sign"),
            "main-user": pki.cert("main-user"),
            "acme-slash": pki.cert("acme-slash"),
            "nocn": pki.cert("nocn"),
            "ec-signer": pki.cert("ec-signer"),
            "cn-utf8": b"\x0cmain-user",
        },
        "nvram": {
            "terminal-cert": pki.cert("acme").hex().upper().encode() + b"\n",
            "tr31-terminal-key": tr31(112) + b"\n",
            "opk-terminal-key": b"00112233445566778899AABBCCDDEEFF\n",
            "odd": b"ABC\n",
        },
        "terminal_record": {
            "csr-1024": struct.pack("<HH", len(key_block(1024)), 0xA5A5) + key_block(1024)
                        + texts(b"node-1", b"digitalSignature"),
            "gen-2048": struct.pack("<HHH", len(key_block(2048)), 0xA5A5, 9) + key_block(2048)
                        + texts(b"-node", b"encipherOnly") + b"\x07" * 9,
            "subject": b"/C=GB/ST=x/CN=node-1/emailAddress=a@b",
            "cut-length": b"\xff\x00\xa5\xa5\x00\x01",
        },
        "x509_subject": {
            "csr": b"/C=GB/ST=Hallowmereshire/L=Thornwickley/O=Orvin Systems Ltd/OU=Terminal/CN=node-1"
                   b"\x00digitalSignature",
            "agreement": b"/C=GB/CN=-node\x00keyAgreement,encipherOnly",
            "ca": b"/CN=ca/emailAddress=x@y\x00critical,keyCertSign,cRLSign",
            "odd-fields": b"C=ST=x//CN=\x00nonsense",
        },
        "command_line": {
            "install": b"--install\x00app.bin\x00/usr/local/bin/\x00",
            "install-kbpk": b"--install-kbpk\x000x1F\x00kbpk.bin\x00",
            "install-key": b"--install-key\x00017\x00key.tr31\x00/home/orvin/keys/k.opk\x00",
            "remove-kbpk": b"--remove-kbpk\x00 0\x00",
            "rename": b"--rename\x00/usr/local/a\x00../b/./c\x00",
            "unknown": b"--nope\x00",
        },
    }


def main():
    pki = PKI(sys.argv[1] if len(sys.argv) > 1 else "/tmp/orvin-fuzz-pki")
    for target, files in seeds(pki).items():
        directory = os.path.join(CORPUS, target)
        os.makedirs(directory, exist_ok=True)
        for name, data in files.items():
            with open(os.path.join(directory, name), "wb") as f:
                f.write(data)


if __name__ == "__main__":
    main()
