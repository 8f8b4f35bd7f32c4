// SPDX-License-Identifier: MIT
// What is to be pinned, as the files of a directory say it: a path, a directory or a pattern a
// line, with "link" before it where links may be made; comments, exclusions. quorcachepin.d(5)
// describes the form.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace client {

constexpr char kPinConfDirectory[] = "/etc/quorcachepin.d";

// A line that names files, or an exclusion.
struct ConfLine {
    std::string file;     // of the directory, without its path: an exclusion holds in its own
    std::string origin;   // "FILE:LINE", for messages
    std::string path;     // absolute and normal as far as text goes; of an exclusion "!" is gone
    std::string pattern;  // the same for fnmatch and glob, its fixed directories resolved
    bool exclusion = false;
    bool link = false;     // files whose names no request can carry are linked
    bool literal = false;  // the path has no wildcard, or exists as it stands
};

// A line or a file that is wrong, or a path that a line leads to and that cannot be taken.
struct ConfFault {
    std::string origin;  // "FILE:LINE", or "FILE"
    std::string path;    // empty when the line or the file as a whole is meant
    std::string reason;
};

struct PinConf {
    std::vector<ConfLine> lines;    // in order of file name and line
    std::vector<ConfFault> faults;  // lines that are wrong, files that cannot be read
};

// Reads the files *.conf of the directory. What is wrong becomes a fault, the rest is taken.
// Returns 0, or the errno with which the directory cannot be read.
int ReadPinConf(const std::string& directory, PinConf& conf);

// Whether an exclusion in the same file as `line` names the path or a directory above it. One
// without a slash is compared with the path's last component. The path must be absolute and
// resolved.
bool IsExcluded(const PinConf& conf, const ConfLine& line, const std::string& path);

// Whether a line names the path or a directory above it, and no exclusion takes it away. Goes by
// names alone, so that it holds for what is not there for the moment.
bool IsWanted(const PinConf& conf, const std::string& path);

}  // namespace client
