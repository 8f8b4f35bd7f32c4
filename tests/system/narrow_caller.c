// SPDX-License-Identifier: MIT
// usage: narrow_caller DEVICE
// A program whose pointers have 4 bytes, on a machine where they have 8: sends the pin bitmap 05
// and one released range (sectors 1000 to 1007) to a cached device. Built with -m32 -nostdlib, as a
// 64-bit machine seldom has a 32-bit C library. Exit status 0 when both were accepted, else a
// step's number.
typedef unsigned int uint32;

enum { kExit = 1, kOpen = 5, kIoctl = 54, kReadWrite = 2 };  // numbers of i386

static int Call(int number, uint32 a, uint32 b, uint32 c) {
    int result;
    __asm__ volatile("int $0x80" : "=a"(result) : "a"(number), "b"(a), "c"(b), "d"(c) : "memory");
    return result;
}

static unsigned char bitmap[1] = {0x05};
static struct {
    const unsigned char* data;
    uint32 size;
} descriptor = {bitmap, sizeof(bitmap)};
static unsigned long long batch[1024] = {1000, 8};

__attribute__((used)) void Run(const uint32* stack) {
    int status = 0;
    int fd = Call(kOpen, stack[2], kReadWrite, 0);  // argc, argv[0], argv[1]

    if (fd < 0) {
        status = 1;
    } else if (Call(kIoctl, (uint32)fd, 0xFECF, (uint32)&descriptor) != 0) {
        status = 2;
    } else if (Call(kIoctl, (uint32)fd, 0xFED0, (uint32)batch) != 0) {
        status = 3;
    }
    Call(kExit, (uint32)status, 0, 0);
    for (;;) {
    }
}

__asm__(".globl _start\n_start: movl %esp, %eax\n pushl %eax\n call Run\n");
