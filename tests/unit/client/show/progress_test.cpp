// SPDX-License-Identifier: MIT
// The line of the progress bar.
#include "client/show/progress.h"

#include <gtest/gtest.h>

namespace client {

namespace {

ProgressView View(size_t requests, size_t done, uint64_t bytes, uint64_t bytesDone) {
    ProgressView view;
    view.requests = requests;
    view.requestsDone = done;
    view.bytes = bytes;
    view.bytesDone = bytesDone;
    view.state = "reading";
    return view;
}

TEST(Progress, TheLineTellsShareRateAndRest) {
    const uint64_t mib = 1 << 20;
    EXPECT_EQ(ProgressLine(View(1, 0, 100 * mib, 25 * mib), 25.0 * mib, 100),
              "[#######.......................] 25% 25.0 MiB of 100.0 MiB, 25.0 MiB/s, 0:03 left, "
              "reading");
    EXPECT_EQ(ProgressLine(View(12, 3, 0, 0), 0, 100), "request 4 of 12 reading");
    EXPECT_EQ(ProgressLine(View(2, 2, 100, 100), 10, 100),
              "[##############################] 100% 100 bytes of 100 bytes, request 2 of 2 "
              "reading");
}

TEST(Progress, TheLineTellsHowFarTheRequestIsThatRuns) {
    ProgressView view = View(12, 3, 0, 0);
    view.percent = 40;
    EXPECT_EQ(ProgressLine(view, 0, 100), "request 4 of 12 at 40%, reading");
    view.requests = 1;
    EXPECT_EQ(ProgressLine(view, 0, 100), "reading") << "the share of all says the same";
}

TEST(Progress, TheLineTellsWhatGoesBeforeAndHowLongItTakes) {
    ProgressView view = View(1, 0, 0, 0);
    view.state = "waits for the requests before it";
    view.ahead = 3;
    EXPECT_EQ(ProgressLine(view, 0, 100), "waits for the requests before it: 3");
    view.percent = 40;
    view.aheadSeconds = 71.6;
    EXPECT_EQ(ProgressLine(view, 0, 100),
              "waits for the requests before it: 3, the first at 40%, about 1:12");
}

TEST(Progress, TheLineIsNeverWiderThanTheTerminal) {
    for (size_t columns = 2; columns < 200; ++columns) {
        const std::string line = ProgressLine(View(100, 30, 5ULL << 40, 1ULL << 40), 1e8, columns);
        EXPECT_LT(line.size(), columns);
    }
}

}  // namespace

}  // namespace client
