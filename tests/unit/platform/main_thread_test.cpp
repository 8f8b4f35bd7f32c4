// SPDX-License-Identifier: MIT
// The libraries in a process whose main thread has ended: the service's worker finishes what is
// stored after intake has stopped.
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <thread>

#include "platform/quordataverifier.h"
#include "tests/unit/platform/registry_fixture.h"

namespace {

constexpr char kUuid[] = "0a0a0a0a-1111-4222-8333-0123456789ab";

// Returns once the process has no main thread any more.
void WaitForTheMainThreadsEnd() {
    const std::string path = "/proc/" + std::to_string(getpid()) + "/stat";
    for (std::string text; text.find(") Z ") == std::string::npos;) {
        std::getline(std::ifstream(path), text);
        std::this_thread::yield();
    }
}

// Runs the question in a child process, in a thread that is the last one, and returns the answer.
template <typename Question>
std::string AnswerWithoutMainThread(Question question) {
    int ends[2] = {};
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        ClearLog();
        new std::thread([&] {
            WaitForTheMainThreadsEnd();
            std::string answer = question();
            for (const std::string& line : LogLines()) {
                answer += "\n" + line;
            }
            _exit(write(ends[1], answer.data(), answer.size()) < 0 ? 1 : 0);
        });
        syscall(SYS_exit, 0);  // of this thread alone; its stack stays
    }
    close(ends[1]);
    std::string answer;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    close(ends[0]);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return answer;
}

class MainThreadTest : public RegistryTest {
  protected:
    void SetUp() override {
        RegistryTest::SetUp();
        if (!IsSkipped()) {
            image_ = MakeImage("ext4", "a.img", {"-U", kUuid});
            volume_ = MountImage(image_, "volume");
            WriteFile(volume_ + "/file", std::string(100000, 'x'));
            RunProgram({"sync", volume_ + "/file"});
            SpaceOf(volume_);  // has said by now what there is to say of the machine's own volumes
        }
    }

    static std::string SpaceOf(const std::string& mountPoint) {
        SpaceInfo* list = nullptr;
        if (QUORSpaceInfoEnum(1, &list) != 0) {
            return "failed";
        }
        std::string uuid = "none";
        for (const SpaceInfo* space = list; space != nullptr; space = space->next) {
            if (mountPoint == space->referencePath) {
                const std::unique_ptr<char, decltype(&free)> text(QUORSpaceUUIDGet(space), free);
                uuid = text.get();
            }
        }
        QUORSpaceInfoFree(list);
        return uuid;
    }

    std::string image_;
    std::string volume_;
};

TEST_F(MainThreadTest, SpacesAndTheirUuidsAreListed) {
    EXPECT_EQ(AnswerWithoutMainThread([&] { return SpaceOf(volume_); }), kUuid);
}

TEST_F(MainThreadTest, TheCacheOfASpaceIsFound) {
    const LivingEntry cache("vol1", EntryText("/ssd", image_));
    EXPECT_EQ(AnswerWithoutMainThread([&] {
                  FlashCacheConfigQuery query = {};
                  query.selector = FLASH_CACHE_CONFIG_BY_SPACE_UUID;
                  query.spaceUuid = kUuid;
                  FlashCacheConfig* config = nullptr;
                  const int result = QUORFlashCacheConfigTmpGet(&query, &config);
                  return config == nullptr ? "= " + std::to_string(result)
                                           : config->ssdPath + (" " + StatOf("/ssd"));
              }),
              "/ssd 1 1");
}

TEST_F(MainThreadTest, AFileIsMapped) {
    const uint64_t inode = InodeOf(volume_ + "/file");
    EXPECT_EQ(
        AnswerWithoutMainThread([&] {
            std::string device;
            if (FileSystemDevice::GetDevicePath(volume_ + "/file", device, false) != 0) {
                return std::string("no device");
            }
            const std::unique_ptr<FileSystemDevice> mapper(FileSystemDeviceCreater::Create(device));
            FileMappingTable table;
            if (!mapper || mapper->GetMappingTable(volume_, inode, 0, table) != 0) {
                return std::string("not mapped");
            }
            return std::to_string(table.fileSize);
        }),
        "100000");
}

}  // namespace
