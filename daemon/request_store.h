// SPDX-License-Identifier: MIT
// Requests in the configuration file: numbered and added by the receiver, taken away by the worker.
//
// "Config" functions are whole read-change-write sequences and take the service mutex; "Json"
// functions change a caller's document only.
#pragma once

#include <json/json.h>

#include <string>

#include "util/request.h"

// Stores the request under the next number; a missing file is created. Returns 0, or -1 with the
// file unchanged (possibly truncated when it could not be written).
int ConfigAddRequest(const char* path, const Request& request);

// Takes a request that succeeded out of the file and brings the pinned-file list up to date.
// Returns 0; or -1 with nothing written, and then the request stays queued.
int ConfigUpdatedByFinishedRequest(const char* path, const Request& request,
                                   const std::string& number);

// Takes a request that failed out of the file; a failed unpin still takes its files off the
// pinned-file list. Returns 0, or -1 with nothing written.
int ConfigDropErrorRequest(const char* path, const Request& request, const std::string& number);

// Adds the request to the document. Returns 0; or -1, and then the document may be half changed and
// must be thrown away.
int JsonAddRequest(Json::Value& document, const Request& request);

// Takes the request out of the queue and out of the requests. Returns 0, or -1; after a failure in
// the second step the queue stays changed.
int JsonRemoveRequest(Json::Value& document, const std::string& number);

// Rebuilds the array without the text, which must stand in it exactly once; an array that would be
// empty becomes null. Returns 0, or -1 with the array unchanged.
int JsonArrayRemoveString(Json::Value& array, const std::string& text);

// Returns 1 when an element equals the text, else 0; what is no array has no elements.
int JsonArrayHasString(const Json::Value& array, const char* text);
