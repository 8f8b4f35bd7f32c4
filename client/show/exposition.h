// SPDX-License-Identifier: MIT
// Numbers in the text format that Prometheus and its exporters read.
#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

namespace client {

// A metric by its name, which ends in the unit and, of a counter, in "_total".
struct Metric {
    enum Kind { kGauge, kCounter } kind;
    const char* name;
    const char* help;  // one sentence, no backslash, no line break
};

// A label's name, and its value, which may hold any bytes.
using Labels = std::vector<std::pair<const char*, std::string>>;

class Exposition {
  public:
    // Adds a sample. The samples of a metric stand together, below its help and type, whatever the
    // order of the calls; the metrics stand in the order of their first samples.
    void Add(const Metric& metric, uint64_t value, const Labels& labels = {});

    // Returns the text; every line of it is ended.
    std::string Text() const;

  private:
    struct Family {
        Metric metric;
        std::string samples;
    };
    std::vector<Family> families_;
};

}  // namespace client
