// SPDX-License-Identifier: MIT
#include "client/service/store_copies.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/directory_walk.h"
#include "util/stored_format.h"

namespace client {

namespace {

constexpr char kCopyEnding[] = ".copy-";
constexpr char kAsideEnding[] = ".unreadable-";

// The numbers N of the files PATH ENDING N, the highest first.
std::vector<uint64_t> NumbersOf(const std::string& path, const char* ending) {
    std::vector<std::string> names;
    std::vector<uint64_t> numbers;
    const std::string start = NameOf(path) + ending;
    ListNames(DirectoryOf(path), names);
    for (const std::string& name : names) {
        const std::string digits = name.substr(std::min(name.size(), start.size()));
        const bool isNumber = !digits.empty() && digits.size() < 19 && digits[0] != '0' &&
                              digits.find_first_not_of("0123456789") == std::string::npos;
        if (StartsWith(name, start) && isNumber) {
            numbers.push_back(strtoull(digits.c_str(), nullptr, 10));
        }
    }
    std::sort(numbers.rbegin(), numbers.rend());
    return numbers;
}

std::string Numbered(const std::string& path, const char* ending, uint64_t number) {
    return path + ending + std::to_string(number);
}

uint64_t NextNumber(const std::string& path, const char* ending) {
    const std::vector<uint64_t> numbers = NumbersOf(path, ending);
    return numbers.empty() ? 1 : numbers[0] + 1;
}

// The document's lists without those that are empty: a volume that lost its last file may stand
// there or not.
Json::Value ListsOf(const Json::Value& document) {
    Json::Value lists(Json::objectValue);
    const Json::Value& volumes = document[kVolumesKey];
    for (const std::string& mountPath : volumes.getMemberNames()) {
        const Json::Value& files = volumes[mountPath][kFilesKey];
        if (!files.empty()) {
            lists[mountPath][kFilesKey] = files;
        }
    }
    return lists;
}

std::map<std::string, size_t> CountFiles(const Json::Value& lists) {
    std::map<std::string, size_t> counts;
    for (const std::string& mountPath : lists.getMemberNames()) {
        counts[mountPath] = lists[mountPath][kFilesKey].size();
    }
    return counts;
}

// What the copy lists and `now` has lost: a volume's whole list, or more than half of everything.
// That is what a service leaves that met its volumes without their caches.
std::string WhatIsLost(const StoreCopy& copy, const std::map<std::string, size_t>& now) {
    const bool volume =
        std::any_of(copy.volumes.begin(), copy.volumes.end(),
                    [&now](const auto& before) { return now.count(before.first) == 0; });
    return volume || Sum(now) * 2 < copy.files
               ? "lists " + Counted(Sum(now), "file") + " on " + Counted(now.size(), "volume") +
                     ", and listed " + Counted(copy.files, "file") + " on " +
                     Counted(copy.volumes.size(), "volume") + " in copy " +
                     std::to_string(copy.number)
               : "";
}

// Takes away the oldest copies beyond those kept. One that lists more than all others may be the
// only one from before a loss.
void DropOldest(const std::string& path) {
    std::vector<StoreCopy> copies = ListCopies(path);
    while (copies.size() > kCopiesKept) {
        const auto most = std::max_element(
            copies.begin(), copies.end(),
            [](const StoreCopy& left, const StoreCopy& right) { return left.files < right.files; });
        const auto oldest =
            most == std::prev(copies.end()) ? std::prev(most) : std::prev(copies.end());
        unlink(oldest->path.c_str());
        copies.erase(oldest);
    }
}

StoredLists ToStored(const Json::Value& lists) {
    StoredLists stored;
    for (const std::string& mountPath : lists.getMemberNames()) {
        const Json::Value& files = lists[mountPath][kFilesKey];
        for (const std::string& inode : files.getMemberNames()) {
            stored[mountPath].push_back(
                {files[inode].asString(),
                 static_cast<uint32_t>(strtoull(inode.c_str(), nullptr, 10))});
        }
    }
    return stored;
}

// Changes the lists of a store that can be read.
bool ChangeLists(const Json::Value& lists, const Json::Value& document, StoredList& store,
                 std::string& why) {
    KeptCopy kept;
    StoredLists stored = ToStored(lists);
    for (const auto& [mountPath, files] : CountFiles(ListsOf(document))) {
        stored[mountPath];  // what the copy does not list goes
    }
    return KeepCopy(store, kept, why) && store.Replace(stored, why);
}

// Puts the copy into the place of a store that cannot be read, or is not there. The unreadable one
// gets its second name first, so that at no time there is none.
bool TakeThePlace(const StoreCopy& copy, const Json::Value& document, const std::string& path,
                  std::string& aside, std::string& why) {
    const bool there = access(path.c_str(), F_OK) == 0;
    const std::string name = Numbered(path, kAsideEnding, NextNumber(path, kAsideEnding));
    if (there && link(path.c_str(), name.c_str()) != 0) {
        why = Printable(name) + ": " + strerror(errno);
        return false;
    }
    if (!WriteStore(document, there ? path : copy.path, path, why)) {
        unlink(name.c_str());
        return false;
    }
    aside = there ? name : "";
    return true;
}

}  // namespace

size_t Sum(const std::map<std::string, size_t>& counts) {
    size_t sum = 0;
    for (const auto& [mountPath, files] : counts) {
        sum += files;
    }
    return sum;
}

std::map<std::string, size_t> FilesNotListed(const StoreCopy& copy, const ConfigState& now) {
    ConfigState before;
    std::string why;
    std::map<std::string, size_t> lost;
    if (!copy.good || !ReadConfigState(copy.path, before, why)) {
        return lost;
    }
    for (const auto& [mountPath, files] : before.pinned) {
        std::set<uint32_t> inodes;
        std::set<std::string> paths;
        const auto listed = now.pinned.find(mountPath);
        if (listed != now.pinned.end()) {
            for (const StoredFile& file : listed->second) {
                inodes.insert(file.inode);
                paths.insert(file.relative);
            }
        }
        // A repair lets an entry follow to another path, or to another inode.
        const auto count = std::count_if(files.begin(), files.end(), [&](const StoredFile& file) {
            return inodes.count(file.inode) == 0 && paths.count(file.relative) == 0;
        });
        if (count > 0) {
            lost[mountPath] = static_cast<size_t>(count);
        }
    }
    return lost;
}

std::vector<StoreCopy> ListCopies(const std::string& path) {
    std::vector<StoreCopy> copies;
    for (const uint64_t number : NumbersOf(path, kCopyEnding)) {
        StoreCopy copy;
        Json::Value document;
        std::string why;
        struct stat status = {};
        copy.number = number;
        copy.path = Numbered(path, kCopyEnding, number);
        copy.made = stat(copy.path.c_str(), &status) == 0 ? status.st_mtime : 0;
        copy.good = ReadStore(copy.path, document, why);
        if (copy.good) {
            copy.volumes = CountFiles(ListsOf(document));
            copy.files = Sum(copy.volumes);
        }
        copies.push_back(std::move(copy));
    }
    return copies;
}

const StoreCopy* NewestGood(const std::vector<StoreCopy>& copies) {
    const auto good =
        std::find_if(copies.begin(), copies.end(), [](const StoreCopy& copy) { return copy.good; });
    return good == copies.end() ? nullptr : &*good;
}

bool KeepCopy(const StoredList& store, KeptCopy& kept, std::string& why) {
    Json::Value document;
    Json::Value last;
    Json::Value copy(Json::objectValue);
    const std::vector<StoreCopy> copies = ListCopies(store.Path());
    const StoreCopy* const newest = NewestGood(copies);
    if (!ReadStore(store.Path(), document, why) ||
        (newest != nullptr && !ReadStore(newest->path, last, why))) {
        return false;
    }
    const Json::Value lists = ListsOf(document);
    kept = KeptCopy();
    if (lists == ListsOf(last)) {
        return true;
    }
    const uint64_t number = NextNumber(store.Path(), kCopyEnding);
    copy[kVolumesKey] = lists;
    // The numbers go on: a request that is waited for is told from older ones by its number.
    copy[kNextRequestNumKey] = document[kNextRequestNumKey];
    if (!WriteStore(copy, store.Path(), Numbered(store.Path(), kCopyEnding, number), why)) {
        return false;
    }
    kept.number = number;
    kept.lost = newest == nullptr ? "" : WhatIsLost(*newest, CountFiles(lists));
    DropOldest(store.Path());
    return true;
}

bool PutBack(const StoreCopy& copy, StoredList& store, std::string& aside, std::string& why) {
    Json::Value document;
    Json::Value current;
    std::string damaged;
    if (!ReadStore(copy.path, document, why)) {
        return false;
    }
    return ReadStore(store.Path(), current, damaged)
               ? ChangeLists(ListsOf(document), current, store, why)
               : TakeThePlace(copy, document, store.Path(), aside, why);
}

}  // namespace client
