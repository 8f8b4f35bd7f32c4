// SPDX-License-Identifier: MIT
#include "client/request/pace.h"

#include <algorithm>

namespace client {

void Pace::Look(const std::vector<StoredRequest>& queue, double now) {
    std::set<std::string> numbers;
    for (const StoredRequest& request : queue) {
        numbers.insert(request.number);
    }
    const auto left =
        std::count_if(numbers_.begin(), numbers_.end(),
                      [&numbers](const std::string& number) { return numbers.count(number) == 0; });
    if (left > 0) {
        left_ += static_cast<size_t>(left);
        lastLeft_ = now;
    }
    // While nothing is queued nobody works: what comes later is measured from its own begin.
    if (numbers_.empty()) {
        since_ = now - (lastLeft_ - since_);
        lastLeft_ = now;
    }
    numbers_ = std::move(numbers);
    now_ = now;
}

double Pace::SecondsFor(size_t requests) const {
    if (left_ == 0) {
        return 0;
    }
    const double each = (lastLeft_ - since_) / static_cast<double>(left_);
    // The first of them has been at it since the one before it left.
    return std::max(each * static_cast<double>(requests) - (now_ - lastLeft_), 0.0);
}

}  // namespace client
