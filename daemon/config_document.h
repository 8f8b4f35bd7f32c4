// SPDX-License-Identifier: MIT
// The configuration file as a document. Callers hold the service mutex.
//
//   nextRequestNum   the number of the next request; absent or null means 0
//   requestQueue     request numbers as texts, in order of arrival; null when the last one has gone
//   requests         number -> { type, mountPath, data }
//   volumes          mount path -> { files: inode number -> relative path }
#pragma once

#include <json/json.h>
#include <stdint.h>

constexpr char kNextRequestNumKey[] = "nextRequestNum";
constexpr char kRequestQueueKey[] = "requestQueue";
constexpr char kRequestsKey[] = "requests";
constexpr char kVolumesKey[] = "volumes";
constexpr char kFilesKey[] = "files";
constexpr char kTypeKey[] = "type";
constexpr char kMountPathKey[] = "mountPath";
constexpr char kDataKey[] = "data";

// Reads the whole file. Returns 0, or -1 with an error when it cannot be read, is no JSON, or has
// members of another kind than the document's, which the JSON library would not survive.
int ConfigReadDocument(const char* path, Json::Value& document);

// Reads the file and counts its queue (0 when the queue is absent or null). Returns 0, or -1.
int ConfigGetJsonAndNumRequest(const char* path, Json::Value& document, uint32_t& numRequests);
