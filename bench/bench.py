"""The project's benchmark: every case against an anchor doing the same work, in the same run.

    sudo /usr/bin/python3 bench/bench.py [--quick] [--build DIR] [--program FILE] [--pairs N]

Builds the project and the ideal verifier, lays out a simulated terminal and times, alternating
program and anchor, several pairs of runs of each case:

  P1 "--install-check" of a signed large file   vs  openssl dgst -sha256 -verify
  P2 "--authenticate" of 10,000 signed files, 20 stored certificates
                                                 vs  bench/ideal_verify.c given each directory's
                                                     signer (each file read and hashed once, one
                                                     RSA verification with the key known to have
                                                     signed it)
  P3 the start-up check with 50 stored certificates (a run without a command)
                                                 vs  openssl verify of the 50, one process
  P4 "--install" of a signed large file          vs  openssl dgst -verify, then cp of the file
                                                     and its signature into /usr/local/
  P5 a run without a command, empty store        vs  openssl version

Every run's exit status and output are checked; a run that fails stops the benchmark instead of
giving a figure. Prints one table of medians (with min and max) and ratios against the goals, the
program's peak memory by file size, and how "--authenticate" grows with files and certificates:
its cost per file beside one verification per file and beside bench/ideal_verify.c trying the
keys in order (first match), and the cost per file (a run's time less that of the same run without
files) with 50 certificates against the cost with one.
As on a terminal, the files of a directory share their signer; directories take the stored
signers in turn.
It measures; it never fails on a time. "--quick" uses smaller inputs (about three minutes).
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import time
from contextlib import contextmanager

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "sim"))

from orvin_sim import PKI, Terminal, mounts  # noqa: E402

CERTS = "/usr/local/share/certs/"
GOALS = {"P1": 1.05, "P2": 1.2, "P3": 1.2, "P4": 1.3, "P5": 1.2}
# The cost per file of --authenticate with 50 stored certificates against its cost with one.
GROWTH_GOAL = 1.3
MIB = 1 << 20


class BrokenRun(Exception):
    pass


# ---- building ----------------------------------------------------------------------------------

def build(build_dir):
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        subprocess.run(["cmake", "-S", REPO, "-B", build_dir, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"],
                       check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "-j2"], check=True, stdout=subprocess.DEVNULL)
    ideal = os.path.join(build_dir, "bench", "ideal_verify")
    os.makedirs(os.path.dirname(ideal), exist_ok=True)
    subprocess.run(["cc", "-O2", "-o", ideal, os.path.join(REPO, "bench", "ideal_verify.c"),
                    "-lcrypto"], check=True)
    peak = os.path.join(build_dir, "bench", "peak_rss")
    subprocess.run(["cc", "-O2", "-o", peak, os.path.join(REPO, "bench", "peak_rss.c")], check=True)
    signer = os.path.join(build_dir, "bench", "sign_files")
    subprocess.run(["cc", "-O2", "-o", signer, os.path.join(REPO, "bench", "sign_files.c"),
                    "-lcrypto"], check=True)
    return ideal, peak, signer


def peak_rss(term, peak, args):
    """Peak memory of one program run in KiB, measured by a launcher of its own: a child forked
    from this harness would count the harness's memory as its own."""
    real_popen = subprocess.Popen
    subprocess.Popen = lambda cmd, **kw: real_popen([peak] + cmd, **kw)
    try:
        result = run(term, args)
    finally:
        subprocess.Popen = real_popen
    err = result[4]
    marker = err.rfind(b"peak_rss ")
    if marker < 0:
        raise BrokenRun(f"no peak memory reported: {err[-300:]!r}")
    return result[:4] + (err[:marker],), int(err[marker + 9:].split()[0])


# ---- the terminal ------------------------------------------------------------------------------

@contextmanager
def usr_local_writable(term):
    target = term.path("/usr/local")
    mounts.mount(None, target, None, mounts.MS_REMOUNT)
    try:
        yield
    finally:
        mounts.mount(None, target, None, mounts.MS_REMOUNT | mounts.MS_RDONLY)


class Signers:
    """Certificates and private keys by role; bench-N are extra signers under "prod-sign"."""

    def __init__(self, pki, sign_files):
        self.pki = pki
        self.sign_files = sign_files
        self.roles = ["prod-sign"] + [f"bench-{k}" for k in range(49)]
        for role in self.roles[1:]:
            pki.issue(role, role, "prod-sign")

    def sign(self, host_paths, role):
        """Writes each host path's detached signature by role."""
        subprocess.run([self.sign_files, self.pki.key_path(role)], check=True,
                       input="".join(p + "\n" for p in host_paths).encode())

    def public_key(self, role):
        return subprocess.run(["openssl", "pkey", "-in", self.pki.key_path(role), "-pubout"],
                              check=True, capture_output=True).stdout


def set_store(term, signers, count, extra=()):
    """The certificate store holds the first count signers (prod-sign first) and extra roles."""
    host = term.path(CERTS)
    with usr_local_writable(term):
        for name in os.listdir(host):
            os.unlink(os.path.join(host, name))
        for role in signers.roles[:count] + list(extra):
            shutil.copyfile(signers.pki.cert_path(role), os.path.join(host, role + ".crt"))
    return [CERTS + n for n in os.listdir(host)]  # listing order, as the program searches


def write_big(term, signers, path, size):
    """A file of size random bytes and its signature by "acme"."""
    with open(term.path(path), "wb") as f:
        for _ in range(size // MIB):
            f.write(os.urandom(MIB))
    signers.sign([term.path(path)], "acme")


def make_tree(term, signers, files, certs):
    """files signed files under /usr/local/bench/, 100 to a directory: the files of a directory
    share their signer, and the directories take the stored signers in turn, spread over all of
    them. Gives the ideal_verify arguments of one verification per file: each directory's certificate
    and path prefix."""
    root = term.path("/usr/local/bench")
    dirs = (files + 99) // 100
    by_role = {}
    owners = []
    with usr_local_writable(term):
        shutil.rmtree(root, ignore_errors=True)
        for i in range(files):
            j = i // 100
            d = os.path.join(root, f"d{j}")
            role = signers.roles[(j * certs // dirs + j) % certs]
            if i % 100 == 0:
                os.makedirs(d)
                owners.append(f"{CERTS}{role}.crt=/usr/local/bench/d{j}/")
            path = os.path.join(d, f"f{i}")
            with open(path, "wb") as f:
                f.write(os.urandom(2048))
            by_role.setdefault(role, []).append(path)
        for role, paths in by_role.items():
            signers.sign(paths, role)
    return owners


# ---- running -----------------------------------------------------------------------------------

def run(term, args, program=None, argv0="orvin-auth"):
    """One run: (status, stdout, seconds, peak RSS in KiB, stderr)."""
    kw = {} if program is None else {"program": program}
    start = time.perf_counter()
    proc = term.popen(args, argv0=argv0, **kw)
    out = proc.stdout.read()
    err = proc.stderr.read()
    _, status, usage = os.wait4(proc.pid, 0)
    secs = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    for stream in (proc.stdout, proc.stderr):
        stream.close()
    if proc.returncode == 127 and err.startswith(b"orvin-sim-exec:"):
        raise BrokenRun(err.decode(errors="replace"))
    return proc.returncode, out, secs, usage.ru_maxrss, err


def checked(what, result, status, check):
    st, out, secs, rss, err = result
    if st != status or not check(out):
        raise BrokenRun(f"{what}: status {st}, output {out[-300:]!r}, errors {err[-300:]!r}")
    return secs, rss


class Case:
    """A case: program and anchor as callables giving seconds; prepare/reset run untimed."""

    def __init__(self, name, what, program, anchor, reset=None):
        self.name, self.what, self.program, self.anchor, self.reset = name, what, program, anchor, reset

    def measure(self, pairs):
        prog, anch = [], []
        for _ in range(pairs):
            prog.append(self.program())
            if self.reset:
                self.reset()
            anch.append(self.anchor())
            if self.reset:
                self.reset()
        return prog, anch


def fmt(values):
    return f"{statistics.median(values):8.3f} [{min(values):.3f}-{max(values):.3f}]"


# ---- the cases -----------------------------------------------------------------------------------

def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--quick", action="store_true", help="smaller inputs, fewer pairs")
    ap.add_argument("--build", default=os.path.join(REPO, "build"), help="build directory")
    ap.add_argument("--program", help="time this orvin-auth binary instead of the build's")
    ap.add_argument("--pairs", type=int, help="pairs of runs per case")
    opts = ap.parse_args()
    if os.geteuid() != 0:
        sys.exit("bench.py runs the set-uid program in a simulated terminal: run it as root")

    quick = opts.quick
    pairs = opts.pairs or (3 if quick else 7)
    big = (256 if quick else 1024) * MIB
    p2_files = 1000 if quick else 10000
    ideal, peak, sign_files = build(opts.build)
    pki = PKI(os.path.join(opts.build, "sim-pki"))
    signers = Signers(pki, sign_files)

    with Terminal(opts.build, pki) as term:
        if opts.program:
            term.install_program(opts.program, "/usr/sbin/orvin-auth")
        for host, path in [(shutil.which("openssl"), "/usr/bin/openssl"),
                           (shutil.which("cp"), "/usr/bin/cp"), (ideal, "/usr/bin/ideal_verify")]:
            term.install_program(host, path, 0o755)
        term.write("/tmp/acme.pub", signers.public_key("acme"))
        openssl = "/usr/bin/openssl"
        rows = []

        def verified_ok(out):
            return out == b"Verified OK\n"

        # P1 and P4: a large signed file.
        set_store(term, signers, 1, ["acme"])
        write_big(term, signers, "/tmp/big", big)
        gib = f"{big // MIB} MiB"

        def p1_program():
            return checked("P1 program", run(term, ["--install-check", "/tmp/big", "/usr/local/acme/"]),
                           0, lambda o: b"FATAL" not in o)[0]

        def dgst():
            return checked("openssl dgst", run(term, ["dgst", "-sha256", "-verify", "/tmp/acme.pub",
                                                       "-signature", "/tmp/big.sig", "/tmp/big"],
                                                program=openssl, argv0="openssl"), 0, verified_ok)[0]

        rows.append((Case("P1", f"--install-check, {gib}", p1_program, dgst), GOALS["P1"]))

        installed = ("Signature installed: /usr/local/acme/big.sig\nData file installed: "
                     "/usr/local/acme/big\nSigned file installed.\n").encode()

        def p4_program():
            return checked("P4 program", run(term, ["--install", "/tmp/big", "/usr/local/acme/big"]),
                           0, lambda o: o.endswith(installed))[0]

        def p4_anchor():
            secs = dgst()
            with usr_local_writable(term):
                os.makedirs(term.path("/usr/local/acme"), exist_ok=True)
                for src in ("/tmp/big", "/tmp/big.sig"):
                    dest = "/usr/local/acme/" + os.path.basename(src)
                    secs += checked("cp", run(term, [src, dest], program="/usr/bin/cp", argv0="cp"),
                                    0, lambda o: o == b"")[0]
            return secs

        def p4_reset():
            with usr_local_writable(term):
                shutil.rmtree(term.path("/usr/local/acme"), ignore_errors=True)

        rows.append((Case("P4", f"--install, {gib}", p4_program, p4_anchor, p4_reset), GOALS["P4"]))

        results = {}
        for case, goal in rows:
            results[case.name] = (case, goal, *case.measure(pairs))

        # Peak memory by file size, from --install-check.
        memory = []
        for size in ([1, 16, 256] if quick else [1, 64, 256, 1024]):
            path = f"/tmp/mem-{size}"
            if size * MIB == big:
                path = "/tmp/big"
            else:
                write_big(term, signers, path, size * MIB)
            result, rss = peak_rss(term, peak, ["--install-check", path, "/usr/local/acme/"])
            checked("memory", result, 0, lambda o: b"FATAL" not in o)
            memory.append((size, rss))
            if path != "/tmp/big":
                os.unlink(term.path(path))
                os.unlink(term.path(path) + ".sig")
        os.unlink(term.path("/tmp/big"))

        # P3 and P5: the start-up check alone.
        def startup(count):
            def program():
                return checked(f"start-up, {count} certificates", run(term, []), 1,
                               lambda o: o.count(b" - verified") == count and b"failed" not in o)[0]
            return program

        stored = set_store(term, signers, 50)
        verify_args = ["verify", "-CAfile", "/usr/ssl/cert.pem", "-untrusted", CERTS + "prod-sign.crt"] + stored

        def p3_anchor():
            return checked("openssl verify", run(term, verify_args, program=openssl, argv0="openssl"),
                           0, lambda o: o.count(b": OK\n") == 50)[0]

        case = Case("P3", "start-up check, 50 certificates", startup(50), p3_anchor)
        results["P3"] = (case, GOALS["P3"], *case.measure(pairs))

        set_store(term, signers, 0)

        def p5_anchor():
            return checked("openssl version", run(term, ["version"], program=openssl, argv0="openssl"),
                           0, lambda o: o.startswith(b"OpenSSL"))[0]

        case = Case("P5", "fixed cost, empty store", startup(0), p5_anchor)
        results["P5"] = (case, GOALS["P5"], *case.measure(pairs))

        # P2 and the growth of --authenticate.
        def authenticate(files, count):
            def program():
                return checked(f"--authenticate, {files} files", run(term, ["--authenticate"]), 0,
                               lambda o: o.count(b" - data/executable - verified\n") == files and b"delete" not in o)[0]
            return program

        def anchor_run(name, files, arguments):
            def anchor():
                return checked(name, run(term, ["/usr/local", CERTS] + arguments,
                                         program="/usr/bin/" + name, argv0=name),
                               0, lambda o: o.count(b" - verified\n") == files)[0]
            return anchor

        growth = []
        plan = [(p2_files, 20)] + [(f, c) for f, c in ([(1000, 1), (1000, 20), (1000, 50)] +
                                                        ([] if quick else [(10000, 20)]))
                                   if (f, c) != (p2_files, 20)]
        for files, count in plan:
            candidates = set_store(term, signers, count)
            owners = make_tree(term, signers, files, count)
            case = Case("P2", f"--authenticate, {files} files, {count} certificates",
                        authenticate(files, count), anchor_run("ideal_verify", files, owners))
            prog, anch = case.measure(pairs if (files, count) == (p2_files, 20) else max(2, pairs // 2))
            if (files, count) == (p2_files, 20):
                results["P2"] = (case, GOALS["P2"], prog, anch)
            in_order = [anchor_run("ideal_verify", files, candidates)() for _ in range(len(prog))]
            # The same run without files: the start-up check of the store, which P3 measures, and
            # the fixed cost of a run, neither of which is a cost per file.
            make_tree(term, signers, 0, count)
            empty = [authenticate(0, count)() for _ in range(len(prog))]
            growth.append((files, count, prog, anch, in_order, empty))

    print(f"\norvin-auth benchmark{' (quick)' if quick else ''}: medians of {pairs} alternating pairs, "
          "seconds [min-max]\n")
    print(f"{'case':<4} {'what':<44} {'program':>22} {'anchor':>22} {'ratio':>6} {'goal':>6}  result")
    for name in ("P1", "P2", "P3", "P4", "P5"):
        case, goal, prog, anch = results[name]
        ratio = statistics.median(prog) / statistics.median(anch)
        print(f"{name:<4} {case.what:<44} {fmt(prog):>22} {fmt(anch):>22} {ratio:6.2f} {goal:6.2f}  "
              f"{'pass' if ratio <= goal else 'FAIL'}")
    print("\npeak memory of --install-check: " +
          ", ".join(f"{size} MiB: {rss / 1024:.1f} MiB" for size, rss in memory) +
          f"  (goal: flat, <= 12 MiB: {'pass' if max(r for _, r in memory) <= 12 * 1024 else 'FAIL'})")
    print("\n--authenticate growth (median seconds; per file; one verification per file and keys in "
          "order for comparison)")
    print("  (us/file: the run's time less that of the same run without files)")
    per_file = {}
    for files, count, prog, anch, in_order, empty in growth:
        p, a, o = statistics.median(prog), statistics.median(anch), statistics.median(in_order)
        per_file[(files, count)] = (p - statistics.median(empty)) / files
        print(f"  {files:>6} files {count:>3} certificates: {p:7.3f} s  "
              f"{per_file[(files, count)] * 1e6:7.1f} us/file   one {a:7.3f} s  ratio {p / a:5.2f}"
              f"   in order {o:7.3f} s  ratio {p / o:5.2f}")
    growth_ratio = per_file[(1000, 50)] / per_file[(1000, 1)]
    print(f"  cost per file, 50 certificates against one: {growth_ratio:5.2f}  goal {GROWTH_GOAL:.2f}  "
          f"{'pass' if growth_ratio <= GROWTH_GOAL else 'FAIL'}")

if __name__ == "__main__":
    try:
        main()
    except BrokenRun as e:
        sys.exit(f"broken run, no figures: {e}")
