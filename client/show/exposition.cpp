// SPDX-License-Identifier: MIT
#include "client/show/exposition.h"

#include <string.h>

#include <algorithm>

#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

// The format takes UTF-8 alone, so that one odd name would cost the whole file.
std::string LabelValue(const std::string& value) {
    std::string text;
    for (const char c : IsUtf8(value) ? value : Printable(value)) {
        if (c == '\n') {
            text += "\\n";
            continue;
        }
        text += c == '\\' || c == '"' ? "\\" : "";
        text += c;
    }
    return text;
}

std::string LabelsText(const Labels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        text += text.empty() ? "{" : ",";
        text += std::string(name) + "=\"" + LabelValue(value) + "\"";
    }
    return text.empty() ? "" : text + "}";
}

}  // namespace

void Exposition::Add(const Metric& metric, uint64_t value, const Labels& labels) {
    const auto known = std::find_if(
        families_.begin(), families_.end(),
        [&metric](const Family& family) { return strcmp(family.metric.name, metric.name) == 0; });
    Family& family = known != families_.end() ? *known : families_.emplace_back(Family{metric, ""});
    family.samples += metric.name + LabelsText(labels) + " " + std::to_string(value) + "\n";
}

std::string Exposition::Text() const {
    std::string text;
    for (const Family& family : families_) {
        const std::string name = family.metric.name;
        const char* const kind = family.metric.kind == Metric::kCounter ? "counter" : "gauge";
        text.append("# HELP ").append(name).append(" ").append(family.metric.help).append("\n");
        text.append("# TYPE ").append(name).append(" ").append(kind).append("\n");
        text += family.samples;
    }
    return text;
}

}  // namespace client
