"""Fixtures of the system tests: the real set-uid program in a fresh simulated terminal.

Run as root: /usr/bin/python3 -m pytest tests/system (the harness enters its own mount
namespace). ORVIN_BUILD_DIR names the build to test (default: build/ beside this repository).
The program of another architecture runs under the user-mode emulator with
ORVIN_PROGRAM=build-armhf/orvin-auth ORVIN_EMULATED=armhf (ORVIN_BUILD_DIR still gives the native
simulator helpers; ORVIN_SYSROOT the armhf libraries, by default the sysroot beside the program).
"""
import os
import sys

import pytest

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(REPO, "sim"))

from orvin_sim import PKI, Terminal  # noqa: E402

BUILD_DIR = os.path.abspath(os.environ.get("ORVIN_BUILD_DIR", os.path.join(REPO, "build")))
PROGRAM = os.path.abspath(os.environ.get("ORVIN_PROGRAM") or os.path.join(BUILD_DIR, "orvin-auth"))
EMULATED = os.environ.get("ORVIN_EMULATED") or None
SYSROOT = os.path.abspath(os.environ.get("ORVIN_SYSROOT") or os.path.join(os.path.dirname(PROGRAM),
                                                                        "sysroot"))


def not_emulated(reason):
    """Marks a test whose subject an emulated run cannot show; it is skipped there, with reason."""
    return pytest.mark.skipif(EMULATED is not None, reason=f"under {EMULATED} emulation, {reason}")


def terminal_settings():
    """What every terminal of this run installs: the program, and how it runs."""
    if EMULATED is None:
        return {"program": PROGRAM}
    return {"program": PROGRAM, "emulated": EMULATED, "sysroot": SYSROOT}


@pytest.fixture(scope="session")
def pki():
    return PKI(os.path.join(BUILD_DIR, "sim-pki"))


@pytest.fixture
def make_term(pki):
    """Makes terminals with non-default settings, e.g. make_term(main_user=False)."""
    made = []

    def make(**kw):
        made.append(Terminal(BUILD_DIR, pki, **{**terminal_settings(), **kw}))
        return made[-1]

    yield make
    for t in made:
        t.close()


@pytest.fixture
def term(make_term):
    return make_term()
