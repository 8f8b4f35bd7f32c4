// SPDX-License-Identifier: MIT
#include "client/request/pin_conf.h"

#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "client/show/text.h"
#include "client/volume/directory_walk.h"

namespace client {

namespace {

constexpr char kEnding[] = ".conf";
constexpr char kBlanks[] = " \t\r\v\f";
constexpr char kWildcards[] = "*?[\\";
constexpr char kLinkWord[] = "link";

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsThere(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// The text as a pattern that matches itself alone.
std::string Escaped(const std::string& text) {
    std::string pattern;
    for (const char c : text) {
        if (strchr(kWildcards, c) != nullptr) {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

// Links among the directories that stand without a wildcard are followed, as they are in the paths
// of files.
std::string PatternOf(const ConfLine& line) {
    const size_t fixed = line.literal ? std::string::npos : line.path.find_first_of(kWildcards);
    const size_t slash = line.path.rfind('/', fixed);
    std::error_code error;
    const std::string start = line.path.substr(0, std::max<size_t>(slash, 1));
    const std::string resolved = std::filesystem::weakly_canonical(start, error).string();
    const std::string directory = Escaped(error ? start : resolved);
    const std::string rest = line.path.substr(slash + 1);
    return (directory == "/" ? directory : directory + "/") + (line.literal ? Escaped(rest) : rest);
}

// Takes the word away that allows links. Returns whether it was there.
bool TakeLinkWord(std::string& text) {
    const size_t end = text.find_first_of(kBlanks);
    if (end == std::string::npos || text.substr(0, end) != kLinkWord) {
        return false;
    }
    text = Trimmed(text.substr(end));
    return true;
}

// Returns why the line is wrong; empty when it is taken.
std::string TakePath(std::string text, ConfLine& line) {
    line.link = TakeLinkWord(text);
    line.exclusion = !line.link && text[0] == '!';
    if (line.exclusion) {
        text = Trimmed(text.substr(1));
    }
    if (text.empty()) {
        return "\"!\" excludes nothing";
    }
    if (line.exclusion && text.find('/') == std::string::npos) {
        line.path = line.pattern = text;
        return "";
    }
    if (text[0] != '/') {
        return "is no absolute path";
    }
    line.path = std::filesystem::path(text).lexically_normal().string();
    if (line.path.size() > 1 && line.path.back() == '/') {
        line.path.pop_back();
    }
    line.literal = line.path.find_first_of(kWildcards) == std::string::npos || IsThere(line.path);
    line.pattern = PatternOf(line);
    return "";
}

void TakeLine(const std::string& file, const std::string& origin, const std::string& text,
              PinConf& conf) {
    const std::string trimmed = Trimmed(text);
    ConfLine line;
    if (trimmed.empty() || trimmed[0] == '#') {
        return;
    }
    const std::string why =
        trimmed.find('\0') != std::string::npos ? "holds NUL" : TakePath(trimmed, line);
    if (!why.empty()) {
        conf.faults.push_back({origin, "", why});
        return;
    }
    line.file = file;
    line.origin = origin;
    conf.lines.push_back(line);
}

void TakeFile(const std::string& directory, const std::string& file, PinConf& conf) {
    const std::string path = directory + "/" + file;
    std::string text;
    struct stat status = {};
    // A pipe would keep its reader waiting.
    const bool regular = stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
    const int error = regular ? ReadText(path, text) : EINVAL;
    if (error != 0) {
        conf.faults.push_back({path, "", regular ? strerror(error) : "is not a regular file"});
        return;
    }
    std::istringstream stream(text);
    std::string line;
    for (size_t number = 1; std::getline(stream, line); ++number) {
        TakeLine(file, path + ":" + std::to_string(number), line, conf);
    }
}

// Whether the pattern matches the path or a directory above it.
bool Covers(const std::string& pattern, std::string path) {
    for (;;) {
        if (fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME) == 0) {
            return true;
        }
        if (path.size() <= 1) {
            return false;
        }
        path = path.substr(0, std::max<size_t>(path.rfind('/'), 1));
    }
}

}  // namespace

int ReadPinConf(const std::string& directory, PinConf& conf) {
    std::vector<std::string> names;
    struct stat status = {};
    // The directory itself may be a link; its names are listed behind it.
    const std::string top = directory + "/.";
    const int error = stat(top.c_str(), &status) != 0 ? errno : ListNames(top, names);
    if (error != 0) {
        return error;
    }
    for (const std::string& name : names) {
        const size_t ending = name.size() - std::min(name.size(), strlen(kEnding));
        if (name[0] != '.' && name.substr(ending) == kEnding) {
            TakeFile(directory, name, conf);
        }
    }
    return 0;
}

bool IsExcluded(const PinConf& conf, const ConfLine& line, const std::string& path) {
    return std::any_of(conf.lines.begin(), conf.lines.end(), [&](const ConfLine& other) {
        if (!other.exclusion || other.file != line.file) {
            return false;
        }
        return other.pattern[0] == '/'
                   ? Covers(other.pattern, path)
                   : fnmatch(other.pattern.c_str(), NameOf(path).c_str(), 0) == 0;
    });
}

bool IsWanted(const PinConf& conf, const std::string& path) {
    return std::any_of(conf.lines.begin(), conf.lines.end(), [&](const ConfLine& line) {
        return !line.exclusion && Covers(line.pattern, path) && !IsExcluded(conf, line, path);
    });
}

}  // namespace client
