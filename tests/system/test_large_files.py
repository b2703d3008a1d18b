"""Files beyond 4 GiB, sparse so they cost no memory or disk: sizes and offsets are 64-bit on every
architecture, the 32-bit terminal's included (D26). A size cut to 32 bits would make such a file
look small, and an offset cut to 32 bits would read its start again instead of its tail."""
import hashlib
import os

from helpers import SAPI, give_kbpk, provision, run_cmd, tr31

GIB4 = 1 << 32
# Not zeros: a read that wrapped back to offset 0 would find zeros there and change the digest.
TAIL = bytes(range(256)) * 16 + b"tail"
BIG_SIZE = GIB4 + len(TAIL)


def big_signature(pki, role):
    """The signature of the big file by role. Hashing 4 GiB takes seconds, so it is kept beside
    the test keys, under the name of the key that made it."""
    with open(pki.key_path(role), "rb") as f:
        key = hashlib.sha256(f.read()).hexdigest()[:16]
    cached = os.path.join(pki.dir, f"big-{BIG_SIZE}-{key}.sig")
    if not os.path.exists(cached):
        sha = hashlib.sha256()
        zeros = bytes(1 << 22)
        for _ in range(GIB4 // len(zeros)):
            sha.update(zeros)
        sha.update(TAIL)
        signature = pki.sign_digest(sha.digest(), role)
        with open(cached + ".part", "wb") as f:
            f.write(signature)
        os.replace(cached + ".part", cached)
    with open(cached, "rb") as f:
        return f.read()


def test_signed_file_beyond_4_gib_verifies(term):
    provision(term, "acme")
    term.write_sparse("/tmp/big", BIG_SIZE, tail=TAIL, uid=500, gid=500)
    term.write("/tmp/big.sig", big_signature(term.pki, "acme"), uid=500, gid=500)
    assert run_cmd(term, ["--install-check", "/tmp/big", "/usr/local/acme/"], uid=500,
                   timeout=600) == (0, b"Signed file can be installed.\n")


def test_key_file_whose_size_wraps_to_a_valid_one_is_refused_by_its_size(make_term):
    # A valid key block followed by a hole up to 4 GiB more: cut to 32 bits, the size would be
    # exactly the key block's, and the key would be sent to the device.
    term = make_term(sapi=True)
    term.mkdir(SAPI, 0o700)
    give_kbpk(term, 5)
    term.mkdir("/home/app", 0o777)
    term.write_sparse("/tmp/k.tr31", GIB4 + len(tr31()), head=tr31(), uid=500, gid=500)
    assert run_cmd(term, ["--install-key", "5", "/tmp/k.tr31", "/home/app/"], uid=500) == (
        13, b"Invalid TR-31 file size.\n")
    assert term.sapi.requests() == [] and not term.exists("/home/app/k.tr31")


def test_sweep_sees_an_unsigned_file_beyond_4_gib(term):
    # The walk's own lstat of each entry must not fail on a file this size.
    term.write_sparse("/usr/local/share/big", GIB4 + 1, tail=b"x")
    r = run_cmd(term, ["--authenticate"])
    assert r.status == 0
    assert b"/usr/local/share/big - data/executable - missing signature - delete\n" in r.stdout
    assert not term.exists("/usr/local/share/big") and term.usr_local_readonly()
