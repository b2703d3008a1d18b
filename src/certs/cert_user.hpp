// The application user and its device permissions, kept in step with the certificate store.
#pragma once

#include <string>

#include "base/status.hpp"
#include "system/walk.hpp"
#include "verify/cert_chain.hpp"

// The rule itself for a common name already read: nothing for any name but "main-user"; for it,
// the account when missing and the device grants.
[[nodiscard]] ExitStatus cert_adduser_cn(const std::string& cn);

// One step of the certificate sweep (walk_tree): verifies a stored certificate in chains, deletes
// it when it does not verify, applies the user rule when it does; a failure stops the walk.
[[nodiscard]] WalkStep ftw_process_certs(ChainStore& chains, const char* path, int type);
