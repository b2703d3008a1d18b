"""A short session in a simulated terminal that a person can follow."""
import os
import sys

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "sim"))

from orvin_sim import PKI, Terminal  # noqa: E402

USERS = {0: "root", 500: "main-user", 1000: "user 1000"}


def say(text):
    print(f"\n### {text}")


def run(term, args, uid=0, gid=None):
    print(f"\n[{USERS.get(uid, uid)}] $ orvin-auth {' '.join(args)}")
    r = term.run(args, uid=uid, gid=gid)
    sys.stdout.write(r.stdout.decode(errors="replace"))
    print(f"[exit status {r.status}]")
    return r


def show_key_state(term):
    for name in sorted(os.listdir(term.path("/home/orvin/.sapi"))):
        data = term.read(f"/home/orvin/.sapi/{name}")
        print(f"/home/orvin/.sapi/{name}: {data.decode() if name.startswith('.FLAG') else f'{len(data)} bytes'}")


def main(build_dir):
    pki = PKI(build_dir)
    with Terminal(build_dir, pki, main_user=False) as term:
        say("The terminal's trust anchors; the certificate store starts empty")
        print("/usr/ssl/:", " ".join(sorted(os.listdir(term.path("/usr/ssl")))))

        say("Provisioning the store; the application user's certificate creates its account")
        for role in ["prod-sign", "keysign-main-user", "main-user", "acme"]:
            term.write(f"/tmp/{role}.crt", pki.cert(role))
            run(term, ["--install-cert", f"/tmp/{role}.crt"])
        print("adduser ran as:", [b" ".join(c.argv).decode() for c in term.calls("/bin/adduser")])
        print("/etc/passwd:", term.read("/etc/passwd").decode().strip().splitlines()[-1])
        st = term.lstat("/dev/sapi0")
        print(f"/dev/sapi0 now owner {st.st_uid}, group {st.st_gid}")

        say("A certificate that no longer verifies is swept at the next start")
        term.write("/usr/local/share/certs/stale.crt", pki.cert("rki-acme"))
        run(term, ["--authenticate"])
        print("stale.crt still there:", term.exists("/usr/local/share/certs/stale.crt"))

        say("A file signed by the signer 'acme' may go into /usr/local/acme/ or the shared area")
        term.write("/tmp/report.bin", b"quarterly report\n")
        term.sign("/tmp/report.bin", "acme")
        run(term, ["--install-check", "/tmp/report.bin", "/usr/local/acme/reports/"])
        run(term, ["--install-check", "/tmp/report.bin", "/usr/local/share/"])

        say("...and nowhere else")
        run(term, ["--install-check", "/tmp/report.bin", "/usr/local/main-user/"])
        run(term, ["--install-check", "/tmp/report.bin", "/usr/local/share/certs/"])
        run(term, ["--install-check", "/tmp/report.bin", "/usr/local/acme/../main-user/x"])

        say("A tampered file is refused")
        term.write("/tmp/forged.bin", b"quarterly report\n")
        term.write("/tmp/forged.bin.sig", term.read("/tmp/report.bin.sig"))
        term.write("/tmp/forged.bin", b"quarterly report, edited\n")
        run(term, ["--install-check", "/tmp/forged.bin", "/usr/local/acme/"])

        say("The application installs its own signed program")
        term.write("/tmp/app", b"#!/bin/sh\necho hello\n", mode=0o750, uid=500, gid=500)
        term.sign("/tmp/app", "main-user")
        run(term, ["--install", "/tmp/app", "/usr/local/main-user/bin/"], uid=500)
        st = term.lstat("/usr/local/main-user/bin/app")
        print(f"installed: owner {st.st_uid}, group {st.st_gid}, mode {st.st_mode & 0o7777:o};"
              f" /usr/local/ read-only again: {term.usr_local_readonly()}")

        say("Start-up sweep over a tree with an unsigned and a tampered file")
        term.write("/usr/local/share/dropped.sh", b"echo not signed\n")
        term.write("/usr/local/share/report.bin", b"quarterly report, edited\n")
        term.write("/usr/local/share/report.bin.sig", term.read("/tmp/report.bin.sig"))
        run(term, ["--authenticate"])

        say("The application renames and removes what it owns")
        run(term, ["--rename", "/usr/local/main-user/bin/app", "/usr/local/main-user/bin/app2"],
            uid=500, gid=500)
        run(term, ["--remove", "/usr/local/main-user/bin/app2"], uid=500, gid=500)
        run(term, ["--remove", "/usr/local/share/certs/acme.crt"], uid=1000, gid=1000)

        say("KBPKs for two acquirers; the one signed by 'HSM-PCI-PIN' gets PCI PIN security")
        term.start_sapi()
        term.mkdir("/home/orvin/.sapi", 0o700)  # the program's key state
        term.install_cert("HSM-PCI-PIN")
        term.install_cert("acme")
        for name, role, value in [("kbpk-1.bin", "HSM-PCI-PIN", bytes(range(256))),
                                  ("kbpk-2.bin", "acme", bytes(range(255, -1, -1)))]:
            term.write(f"/tmp/{name}", value, uid=500, gid=500)
            term.sign(f"/tmp/{name}", role)
        run(term, ["--install-kbpk", "1", "/tmp/kbpk-1.bin"], uid=500)
        run(term, ["--install-kbpk", "2", "/tmp/kbpk-2.bin"], uid=500)
        show_key_state(term)

        say("Checking and switching PCI PIN security")
        run(term, ["--verify-kbpk-pci-pin", "1"], uid=500)
        run(term, ["--verify-kbpk-pci-pin", "2"], uid=500)
        term.sign("/tmp/kbpk-2.bin", "HSM-PCI-PIN")
        run(term, ["--update-kbpk-pci-pin", "2", "/tmp/kbpk-2.bin"], uid=500)
        run(term, ["--verify-kbpk-pci-pin", "2"], uid=500)

        say("The same key value is refused under another acquirer")
        run(term, ["--install-kbpk", "3", "/tmp/kbpk-1.bin"], uid=500)

        say("Removing a KBPK")
        run(term, ["--remove-kbpk", "2"], uid=500)
        show_key_state(term)

        say("The usage text")
        run(term, [])


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(REPO, "build"))
