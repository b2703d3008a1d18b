// Terminal-certificate commands whose operations are not built yet; their caller rules already
// hold.
#include "base/caller.hpp"
#include "x509/handlers.hpp"

int cmd_x509_csr(int, char**) { return not_implemented(CallerRule::root_only); }
int cmd_x509_generate(int, char**) { return not_implemented(CallerRule::root_only); }
