// SPDX-License-Identifier: MIT
// Real message queues that nobody else sees.
#pragma once

// Puts the calling thread, and the threads it makes later, into a new and empty IPC namespace whose
// byte limit of a queue (kernel.msgmnb) is raised above what the service asks for when `roomy`, and
// left at the system's default otherwise. Returns false, with errno, when this is not permitted.
bool EnterQueueSpace(bool roomy);

// Byte limit of a queue of the namespace, or -1.
long QueueSpaceByteLimit();

// Queues that exist in the namespace.
int QueuesInSpace();

// True when this process may size queues past the namespace's limit.
bool MaySizeAnyQueue();
