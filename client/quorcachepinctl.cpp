// SPDX-License-Identifier: MIT
// quorcachepinctl: the operator's command.
#include <locale.h>
#include <syslog.h>

#include "client/command_line.h"

int main(int argc, char* argv[]) {
    setlocale(LC_CTYPE, "");
    // What the shared functions would write to the system log speaks of the service, not of this
    // command, which says itself what failed.
    setlogmask(LOG_MASK(LOG_EMERG));
    return client::RunCommandLine(argc, argv);
}
