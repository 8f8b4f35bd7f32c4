// SPDX-License-Identifier: MIT
#include "tests/unit/support/queue_space.h"

#include <linux/capability.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>

namespace {

constexpr char kByteLimitPath[] = "/proc/sys/kernel/msgmnb";
// More than the service asks for: a queue that it did not size shows.
constexpr long kRoomyQueueBytes = 1576960 + 4096;

}  // namespace

bool EnterQueueSpace(bool roomy) {
    if (unshare(CLONE_NEWIPC) != 0) {
        return false;
    }
    if (!roomy) {
        return true;
    }
    std::ofstream limit(kByteLimitPath);
    limit << kRoomyQueueBytes << std::flush;
    return limit.good() && QueueSpaceByteLimit() == kRoomyQueueBytes;
}

long QueueSpaceByteLimit() {
    long bytes = -1;
    std::ifstream(kByteLimitPath) >> bytes;
    return bytes;
}

int QueuesInSpace() {
    struct msginfo info = {};
    // The call takes the information record in the place of a queue's.
    if (msgctl(0, MSG_INFO, reinterpret_cast<struct msqid_ds*>(&info)) == -1) {
        return -1;
    }
    return info.msgpool;
}

bool MaySizeAnyQueue() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};

    if (syscall(SYS_capget, &header, data) != 0) {
        return false;
    }
    return (data[0].effective >> CAP_SYS_RESOURCE & 1) != 0;
}
