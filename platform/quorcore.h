// SPDX-License-Identifier: MIT
// libquorcore: the appliance's core library, as far as the service uses it.
#pragma once

#include <stddef.h>

extern "C" {

// Reads the value of `key` from the key=value settings file `file` into `value`, a buffer of `size`
// bytes, NUL-terminated (a longer value is cut). `flags` is 0.
// Returns a positive count when the key was found; 0 when it was not; a negative number when the
// file cannot be read. The buffer is touched only on a positive result.
int QLIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size, int flags);

}  // extern "C"
