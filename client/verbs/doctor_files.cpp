// SPDX-License-Identifier: MIT
// The part of the examination that concerns files beside the service: the debug settings and the
// copies of its list.
#include <limits.h>

#include <filesystem>

#include "client/service/config_state.h"
#include "client/service/store_copies.h"
#include "client/show/output.h"
#include "client/show/text.h"
#include "client/verbs/doctor.h"

namespace client {

void ExamineDebugSettings(const std::string& path, std::vector<Finding>& findings) {
    std::string content;
    std::error_code error;
    // Anybody can make it, of any kind and size; the service reads no more than a path of it.
    if (!std::filesystem::is_regular_file(path, error) ||
        std::filesystem::file_size(path, error) > PATH_MAX || ReadText(path, content) != 0) {
        return;
    }
    if (!content.empty() && content.back() == '\n') {
        content.pop_back();
    }
    if (StartsWith(content, "/")) {
        findings.push_back({"debug settings", Health::kBad,
                            Printable(path) + " names " + Printable(content) +
                                ": the service makes the mapping of that file fail",
                            "empty the file " + Printable(path)});
    }
}

void ExamineCopies(const std::string& configPath, const ConfigState& state,
                   std::vector<Finding>& findings) {
    const StoreCopy* most = nullptr;
    std::map<std::string, size_t> lost;
    size_t files = 0;
    const std::vector<StoreCopy> copies = ListCopies(configPath);
    for (const StoreCopy& copy : copies) {
        const std::map<std::string, size_t> missing = FilesNotListed(copy, state);
        const size_t count = Sum(missing);
        // Of equal ones the newest: an older one may have what was unpinned since.
        if (count > files) {
            most = &copy;
            lost = missing;
            files = count;
        }
    }
    if (most == nullptr) {
        return;
    }
    std::string volumes;
    for (const auto& [mountPath, count] : lost) {
        volumes +=
            (volumes.empty() ? "" : ", ") + std::to_string(count) + " on " + Printable(mountPath);
    }
    findings.push_back({"list", Health::kDoubtful,
                        "copy " + std::to_string(most->number) + " of " + TimeText(most->made) +
                            " lists " + Counted(files, "file") +
                            " that the list has not: " + volumes,
                        "if they were not unpinned on purpose, quorcachepinctl restore " +
                            std::to_string(most->number)});
}

}  // namespace client
