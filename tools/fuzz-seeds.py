"""Writes the seed corpus of every fuzz target from the simulated terminal's own records and test PKI.

Run from the top of the tree: python3 tools/fuzz-seeds.py [PKI cache dir]. Seeds are small and
committed; this only remakes them. Only seeds that reach code no other committed input reaches are
listed: a seed the corpus merge finds redundant comes out of here too.
"""
import hashlib
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), ".."))
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "sim"))
from orvin_sim.pki import PKI  # noqa: E402
from orvin_sim.sapi import csr_record, gen_record, key_block  # noqa: E402

CORPUS = os.path.join(os.path.dirname(__file__), "..", "tests", "fuzz", "corpus")


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
            "terminal-key-reply": b"\x00" * 32 + b"\x22" * 64,
            "kbpk-file": bytes(range(256)),
        },
        "tr31_kbpk": {
            "tr31-56": tr31(56),
            "role-pci-pin": b"HSM-PCI-PIN",
            "role-main-user": b"main-user",
            "state-name": b".KBPK0007",
        },
        "mtd": {
            "screens": b"screens\n" + MTD,
            "long-device": b"screens\nmtd123: 00800000 00020000 \"screens\"\n",
        },
        "hex": {
            "lower": b"deadbeef",
            "odd": b"ABC",
            "bad-digit": b"12G4",
        },
        "ksn": {
            "damaged": b"\x05\x00" + b"\x00" * 10 + b"\nx:ZZ\n 5:\n-1:0000000000000000000\n",
            "high-index": b"\x90\x01" + b"\xab" * 10 + b"\n144:ABABABABABABABABABAB\n",
        },
        "registry": {
            "paired-other": k + s + b"\x00" + digest(b"a") + digest(b"b") + k + digest(b"c"),
            "single-short-read": k + s + b"\x10" + digest(b"a") + k,
        },
        # One real certificate for the PEM path; the roles and trust anchors are reached by names
        # alone: a flag byte (0x40 issuer "KeySigning", 0x20 the name is the issuer's, 0x80 an
        # earlier subject name hides it), then the common name.
        "cert_pem": {
            "ec-signer": pki.cert("ec-signer"),
            "keysigning-prod-sign": b"\x40prod-sign",
            "keysigning-main-user": b"\x40main-user",
            "keysigning-detamper": b"\x40detamper",
            "keysigning-other": b"\x40x",
            "issuer-other": b"\xa0prod-sign",
            "issuer-slash": b"\x20/eySigning",
        },
        "nvram": {
            "tr31-terminal-key": tr31(112) + b"\n",
            "opk-terminal-key": b"00112233445566778899AABBCCDDEEFF\n",
            "odd": b"ABC\n",
        },
        "terminal_record": {
            "csr-1024": csr_record(key_block(1024)),
            "gen-2048": gen_record(key_block(2048), usage=b"encipherOnly"),
            "subject": b"/C=GB/ST=x/CN=node-1/emailAddress=a@b",
        },
        "x509_subject": {
            "ca": b"/CN=ca/emailAddress=x@y\x00critical,keyCertSign,cRLSign",
            "odd-fields": b"C=ST=x//CN=\x00nonsense",
        },
        "command_line": {
            "remove-kbpk": b"--remove-kbpk\x00 0\x00",
            "rename": b"--rename\x00/usr/local/a\x00../b/./c\x00",
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
