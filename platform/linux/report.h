// SPDX-License-Identifier: MIT
// How the platform libraries speak of a failure: one line in the system log, never on standard
// output.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace stand_in {

// The library's own name, which its lines begin with. Each of the four libraries defines it once.
extern const char* const kLibraryName;

// Sends the library's name, ": " and the text to the system log with priority LOG_ERR. Leaves errno
// as it was.
[[gnu::format(printf, 1, 2)]] void Report(const char* format, ...);

// The formatted text, of whatever length.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

// The log lines of one kind of listing, about what it leaves out. Spaces and caches are listed
// several times for each request: a line whose cause lasts for days is logged once, and again only
// when the cause comes back.
class StandingLines {
  public:
    // Takes the lines of a whole listing and reports those that the previous listing did not have.
    void Send(const std::vector<std::string>& lines);

  private:
    std::mutex mutex_;
    std::vector<std::string> previous_;
};

}  // namespace stand_in
