// SPDX-License-Identifier: MIT
// Taking entries off the service's list for unpin: links are made, requests for them are sent with
// the others, and the links are removed as soon as those requests are stored.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/request/follow.h"
#include "client/request/stale_entries.h"

namespace client {

class StaleRelease {
  public:
    StaleRelease() = default;
    ~StaleRelease();
    StaleRelease(const StaleRelease&) = delete;
    StaleRelease& operator=(const StaleRelease&) = delete;

    // Makes the links, which live as long as this. Returns false, with the reason in `why`.
    bool Prepare(const std::vector<StaleEntry>& entries, std::string& why);

    // The requests that take the entries off.
    const std::vector<Message>& Messages() const { return messages_; }

    // Waits until the service has stored those of the requests that name links, as it does within
    // moments. Returns kExitDone, or the exit status of what ended the wait.
    int WaitUntilStored(std::vector<Watched>& requests, const std::string& configPath, int64_t base,
                        unsigned seconds) const;

    // Lets the links stay that a request not yet stored names, and says so.
    void Settle(const std::vector<Watched>& requests);

  private:
    bool Waits(const StaleEntryLinks& links, const std::vector<Watched>& requests) const;
    bool AnyWaits(const std::vector<Watched>& requests) const;

    std::vector<std::unique_ptr<StaleEntryLinks>> links_;
    std::vector<Message> messages_;
};

// Whether a service is there that would store a request now.
bool IntakeWorks();

// The entries that are still on the list.
std::vector<StaleEntry> StillListed(const ConfigState& state,
                                    const std::vector<StaleEntry>& entries);

}  // namespace client
