// Handlers of the signature-verification subsystem.
#pragma once

int cmd_authenticate(int argc, char** argv);
