"""Simulated payment terminal for the system tests: a private mount namespace, a tmpfs root with
the terminal's files, stub platform tools that record every call, and a test PKI."""
from .pki import PKI
from .terminal import Call, Result, Terminal

__all__ = ["PKI", "Terminal", "Call", "Result"]
