// SPDX-License-Identifier: MIT
// Opening a file in a directory where others than root may put anything.
#pragma once

#include <sys/types.h>

// Opens the file without waiting for anything (a FIFO's other end). A symbolic link in the file's
// place is followed only where root alone can have made it: link and directory are root's, and
// neither group nor others may write to the directory. Any other link is an error that names it.
// Returns the descriptor, for the caller to close, or -1; other failures are left to the caller to
// report. `mode` is that of a file to be created.
int OpenInForeignPlace(const char* path, int flags, mode_t mode);
