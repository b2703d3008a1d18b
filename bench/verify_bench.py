"""Verification speed and memory: a signed file is read once, in blocks, never held whole.

Runs "--install-check" on signed files of growing size in a simulated terminal and reports the
wall time and the program's peak resident memory for each. Memory must not grow with the file.

    /usr/bin/python3 bench/verify_bench.py [build_dir]
"""
import os
import subprocess
import sys
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "sim"))

from orvin_sim import PKI, Terminal  # noqa: E402

SIZES_MIB = [1, 16, 64, 256]


def timed_run(term, args):
    """Runs the program once; returns its exit status, wall seconds and own peak RSS in KiB."""
    start = time.perf_counter()
    proc = term.popen(args)
    proc.stdout.read()
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    for stream in (proc.stdout, proc.stderr, proc.stdin):
        if stream:
            stream.close()
    return proc.returncode, elapsed, usage.ru_maxrss


def main(build_dir):
    pki = PKI(build_dir)
    rows = []
    with Terminal(build_dir, pki) as term:
        term.install_cert("acme")
        for mib in SIZES_MIB:
            path = f"/tmp/file-{mib}"
            with open(term.path(path), "wb") as f:
                block = os.urandom(1 << 20)
                for _ in range(mib):
                    f.write(block)
            # Signed from the file, so the harness never holds it whole and its memory cannot
            # pass to the program's process through the fork.
            subprocess.run(["openssl", "dgst", "-sha256", "-sign", pki.key_path("acme"), "-out",
                            term.path(path) + ".sig", term.path(path)], check=True)
            status, secs, rss = timed_run(term, ["--install-check", path, "/usr/local/acme/"])
            assert status == 0
            rows.append((mib, secs, rss))
            os.unlink(term.path(path))
    print(f"{'size':>8} {'seconds':>8} {'MiB/s':>8} {'peak RSS':>10}")
    for mib, secs, rss in rows:
        print(f"{mib:>5} MiB {secs:8.3f} {mib / secs:8.0f} {rss:>6} KiB")


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(REPO, "build"))
