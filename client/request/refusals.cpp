// SPDX-License-Identifier: MIT
#include "client/request/refusals.h"

#include <map>

#include "client/show/output.h"

namespace client {

constexpr size_t kMostNamed = 3;  // paths with the same reason, a line each

std::string FirstOf(const std::string& path, size_t count) {
    return Printable(path) + (count > 1 ? " and " + std::to_string(count - 1) + " more" : "");
}

void SayRefused(const char* what, const std::vector<Refusal>& refusals) {
    std::map<std::string, size_t> left;  // paths not told of, by reason
    for (const Refusal& refusal : refusals) {
        ++left[refusal.reason];
    }
    for (const Refusal& refusal : refusals) {
        size_t& alike = left[refusal.reason];
        const size_t told = alike > kMostNamed ? alike : 1;
        if (alike == 0) {
            continue;
        }
        Say(TonedError(Tone::kBad, what) + " " + FirstOf(refusal.path, told) + ": " +
            refusal.reason);
        alike = told > 1 ? 0 : alike;
    }
}

}  // namespace client
