// SPDX-License-Identifier: MIT
// The request record, its types, and the message that carries it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

enum RequestType : int32_t {
    kRequestUnknown = 0,
    kRequestPinFiles = 1,
    kRequestUnpinFiles = 2,
    kRequestAck = 3,
    kRequestAddPendingSpace = 4,
    kRequestRemovePendingSpace = 5,
    kRequestReloadPinBlocks = 6,
};

// Zero-filled before use; both texts are NUL-terminated.
struct Request {
    int32_t type;         // a RequestType
    char mountPath[512];  // mount path of the volume
    char data[1024];      // pin and unpin: the file list; otherwise unused
};

// The queue message: `mtype` is the message queue's own word, the body is a Request.
struct RequestMsg {
    long mtype;  // kRequestMsgType
    Request body;
};

constexpr long kRequestMsgType = 1;

static_assert(sizeof(Request) == 1540, "a request is 1540 bytes");
static_assert(offsetof(Request, mountPath) == 4, "Request::mountPath");
static_assert(offsetof(Request, data) == 516, "Request::data");
static_assert(offsetof(RequestMsg, body) == sizeof(long), "the body follows the message type");
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(RequestMsg) == 1544, "a request message is 1544 bytes");
static_assert(offsetof(RequestMsg, body.mountPath) == 8, "RequestMsg mountPath");
static_assert(offsetof(RequestMsg, body.data) == 520, "RequestMsg data");
#endif

// Whether the request is about files, which its data names: pin and unpin.
bool RequestHasFiles(const Request& request);

// Returns the type's name, a static text, or null with an error when there is no such type.
const char* RequestTypeToString(int type);

// Returns the type of that name, 0 when there is none. Names are case-sensitive.
int StringToRequestType(const std::string& text);
