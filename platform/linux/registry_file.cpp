// SPDX-License-Identifier: MIT
#include "platform/linux/registry_file.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <sys/file.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "platform/linux/small_file.h"

namespace stand_in {

namespace {

constexpr int kRegistryVersion = 1;
constexpr std::string_view kEntryEnding = ".json";

// The first thing wrong with the document, or null when it has all that an entry needs.
const char* WhatIsWrong(const Json::Value& document) {
    if (!document.isObject()) {
        return "not an object";
    }
    const Json::Value& version = document["version"];
    if (!version.isInt() || version.asInt() != kRegistryVersion) {
        return "its version is not 1";
    }
    for (const char* const member : {"ssd", "device"}) {
        const Json::Value& path = document[member];
        if (!path.isString() || path.asString().empty() || path.asString().front() != '/' ||
            path.asString().find('\0') != std::string::npos) {
            return "\"ssd\" and \"device\" must be absolute paths";
        }
    }
    if (!document["state"].isInt() || !document["supportPin"].isInt()) {
        return "\"state\" and \"supportPin\" must be integers";
    }
    return nullptr;
}

// Whether somebody keeps the lock file locked. What is had for a moment is given back.
Life AskLock(int lock) {
    if (flock(lock, LOCK_SH | LOCK_NB) == 0) {
        flock(lock, LOCK_UN);
        return Life::kGone;
    }
    return errno == EWOULDBLOCK ? Life::kLives : Life::kUnknown;
}

}  // namespace

bool IsRegistryEntryName(const std::string& name) {
    const size_t end = kEntryEnding.size();
    return name.size() > end && name.front() != '.' &&
           name.compare(name.size() - end, end, kEntryEnding) == 0;
}

bool ReadRegistryEntry(const std::string& path, std::string& content) {
    const UniqueFd file(OpenSmallFile(path, O_NOFOLLOW));
    return file.Valid() && ReadSmallFile(file.Get(), content);
}

bool IsNoRegistryEntry(int error) {
    return error == ELOOP || error == EINVAL || error == EFBIG;
}

std::string ParseRegistryEntry(const std::string& content, CacheEntry& cache) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    std::string error;
    bool parsed = false;
    try {  // deep nesting is reported by an exception
        parsed = reader->parse(content.data(), content.data() + content.size(), &document, &error);
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    if (!parsed) {
        std::replace(error.begin(), error.end(), '\n', ' ');
        return error;
    }
    if (const char* const wrong = WhatIsWrong(document)) {
        return wrong;
    }
    const Json::Value& entry = document;
    cache = {entry["ssd"].asString(), entry["device"].asString(), entry["state"].asInt(),
             entry["supportPin"].asInt()};
    return "";
}

RegistryLock::RegistryLock(const std::string& entryPath, Patience& patience)
    : path_(entryPath.substr(0, entryPath.size() - kEntryEnding.size()) + ".lock") {
    if (!patience.Try([&] {
            file_.Reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
            return file_.Valid();
        })) {
        life_ = errno == ENOENT ? Life::kGone : Life::kUnknown;
        return;
    }
    patience.Try([&] {
        life_ = AskLock(file_.Get());
        return life_ != Life::kUnknown;
    });
}

bool RegistryLock::SaysTheSame() const {
    return AskLock(file_.Get()) == life_;
}

}  // namespace stand_in
