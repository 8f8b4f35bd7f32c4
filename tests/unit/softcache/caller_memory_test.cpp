// SPDX-License-Identifier: MIT
#include "softcache/serve/caller_memory.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace softcache {
namespace {

constexpr unsigned kOwnPointer = sizeof(void*);

uint64_t Address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

TEST(CallerMemory, ReadsAndWritesAnotherProcess) {
    auto* shared = static_cast<char*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(shared, MAP_FAILED);
    strcpy(shared, "parent");
    int wake[2];
    int tell[2];
    ASSERT_EQ(pipe(wake), 0);
    ASSERT_EQ(pipe(tell), 0);
    const pid_t child = fork();
    if (child == 0) {
        strcpy(shared, "child");
        char byte = 'r';
        if (write(tell[1], &byte, 1) != 1 || read(wake[0], &byte, 1) != 1) {
            _exit(2);
        }
        _exit(strcmp(shared, "from outside") == 0 ? 0 : 1);
    }
    char byte;
    ASSERT_EQ(read(tell[0], &byte, 1), 1);
    const Caller caller = {child, kOwnPointer};
    char text[16] = {};
    EXPECT_EQ(ReadCaller(caller, Address(shared), text, 6), 0);
    EXPECT_STREQ(text, "child");
    EXPECT_EQ(WriteCaller(caller, Address(shared), "from outside", 13), 0);
    ASSERT_EQ(write(wake[1], &byte, 1), 1);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_STREQ(shared, "parent");
    EXPECT_EQ(ReadCaller(caller, Address(shared), text, 6), -EFAULT) << "a caller that is gone";
    munmap(shared, 4096);
    for (const int fd : {wake[0], wake[1], tell[0], tell[1]}) {
        close(fd);
    }
}

TEST(CallerMemory, MemoryThatIsNotThereToTheLastByteIsAFault) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* pages = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
    const Caller caller = {getpid(), kOwnPointer};
    char bytes[32];
    EXPECT_EQ(ReadCaller(caller, Address(pages + page - 16), bytes, 16), 0);
    EXPECT_EQ(ReadCaller(caller, Address(pages + page - 16), bytes, 17), -EFAULT);
    EXPECT_EQ(WriteCaller(caller, Address(pages + page - 16), bytes, 17), -EFAULT);
    EXPECT_EQ(ReadCaller(caller, 0, bytes, 1), -EFAULT);
    EXPECT_EQ(ReadCaller(caller, 0, bytes, 0), 0) << "nothing is always there";
    EXPECT_EQ(WriteCaller(caller, Address("constant"), bytes, 1), -EFAULT);
    munmap(pages, 2 * page);
}

TEST(CallerMemory, ACallerOutOfSightOrOutOfReachIsAFault) {
    char byte = 0;
    EXPECT_EQ(ReadCaller({0, kOwnPointer}, Address(&byte), &byte, 1), -EFAULT);
    EXPECT_EQ(WriteCaller({0, kOwnPointer}, Address(&byte), &byte, 1), -EFAULT);
    if (sizeof(void*) == 4) {
        EXPECT_EQ(ReadCaller({getpid(), 8}, Address(&byte), &byte, 1), -EFAULT);
    }
}

TEST(BitmapDescriptor, IsReadInTheCallersPointerWidth) {
    const uint8_t raw[] = {0x78, 0x56, 0x34, 0x92, 0x10, 0x32, 0x54, 0x76, 0xAA, 0xBB, 0xCC, 0xDD};
    static_assert(DescriptorBytes(4) == 8 && DescriptorBytes(8) == 12);
    static_assert(DescriptorBytes(8) == kMaxDescriptorBytes);

    const BitmapDescriptor narrow = ParseDescriptor(raw, 4);
    EXPECT_EQ(narrow.address, 0x92345678u) << "not extended by its sign";
    EXPECT_EQ(narrow.bytes, 0x76543210u);

    const BitmapDescriptor wide = ParseDescriptor(raw, 8);
    EXPECT_EQ(wide.address, 0x7654321092345678u);
    EXPECT_EQ(wide.bytes, 0xDDCCBBAAu);
}

TEST(BitmapDescriptor, IsWhatACallerOfThisWidthHasInMemory) {
    const struct {
        const void* data;
        uint32_t size;
    } record = {"bitmap", 7};
    uint8_t raw[kMaxDescriptorBytes];
    memcpy(raw, &record, DescriptorBytes(kOwnPointer));
    const BitmapDescriptor descriptor = ParseDescriptor(raw, kOwnPointer);
    EXPECT_EQ(descriptor.address, Address(record.data));
    EXPECT_EQ(descriptor.bytes, 7u);
}

TEST(UnpinBatch, EndsAtTheFirstAllZeroEntry) {
    UnpinRange batch[kUnpinBatchEntries] = {};
    const auto parse = [&] { return ParseUnpinBatch(reinterpret_cast<const uint8_t*>(batch)); };
    EXPECT_TRUE(parse().empty());

    batch[0] = {1000, 8};
    batch[1] = {0, 300};  // starts at the device's beginning
    batch[2] = {7, 0};    // empty, but not all zero
    batch[4] = {1, 1};    // behind the end
    const std::vector<UnpinRange> ranges = parse();
    ASSERT_EQ(ranges.size(), 3u);
    EXPECT_EQ(ranges[0].startSector, 1000u);
    EXPECT_EQ(ranges[0].numSectors, 8u);
    EXPECT_EQ(ranges[1].numSectors, 300u);
    EXPECT_EQ(ranges[2].startSector, 7u);

    for (UnpinRange& range : batch) {
        range = {UINT64_MAX, UINT64_MAX};
    }
    EXPECT_EQ(parse().size(), kUnpinBatchEntries);
}

}  // namespace
}  // namespace softcache
