// SPDX-License-Identifier: MIT
#include "client/show/journal.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace client {

namespace {

// The service manager names the stream that it gave, as others may have been put in its place.
bool ErrorsGoToJournal() {
    const char* const given = getenv("JOURNAL_STREAM");
    struct stat status = {};
    return given != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == given;
}

}  // namespace

bool WriteToJournal(const std::vector<std::pair<const char*, std::string>>& fields) {
    if (!ErrorsGoToJournal()) {
        return false;
    }
    std::string record;
    for (const auto& [name, value] : fields) {
        record += std::string(name) + "=" + value + "\n";
    }
    // One that ends at once must not take this process along.
    struct sigaction ignored = {};
    struct sigaction before = {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &before);
    FILE* const stream = popen("exec logger --journald 2>/dev/null", "we");
    bool written = stream != nullptr && fputs(record.c_str(), stream) >= 0 && fflush(stream) == 0;
    written = stream != nullptr && pclose(stream) == 0 && written;
    sigaction(SIGPIPE, &before, nullptr);
    return written;
}

}  // namespace client
