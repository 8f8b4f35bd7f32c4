// SPDX-License-Identifier: MIT
#include "daemon/service.h"

Service g_service = {0, PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, {}};
