"""Simulated payment terminal for the system tests: a private mount namespace, a tmpfs root with
the terminal's files, stub platform tools that record every call, a test PKI and a simulated
Security API device."""
from .pki import PKI
from .sapi import Sapi
from .terminal import Call, Result, Terminal

__all__ = ["PKI", "Terminal", "Call", "Result", "Sapi"]
