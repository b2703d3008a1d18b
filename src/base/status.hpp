// The exit statuses every handler and main return; the same number means the same thing everywhere.
#pragma once

// No status is dropped by accident: ignoring one needs a (void) that says it is on purpose.
enum [[nodiscard]] ExitStatus : int {
    ST_OK = 0,
    ST_BAD_ARGUMENT = 1,
    ST_CERT_UNREADABLE = 2,
    ST_CERT_INVALID = 3,
    ST_EXISTS = 4,
    ST_CN_EXISTS = 5,
    ST_ACCESS_DENIED = 6,
    ST_BAD_SIGNATURE = 7,
    ST_BAD_PATH = 8,
    ST_FAILURE = 9,
    ST_KBPK_PRESENCE = 10,
    ST_BAD_KBPK_FILE = 11,
    ST_DUPLICATE_KEY = 12,
    ST_BAD_TR31_FILE = 13,
    ST_PCI_PIN_DISABLED = 14,
    ST_MSD_REPAIRED = 99,
};
