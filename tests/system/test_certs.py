"""Certificate trust chains, the certificate store, the application user and the store sweep."""
import os
import stat

import pytest

from helpers import BANNER

STORE = "/usr/local/share/certs/"
OFFERED = "/tmp/offered.crt"


def verified(name):
    return f"{STORE}{name} - certificate - verified\n".encode()


def invalid(name, inside=b""):
    return f"{STORE}{name} - certificate".encode() + inside + b" invalid - delete\n"


def offer(term, role, path=OFFERED, extra=b"", uid=0):
    term.write(path, term.pki.cert(role) + extra, uid=uid, gid=uid)
    return path


def store(term, *roles):
    """Installs certificates by role and returns the sweep lines they print (in any order)."""
    for role in roles:
        term.install_cert(role)
    return [verified(role + ".crt") for role in roles]


def listing(term):
    return sorted(os.listdir(term.path(STORE)))


def assert_run(r, status, sweep_lines, tail):
    """Banner, the sweep's lines in directory order (any order here), then the command's text."""
    assert r.status == status, r.stdout
    assert r.stdout.startswith(BANNER) and r.stdout.endswith(tail), r.stdout
    middle = r.stdout[len(BANNER):len(r.stdout) - len(tail)]
    assert sorted(middle.splitlines(keepends=True)) == sorted(sweep_lines), r.stdout


@pytest.mark.parametrize("stored, role, status", [
    # The installed production-signing certificate from "KeySigning" selects the bundle.
    (("prod-sign",), "rki-acme", 3),
    # Without it the RKI CA is the anchor ...
    ((), "rki-acme", 0),
    ((), "acme", 3),
    # ... except for the application user's and (see any start-up check) the tamper service's.
    ((), "root-main-user", 0),
    # A "prod-sign" from "KeySigning" switches to the bundle itself; one from another CA does not.
    ((), "prod-sign", 0),
    ((), "prod-sign-other", 3),
    # The application user's certificate needs its own intermediate.
    (("prod-sign", "keysign-main-user"), "main-user", 0),
    (("prod-sign",), "main-user", 3),
])
def test_each_role_is_verified_against_its_anchor(term, pki, stored, role, status):
    pki.issue("root-main-user", "main-user", "root")
    lines = store(term, *stored)
    r = term.run(["--install-cert-check", offer(term, role)])
    tail = b"Certificate can be installed.\n" if status == 0 else b""
    assert_run(r, status, lines, tail)
    assert term.exists(OFFERED)


def test_verifying_keysigning_prod_sign_switches_the_anchor_for_the_rest_of_the_run(term):
    # A copy under another name does not decide the flag at start; verifying it in the sweep does,
    # and the RKI-issued certificate offered afterwards no longer verifies.
    term.install_cert("prod-sign", "copy.crt")
    assert_run(term.run(["--install-cert-check", offer(term, "rki-acme")]), 3, [verified("copy.crt")], b"")


def sweep_records(stdout, names):
    """Each stored name's part of the sweep output, in the order the sweep visited them."""
    starts = sorted((stdout.index(f"{STORE}{n} - certificate".encode()), n) for n in names)
    bounds = [i for i, _ in starts] + [len(stdout)]
    return [(n, stdout[bounds[k]:bounds[k + 1]]) for k, (_, n) in enumerate(starts)]


@pytest.mark.parametrize("intermediate", ["prod-sign.crt", "keysign-main-user.crt"])
@pytest.mark.parametrize("damage, inside", [
    (b"not a certificate\n", b""),
    (None, b"No common name found in certificate file.\n"),
])
def test_damaged_intermediate_fails_every_verification_while_present(term, pki, intermediate,
                                                                     damage, inside):
    term.write(STORE + intermediate, pki.cert("nocn") if damage is None else damage)
    names = [intermediate, "detamper.crt", "a.crt", "z.crt"]
    term.install_cert("detamper")
    term.install_cert("detamper", "a.crt")
    term.install_cert("detamper", "z.crt")
    r = term.run(["--authenticate"])
    assert r.status == 0
    seen_damaged = False
    for name, record in sweep_records(r.stdout, names):
        if name == intermediate or not seen_damaged:
            assert record == invalid(name, inside), record
            assert not term.exists(STORE + name), name
        else:
            # Once the damaged file is gone, verification works again.
            assert record == verified(name), record
            assert term.exists(STORE + name), name
        seen_damaged = seen_damaged or name == intermediate


@pytest.mark.parametrize("arg, cwd", [("/tmp/dir/acme-offered.crt", "/"),
                                     ("acme-offered.crt", "/tmp/dir")])  # no slash: the name itself
def test_install_writes_first_certificate_readonly_and_locks_again(make_term, pki, arg, cwd):
    term = make_term(main_user=False)
    lines = store(term, "prod-sign")
    offer(term, "acme", "/tmp/dir/acme-offered.crt", b"trailing text\n" + pki.cert("detamper"))
    r = term.run(["--install-cert", arg], uid=1000, cwd=cwd)
    assert_run(r, 0, lines, b"Certificate installed.\n")
    installed = STORE + "acme-offered.crt"
    assert term.read(installed) == pki.cert("acme")
    st = term.lstat(installed)
    assert (stat.S_IMODE(st.st_mode), st.st_uid, st.st_gid) == (0o444, 0, 0)
    assert listing(term) == ["acme-offered.crt", "prod-sign.crt"]
    assert term.usr_local_readonly()
    # Only the application user's certificate touches an account or a device.
    assert term.calls() == [] and term.lstat("/dev/fb0").st_gid == 0


# A common name already stored: test_common_name_is_text_in_every_string_type.
@pytest.mark.parametrize("command", ["--install-cert-check", "--install-cert"])
def test_duplicate_name_is_refused_before_its_common_name(term, command):
    lines = store(term, "prod-sign")
    term.install_cert("acme", "offered.crt")
    lines.append(verified("offered.crt"))
    before = listing(term)
    r = term.run([command, offer(term, "acme")])
    assert_run(r, 4, lines, b"Destination certificate already exists: " + STORE.encode() + b"offered.crt\n")
    assert listing(term) == before
    assert term.exists(OFFERED)


# openssl's string masks for a subject in one string type.
STRING_TYPES = {"bmp": "MASK:0x800", "utf8": "utf8only", "printable": "MASK:0x2"}


@pytest.mark.parametrize("kind", STRING_TYPES)
@pytest.mark.parametrize("cn, status, tail", [
    ("OperatingSystem", 3, b"Invalid common name found in certificate file.\n"),
    ("SuperRoot", 3, b"Invalid common name found in certificate file.\n"),
    ("acme-two", 0, b"Certificate installed.\n"),
    ("acme-one", 5, b"Certificate for acme-one already exists: /usr/local/share/certs/stored.crt\n"),
])
def test_common_name_is_text_in_every_string_type(term, pki, kind, cn, status, tail):
    # D18: a reserved name in another string type is still reserved, and two names of the same
    # type differ unless their text is the same.
    pki.issue(f"{kind}-stored", "acme-one", "prod-sign", mask=STRING_TYPES[kind])
    pki.issue(f"{kind}-{cn}", cn, "prod-sign", mask=STRING_TYPES[kind])
    lines = store(term, "prod-sign")
    term.install_cert(f"{kind}-stored", "stored.crt")
    r = term.run(["--install-cert", offer(term, f"{kind}-{cn}")])
    assert_run(r, status, lines + [verified("stored.crt")], tail)
    assert term.exists(STORE + "offered.crt") == (status == 0) and term.exists(OFFERED)


LOCKED = "/tmp/locked/bad.crt"


@pytest.mark.parametrize("command, path, mode, status, kept, out", [
    ("--install-cert-check", OFFERED, 0o644, 3, True, b""),
    ("--install-cert", OFFERED, 0o644, 3, False, b""),
    # D2: the caller's rights decide; the status is the same as after a deletion.
    ("--install-cert", LOCKED, 0o644, 3, True,
     b"Failed to delete invalid certificate: /tmp/locked/bad.crt.\n"),
    # D3: nor does root read for the caller what the caller may not read.
    ("--install-cert", LOCKED, 0o600, 2, True, b"FATAL: Failed to open certificate file.\n")])
@pytest.mark.parametrize("content", [b"", b"not a certificate\n"])
def test_file_that_is_no_certificate_is_deleted_only_by_install(term, command, path, mode, status,
                                                                kept, out, content):
    term.mkdir("/tmp/locked", 0o755)
    owner = 0 if path == LOCKED else 1000
    term.write(path, content, mode=mode, uid=owner, gid=owner)
    r = term.run([command, path], uid=1000)
    assert (r.status, r.stdout) == (status, BANNER + out)
    assert term.exists(path) == kept


def test_store_entry_that_is_no_certificate_blocks_installation(term):
    lines = store(term, "prod-sign")
    term.mkdir(STORE + "sub")
    r = term.run(["--install-cert", offer(term, "detamper")])
    assert_run(r, 3, lines, b"Failed to read certificate file.\n")
    assert not term.exists(STORE + "offered.crt")


def test_failed_remount_prints_on_the_same_line(term):
    store(term, "prod-sign")
    term.break_remount()
    r = term.run(["--install-cert", offer(term, "acme")])
    assert r.status == 9
    assert r.stdout.endswith(b"FATAL: Internal filesystem call failed.Failed to install "
                             b"certificate: /tmp/offered.crt.\n")


@pytest.mark.parametrize("serial_console", [False, True])
def test_main_user_certificate_creates_the_account_and_grants_devices(make_term, pki, serial_console):
    term = make_term(main_user=False)
    term.set_serial_console(serial_console)
    for path in ["/dev/lp0", "/sys/class/leds/LED7:RED"]:  # absent devices are passed over
        term.remove(path)
    lines = store(term, "prod-sign", "keysign-main-user")
    r = term.run(["--install-cert", offer(term, "main-user")])
    assert_run(r, 0, lines, b"Certificate installed.\n")
    assert [c.argv for c in term.calls("/bin/adduser")] == [[b"adduser", b"-D", b"-u500", b"main-user"]]
    expected_passwd = [[b"passwd", b"-d", b"main-user"]] if serial_console else []
    assert [c.argv for c in term.calls("/usr/bin/passwd")] == expected_passwd
    led = "/sys/class/leds/LED9:BLUE:BLUETOOTH/"
    for path in ["/dev/fb0", "/dev/apple-co-pro", "/dev/mtd4", led + "brightness", led + "delay_on",
                 led + "delay_off"]:
        assert (term.lstat(path).st_uid, term.lstat(path).st_gid) == (0, 500), path
    assert stat.S_IMODE(term.lstat(led + "delay_off").st_mode) == 0o660
    assert (term.lstat("/dev/mtd5").st_gid, term.lstat("/dev/mtdblock12").st_gid) == (0, 0)
    st = term.lstat(STORE + "offered.crt")
    assert (stat.S_IMODE(st.st_mode), st.st_uid, st.st_gid) == (0o444, 0, 500)

    # Later runs find the account and leave it alone.
    term.clear_calls()
    r = term.run(["--install-cert-check", offer(term, "detamper", "/tmp/d.crt")])
    assert r.status == 0 and verified("offered.crt") in r.stdout
    assert term.calls("/bin/adduser") == [] and term.calls("/usr/bin/passwd") == []


def test_failed_user_rule_keeps_the_certificate_out(make_term):
    term = make_term(main_user=False)
    term.tool_fails("/bin/adduser", exit=1)
    lines = store(term, "prod-sign", "keysign-main-user")
    r = term.run(["--install-cert", offer(term, "main-user")])
    assert_run(r, 9, lines, b"Failed to add user for certificate: /tmp/offered.crt.\n")
    assert not term.exists(STORE + "offered.crt")


def test_sweep_deletes_what_no_longer_verifies_and_keeps_the_rest(term):
    lines = store(term, "prod-sign", "acme")
    term.write(STORE + "junk.crt", b"junk")
    term.write(STORE + "sub/rki.crt", term.pki.cert("rki-acme"))
    term.write(STORE + "sub/deep/good.crt", term.pki.cert("detamper"))
    r = term.run(["--install-cert-check", offer(term, "rki-acme")])
    assert_run(r, 3, lines + [invalid("junk.crt"), invalid("sub/rki.crt"),
                              verified("sub/deep/good.crt")], b"")
    assert not term.exists(STORE + "junk.crt") and not term.exists(STORE + "sub/rki.crt")
    assert term.exists(STORE + "acme.crt") and term.exists(STORE + "sub/deep/good.crt")
    assert term.exists(STORE + "sub/deep")
    assert term.usr_local_readonly()
