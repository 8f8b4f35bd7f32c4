// SPDX-License-Identifier: MIT
// Requests in the configuration file: the receiver numbers and adds them, the worker removes them.
//
// A "Config" function reads, changes and writes the file, holding the service mutex throughout. A
// "Json" function changes the caller's document and nothing else.
#pragma once

#include <json/json.h>

#include <string>

#include "util/request.h"

// Stores the request under the next number, creating a missing file. Returns 0, or -1 with the file
// unchanged; a write that failed may have truncated it.
int ConfigAddRequest(const char* path, const Request& request);

// Removes a request that succeeded, and brings the pinned-file list up to date. Returns 0, or -1
// with nothing written: the request then stays queued.
int ConfigUpdatedByFinishedRequest(const char* path, const Request& request,
                                   const std::string& number);

// Removes a request that failed. A failed unpin still takes its files off the pinned-file list.
// Returns 0, or -1 with nothing written.
int ConfigDropErrorRequest(const char* path, const Request& request, const std::string& number);

// Adds the request to the document. Returns 0, or -1 with the document possibly half changed: throw
// it away.
int JsonAddRequest(Json::Value& document, const Request& request);

// Removes the request from the queue, then from the requests. Returns 0 or -1; when the second step
// fails, the queue stays changed.
int JsonRemoveRequest(Json::Value& document, const std::string& number);

// Rebuilds the array without the text, which it must hold exactly once. An array left empty becomes
// null. Returns 0, or -1 with the array unchanged.
int JsonArrayRemoveString(Json::Value& array, const std::string& text);

// Returns 1 when an element equals the text, else 0. A value that is no array has no elements.
int JsonArrayHasString(const Json::Value& array, const char* text);
