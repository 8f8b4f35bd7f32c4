// SPDX-License-Identifier: MIT
// The server message queue and the key file that publishes it.
#pragma once

// Key file of the server queue: holds the key in decimal, and is itself what the key is made from.
constexpr char kMsgServerKeyPath[] = "/var/run/quorcachepinfile-msg-server.key";

// Room of a queue that the service creates: 1024 request bodies.
constexpr int kMsgQueueNumRequests = 1024;

// Stores the key that the key file holds. Returns 0, or -1 when no line can be read. A line that is
// no number, or none of int's range, raises the standard exception: a corrupt key file is fatal.
int GetMsgKey(int* key, const char* path);

// Creates the queue of the key file, sizes it and writes its key to the file. Returns the queue's
// id, or -1: then the queue existed, could not be made, or could not be sized (it stays in that
// case).
int MsgCreateExclusive(const char* path);

// Creates the queue, or opens the one whose key the key file holds. Returns its id, or -1.
int MsgQueueGet(const char* path);
