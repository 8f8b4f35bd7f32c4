// SPDX-License-Identifier: MIT
#include "client/request/wanted_files.h"

#include <glob.h>
#include <sys/stat.h>

#include <memory>

#include "client/request/file_list.h"
#include "client/show/output.h"
#include "client/volume/expected_mounts.h"

namespace client {

namespace {

// A pattern passes over what a directory's line passes over: links, empty files, what is no file.
bool CanBeMeant(const char* path) {
    struct stat status = {};
    return lstat(path, &status) == 0 &&
           (S_ISDIR(status.st_mode) || (S_ISREG(status.st_mode) && status.st_size > 0));
}

// The paths that a line names: itself, or what its pattern matches.
std::vector<std::string> PathsOf(const ConfLine& line, WantedFiles& wanted) {
    if (line.literal) {
        return {line.path};
    }
    glob_t found = {};
    const int result = glob(line.pattern.c_str(), 0, nullptr, &found);
    const std::unique_ptr<glob_t, decltype(&globfree)> release(&found, globfree);
    if (result == GLOB_NOMATCH) {
        wanted.notes.push_back(Printable(line.origin + ": " + line.path) + " matches nothing");
    } else if (result != 0) {
        wanted.refused.push_back({line.origin, line.path, "cannot be expanded"});
    }
    std::vector<std::string> paths;
    for (size_t i = 0; result == 0 && i < found.gl_pathc; ++i) {
        if (CanBeMeant(found.gl_pathv[i])) {
            paths.emplace_back(found.gl_pathv[i]);
        }
    }
    return paths;
}

void TakeLine(const PinConf& conf, const ConfLine& line, const std::vector<Volume>& volumes,
              WantedFiles& wanted) {
    FileListOptions options;
    FileList list;
    std::string why;  // a list that cannot be read: here is none
    options.recursive = true;
    options.link = line.link;
    options.paths = PathsOf(line, wanted);
    CollectFiles(options, volumes, list, why);
    for (const FileRef& file : list.files) {
        const bool own = !line.literal && IsBitmapFile(file);
        if (!own && !IsExcluded(conf, line, file.path) &&
            wanted.origins.insert({file.path, line.origin}).second) {
            wanted.files.push_back(file);
        }
    }
    for (const Refusal& refusal : list.refusals) {
        if (!IsExcluded(conf, line, refusal.path)) {
            wanted.refused.push_back({line.origin, refusal.path, refusal.reason});
        }
    }
    wanted.notes.insert(wanted.notes.end(), list.notes.begin(), list.notes.end());
}

}  // namespace

WantedFiles FindWanted(const PinConf& conf, const std::vector<std::string>& mountPoints,
                       const std::vector<Volume>& volumes) {
    WantedFiles wanted;
    for (const ConfLine& line : conf.lines) {
        std::string unmounted = FindUnmounted(line.path, mountPoints);
        if (unmounted.empty()) {  // behind a link
            unmounted = FindUnmounted(line.pattern, mountPoints);
        }
        if (line.exclusion) {
            continue;
        }
        if (unmounted.empty()) {
            TakeLine(conf, line, volumes, wanted);
        } else {
            wanted.notMounted.push_back(
                {line.origin, line.path, "its volume " + Printable(unmounted) + " is not mounted"});
        }
    }
    return wanted;
}

}  // namespace client
