"""A full application file system in the middle of a write: nothing is left half-installed under
its final name, no temporary stays behind, and the file system is locked again."""
import os

import pytest

from helpers import provision, run_cmd, signed_file

PAGE = 4096
WRITE_FAILED = b"FATAL: Failed to write a data block.\n"


def tree(term):
    root = term.path("/usr/local")
    return {os.path.relpath(os.path.join(d, n), root) for d, dirs, files in os.walk(root)
            for n in dirs + files}


def install(term):
    provision(term, "acme")
    signed_file(term, "/tmp/app", "acme", data=bytes(i % 251 for i in range(16 * PAGE)))
    return ["--install", "/tmp/app", "/usr/local/share/"]


def install_cert(term):
    provision(term, "prod-sign")
    term.write("/tmp/offered.crt", term.pki.cert("acme"))
    return ["--install-cert", "/tmp/offered.crt"]


@pytest.mark.parametrize("command,free,out", [
    # No room for the signature, the first file written.
    (install, 0, WRITE_FAILED),
    # The signature fits and is published; the data file runs out of room part way.
    (install, 2 * PAGE, b"Signature installed: /usr/local/share/app.sig\n" + WRITE_FAILED),
    (install_cert, 0, b"Failed to write destination certificate file.\n"
                      b"Failed to install certificate: /tmp/offered.crt.\n"),
])
def test_write_failure_leaves_the_file_system_as_it_was(term, command, free, out):
    args = command(term)
    term.leave_usr_local_free(free)
    before = tree(term)
    assert run_cmd(term, args) == (9, out)
    assert tree(term) == before
    assert term.usr_local_readonly()
