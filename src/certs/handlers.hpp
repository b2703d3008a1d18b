// Handlers of the certificate subsystem.
#pragma once

int cmd_cert_install_check(int argc, char** argv);
int cmd_cert_install(int argc, char** argv);
