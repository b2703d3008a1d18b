"""Fixtures of the system tests: the real set-uid program in a fresh simulated terminal.

Run as root: /usr/bin/python3 -m pytest tests/system (the harness enters its own mount
namespace). ORVIN_BUILD_DIR names the build to test (default: build/ beside this repository).
"""
import os
import sys

import pytest

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(REPO, "sim"))

from orvin_sim import PKI, Terminal  # noqa: E402

BUILD_DIR = os.path.abspath(os.environ.get("ORVIN_BUILD_DIR", os.path.join(REPO, "build")))


@pytest.fixture(scope="session")
def pki():
    return PKI(os.path.join(BUILD_DIR, "sim-pki"))


@pytest.fixture
def make_term(pki):
    """Makes terminals with non-default settings, e.g. make_term(main_user=False)."""
    made = []

    def make(**kw):
        made.append(Terminal(BUILD_DIR, pki, **kw))
        return made[-1]

    yield make
    for t in made:
        t.close()


@pytest.fixture
def term(make_term):
    return make_term()
