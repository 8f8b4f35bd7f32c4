// SPDX-License-Identifier: MIT
#include "client/show/exposition.h"

#include <gtest/gtest.h>

#include <limits>

namespace client {

namespace {

constexpr Metric kFiles = {Metric::kGauge, "lab_files", "Files."};
constexpr Metric kReads = {Metric::kCounter, "lab_reads_total", "Reads."};

TEST(ExpositionTest, NothingIsNoText) {
    EXPECT_EQ(Exposition().Text(), "");
}

TEST(ExpositionTest, SamplesOfAMetricStandTogetherInTheOrderOfTheCalls) {
    Exposition out;
    out.Add(kReads, 3, {{"volume", "/b"}});
    out.Add(kFiles, 0);
    out.Add(kReads, std::numeric_limits<uint64_t>::max(), {{"volume", "/a"}, {"kind", "x"}});
    EXPECT_EQ(out.Text(),
              "# HELP lab_reads_total Reads.\n"
              "# TYPE lab_reads_total counter\n"
              "lab_reads_total{volume=\"/b\"} 3\n"
              "lab_reads_total{volume=\"/a\",kind=\"x\"} 18446744073709551615\n"
              "# HELP lab_files Files.\n"
              "# TYPE lab_files gauge\n"
              "lab_files 0\n");
}

TEST(ExpositionTest, ALabelHoldsAnyBytes) {
    const std::pair<std::string, const char*> rows[] = {
        {"", ""},
        {"/mnt/a b", "/mnt/a b"},
        {"/mnt/\"q\"", "/mnt/\\\"q\\\""},
        {"/mnt/back\\slash", "/mnt/back\\\\slash"},
        {"/mnt/two\nlines", "/mnt/two\\nlines"},
        {"/mnt/{a=\"b\"} 1", "/mnt/{a=\\\"b\\\"} 1"},
        {"/mnt/\xc3\xa4\t", "/mnt/\xc3\xa4\t"},
        {"/mnt/\xff\n", "/mnt/\\\\xff\\\\x0a"},  // no UTF-8: as people see it
    };
    for (const auto& [value, expected] : rows) {
        Exposition out;
        out.Add(kFiles, 1, {{"volume", value}});
        EXPECT_EQ(out.Text(), std::string("# HELP lab_files Files.\n# TYPE lab_files gauge\n"
                                          "lab_files{volume=\"") +
                                  expected + "\"} 1\n");
    }
}

}  // namespace

}  // namespace client
