// Handlers of the terminal-certificate subsystem.
#pragma once

int cmd_x509_csr(int argc, char** argv);
int cmd_x509_generate(int argc, char** argv);
