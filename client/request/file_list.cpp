// SPDX-License-Identifier: MIT
#include "client/request/file_list.h"

#include <errno.h>
#include <glob.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <set>

#include "client/show/output.h"
#include "client/volume/directory_walk.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

// What the walk below one directory passed over.
struct PassedOver {
    size_t empty = 0;
    size_t others = 0;  // no regular files
    size_t mounts = 0;  // directories on other file systems
};

class Collector {
  public:
    Collector(const FileListOptions& options, const std::vector<Volume>& volumes, FileList& list)
        : options_(options), volumes_(volumes), list_(list) {}

    void TakeArgument(const std::string& path);
    void TakePattern(const std::string& pattern);
    bool TakeList(const std::string& path, std::string& why);

  private:
    void TakeFile(const std::string& path, bool named);
    void Walk(const std::string& directory);
    void TakeFound(const WalkEntry& entry, PassedOver& passed);
    void Note(const std::string& directory, const PassedOver& passed);

    const FileListOptions& options_;
    const std::vector<Volume>& volumes_;
    FileList& list_;
    std::set<std::string> seen_;
};

// The service's own file and our own links are taken only when they are named.
bool IsOurs(const FileRef& file) {
    return IsBitmapFile(file) || IsLinkName(PathBelow(file.volume->mountPath, file.path));
}

// Makes of a line of a text the path in it, which may come from an editor of another system; of a
// comment nothing.
void TrimTextLine(std::string& line) {
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    if (!line.empty() && line[0] == '#') {
        line.clear();
    }
}

void Collector::TakeFile(const std::string& path, bool named) {
    FileRef file = {};
    std::string why;
    const bool taken = ExamineFile(path, volumes_, file, why);
    const bool linkable = !taken && CanBeLinked(file);
    if (!taken && !(linkable && options_.link)) {
        why += why == kIsDirectory ? "; -r takes the files below it" : "";
        list_.refusals.push_back({path, why});
        list_.linkable += linkable ? 1 : 0;
    } else if (file.size == 0) {
        list_.refusals.push_back({path,
                                  "is empty: the service would wait a minute for its blocks and "
                                  "then drop the whole request"});
        // Paths are resolved by now, so that two ways to one file are one file.
    } else if ((named || !IsOurs(file)) && seen_.insert(file.path).second) {
        list_.files.push_back(file);
    }
}

void Collector::TakeArgument(const std::string& path) {
    struct stat status = {};
    // A link to a directory is no directory: -r follows none.
    if (options_.recursive && lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        Walk(path);
    } else {
        TakeFile(path, true);
    }
}

void Collector::TakePattern(const std::string& pattern) {
    glob_t found = {};
    // Matches may be directories, or files that are refused: each is an argument like any other.
    const int result = glob(pattern.c_str(), GLOB_BRACE, nullptr, &found);
    const std::unique_ptr<glob_t, decltype(&globfree)> release(&found, globfree);
    if (result == GLOB_NOMATCH) {
        list_.refusals.push_back({pattern, "matches nothing"});
    } else if (result != 0) {
        list_.refusals.push_back({pattern, "cannot be expanded"});
    }
    for (size_t i = 0; result == 0 && i < found.gl_pathc; ++i) {
        TakeArgument(found.gl_pathv[i]);
    }
}

bool Collector::TakeList(const std::string& path, std::string& why) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        if (!file.is_open()) {
            why = "list " + Printable(path) + ": " + strerror(errno);
            return false;
        }
    }
    std::istream& stream = path == "-" ? std::cin : file;
    std::string line;
    while (std::getline(stream, line, options_.nulSeparated ? '\0' : '\n')) {
        // A path ends at NUL: of several in one line only the first would be taken.
        if (line.find('\0') != std::string::npos) {
            why = "list " + Printable(path) + " holds NUL: use -0; nothing was sent";
            return false;
        }
        if (!options_.nulSeparated) {
            TrimTextLine(line);
        }
        // An empty line would be the current directory.
        if (!line.empty()) {
            TakeArgument(line);
        }
    }
    if (stream.bad()) {  // half a list would pass for a whole one
        why = "list " + Printable(path) + " cannot be read";
        return false;
    }
    return true;
}

void Collector::TakeFound(const WalkEntry& entry, PassedOver& passed) {
    if (entry.error != 0) {
        list_.refusals.push_back({entry.path, strerror(entry.error)});
    } else if (!S_ISREG(entry.status.st_mode)) {
        ++passed.others;
        // Nobody named these: they are counted, not refused.
    } else if (entry.status.st_size == 0) {
        ++passed.empty;
    } else {
        TakeFile(entry.path, false);
    }
}

void Collector::Walk(const std::string& directory) {
    PassedOver passed;
    passed.mounts = WalkBelow(directory, [this, &passed](const WalkEntry& entry) {
                        TakeFound(entry, passed);
                    }).size();
    Note(directory, passed);
}

void Collector::Note(const std::string& directory, const PassedOver& passed) {
    std::string text;
    const auto add = [&text](size_t count, const char* one, const char* many) {
        if (count > 0) {
            text += (text.empty() ? "" : ", ") + Counted(count, one, many);
        }
    };
    add(passed.empty, "empty file", "empty files");
    add(passed.others, "entry that is no regular file", "entries that are no regular files");
    add(passed.mounts, "directory on another file system", "directories on other file systems");
    if (!text.empty()) {
        list_.notes.push_back("passed over below " + Printable(directory) + ": " + text);
    }
}

}  // namespace

bool CollectFiles(const FileListOptions& options, const std::vector<Volume>& volumes,
                  FileList& list, std::string& why) {
    Collector collector(options, volumes, list);
    for (const std::string& path : options.paths) {
        if (options.patterns) {
            collector.TakePattern(path);
        } else {
            collector.TakeArgument(path);
        }
    }
    for (const std::string& path : options.lists) {
        if (!collector.TakeList(path, why)) {
            return false;
        }
    }
    return true;
}

}  // namespace client
