// SPDX-License-Identifier: MIT
#include "softcache/serve/readiness.h"

#include <systemd/sd-daemon.h>

namespace softcache {

void TellReady(const std::string& status) {
    sd_notify(0, ("READY=1\nSTATUS=" + status).c_str());
}

void TellStopping(const std::string& status) {
    sd_notify(0, ("STOPPING=1\nSTATUS=" + status).c_str());
}

}  // namespace softcache
