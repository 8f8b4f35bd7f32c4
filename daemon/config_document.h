// SPDX-License-Identifier: MIT
// The configuration file as a document, in the form of util/stored_format.h. Callers hold the
// service mutex.
#pragma once

#include <json/json.h>
#include <stdint.h>

// The kind that a value must have where it is used: the JSON library throws on another one. An
// absent or null value is of every kind, and what the library converts is of the kind wanted. Each
// operation checks what it uses and nothing else, so that a member that has gone wrong concerns
// nobody but its users. Returns 0, or -1 with an error that names the member.
int ConfigCheckObject(const Json::Value& value, const char* member);
int ConfigCheckArray(const Json::Value& value, const char* member);
int ConfigCheckText(const Json::Value& value, const char* member);
int ConfigCheckNumber(const Json::Value& value, const char* member);

// Reads the whole file. Returns 0, or -1 with an error when it cannot be read, is no JSON, or is
// something else than an object or null at its top.
int ConfigReadDocument(const char* path, Json::Value& document);

// Reads the file and counts its queue (0 when the queue is absent or null). Returns 0, or -1 with
// an error, also when the queue is no array.
int ConfigGetJsonAndNumRequest(const char* path, Json::Value& document, uint32_t& numRequests);
