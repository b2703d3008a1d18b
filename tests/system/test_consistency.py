"""The start-up check every run goes through before its command."""
import stat

import pytest

from helpers import BANNER, provision, usage

FAILED = b"Consistency check failed.\n"
APP_FILES = ["/usr/local/share/data", "/usr/local/acme/bin/app", "/usr/local/acme/bin/app.sig",
             "/usr/local/share/certs/detamper.crt"]
APP_DIRS = ["/usr/local/share", "/usr/local/acme/bin", "/usr/local/share/certs"]
TOOLS = ["/bin/adduser", "/usr/bin/passwd", "/bin/deluser", "/sbin/reboot", "/usr/bin/nandwrite",
         "/bin/mount", "/bin/umount"]


def fill_application_fs(term):
    for f in APP_FILES[:-1]:
        term.write(f, b"x")
    term.install_cert("detamper")
    term.symlink("/etc/passwd", "/usr/local/share/link")


def assert_emptied(term, kept=None):
    for f in APP_FILES + ["/usr/local/share/link"]:
        assert not term.exists(f), f
    for d in APP_DIRS:
        assert d == kept or stat.S_ISDIR(term.lstat(d).st_mode), d
    assert term.exists("/etc/passwd")
    assert term.usr_local_readonly()


@pytest.mark.parametrize("planted", [False, True])
def test_sound_terminal_passes_and_makes_the_state_directory_unless_a_name_is_there(term, planted):
    # Whatever type of entry holds the state directory's name, the check accepts it.
    term.install_cert("detamper")
    if planted:
        term.write("/home/orvin/.sapi", b"")
    r = term.run([])
    assert (r.status, r.stdout) == (
        1, BANNER + b"/usr/local/share/certs/detamper.crt - certificate - verified\n" + usage())
    mode = term.lstat("/home/orvin/.sapi").st_mode
    assert (stat.S_ISDIR(mode), stat.S_IMODE(mode)) == (not planted, 0o644 if planted else 0o700)


# The first missing one in the program's order is reported.
@pytest.mark.parametrize("tools", [[t] for t in TOOLS] + [["/bin/umount", "/usr/bin/passwd"]])
@pytest.mark.parametrize("how", ["missing", "not executable"])
def test_missing_executable_fails_and_empties_the_application_fs(term, tools, how):
    fill_application_fs(term)
    for tool in tools:
        if how == "missing":
            term.remove_tool(tool)
        else:
            term.chmod(tool, 0o644)
    r = term.run(["--install-cert-check", "/tmp/none"])
    assert (r.status, r.stdout) == (
        9, BANNER + b"/usr/local/share/certs/detamper.crt - certificate - verified\n"
        + f"Missing executable: {min(tools, key=TOOLS.index)}\n".encode() + FAILED)
    assert_emptied(term)


@pytest.mark.parametrize("gone", ["/usr/ssl/cert.pem", "/usr/ssl/OS.4-1-1.FSL.X509.crt",
                                  "/usr/ssl/Orvin-RKI-CA.crt", "/home/orvin",
                                  "/usr/local/share/certs"])
def test_missing_trust_anchor_state_directory_or_store_fails_silently(term, gone):
    fill_application_fs(term)
    term.remove(gone)
    r = term.run([])
    assert (r.status, r.stdout) == (9, BANNER + FAILED)
    assert_emptied(term, kept=gone)


@pytest.mark.parametrize("path,line", [("/usr/ssl/OS.4-1-1.FSL.X509.crt", b""),
                                       ("/bin/deluser", b"Missing executable: /bin/deluser\n")])
@pytest.mark.parametrize("uid, status", [(0, 1), (1000, 9)])
def test_files_are_tested_with_the_callers_rights(term, path, line, uid, status):
    # D3: root reads anything, the caller only what he may.
    term.chmod(path, 0o600 if path.endswith(".crt") else 0o700)
    r = term.run([], uid=uid)
    assert r.status == status
    assert r.stdout.endswith(line + FAILED if status == 9 else usage())


def test_invalid_certificate_that_cannot_be_deleted_fails_the_check(term):
    # One that can be deleted just goes; one that cannot stops the run.
    term.write("/usr/local/share/certs/old.crt", term.pki.cert("acme"))
    term.break_remount()
    r = term.run([])
    assert (r.status, r.stdout) == (9, BANNER + b"/usr/local/share/certs/old.crt - certificate "
                                    b"invalid - deleteFailed to delete invalid certificate: "
                                    b"/usr/local/share/certs/old.crt.\n" + FAILED)
    assert term.exists("/usr/local/share/certs/old.crt")


LED = "/sys/class/leds/LED8:GREEN"


@pytest.mark.parametrize("breakage,line", [
    ("/proc/mtd", b"Failed to open the MTD table.\n"),
    (f"{LED}/brightness", f"Failed change ownership on {LED}/brightness.\n".encode())])
def test_failed_user_rule_fails_the_check(term, breakage, line):
    provision(term, "prod-sign", "main-user")
    term.remove(breakage)
    r = term.run([])
    assert r.status == 9
    assert b"/usr/local/share/certs/main-user.crt - certificate - verified" + line + \
           b"Failed to add user for certificate: /usr/local/share/certs/main-user.crt.\n" in r.stdout
    assert r.stdout.endswith(FAILED)
    assert not term.exists("/usr/local/share/certs/main-user.crt")
    assert not term.exists("/usr/local/share/certs/prod-sign.crt")
    # The grant stops at the first failure: the LED's other files stay as they were.
    assert term.lstat(f"{LED}/delay_on").st_gid == (0 if breakage.startswith(LED) else 500)
