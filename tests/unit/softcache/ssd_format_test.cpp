// SPDX-License-Identifier: MIT
#include "softcache/store/ssd_format.h"

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

SsdHead SomeHead() {
    SsdHead head;
    head.sequence = 0x1122334455667788;
    head.id = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    head.deviceSize = uint64_t{5} << 40;
    head.pinsRoom = PinsRoomFor(head.deviceSize);
    head.slots = 1000;
    head.tableSeed = 0x4e21b7c0;
    head.flags = kStoppedInOrder | kAllocated | kBackingMarked;
    head.backingMark = 0x9f8e7d6c;
    head.identity = {"vol1", "0123-4567", "/data/vol1.img"};
    head.open = {0, 999, 7};
    return head;
}

TEST(SsdFormat, AHeadComesBackAsItWas) {
    const SsdHead head = SomeHead();
    const PageBytes page = EncodeHead(head);
    SsdHead back;
    ASSERT_TRUE(LooksLikeHead(page.data()));
    ASSERT_TRUE(DecodeHead(page.data(), back));
    EXPECT_EQ(back.sequence, head.sequence);
    EXPECT_EQ(back.id, head.id);
    EXPECT_EQ(back.deviceSize, head.deviceSize);
    EXPECT_EQ(back.pinsRoom, head.pinsRoom);
    EXPECT_EQ(back.slots, head.slots);
    EXPECT_EQ(back.tableSeed, head.tableSeed);
    EXPECT_EQ(back.flags, head.flags);
    EXPECT_EQ(back.backingMark, head.backingMark);
    EXPECT_EQ(back.identity.name, "vol1");
    EXPECT_EQ(back.identity.uuid, "0123-4567");
    EXPECT_EQ(back.identity.backing, "/data/vol1.img");
    EXPECT_EQ(back.open, head.open);
}

TEST(SsdFormat, AHeadThatIsNotWholeIsNone) {
    const PageBytes page = EncodeHead(SomeHead());
    for (const size_t byte : {0u, 16u, 20u, 24u, 100u, 511u, 512u, 4095u}) {
        PageBytes torn = page;
        torn[byte] ^= 1;
        SsdHead back;
        EXPECT_FALSE(DecodeHead(torn.data(), back)) << byte;
    }
}

TEST(SsdFormat, FieldsThatAreFullHaveNoTerminator) {
    SsdHead head = SomeHead();
    head.identity.name = std::string(64, 'n');
    head.identity.backing = "/" + std::string(400, 'b');
    head.open.assign(kMostOpen, 3);
    SsdHead back;
    ASSERT_TRUE(DecodeHead(EncodeHead(head).data(), back));
    EXPECT_EQ(back.identity.name, head.identity.name);
    EXPECT_EQ(back.identity.backing, head.identity.backing.substr(0, 288)) << "cut";
    EXPECT_EQ(back.open, head.open);
}

// The example of docs/formats.md.
TEST(SsdFormat, ASectorOfTheTableByteByByte) {
    std::vector<TableEntry> lines(kPageEntries);
    lines[0] = {9, 1};
    lines[1] = {2, 2};
    const PageBytes page = EncodeTablePage(0x4e21b7c0, 0, lines.data());
    const Bytes expected = {0x13, 0x3a, 0x47, 0x1f, 0xc0, 0xb7, 0x21, 0x4e, 9,    0,    0,   0,
                            1,    0,    0,    0,    2,    0,    0,    0,    2,    0,    0,   0,
                            0xff, 0xff, 0xff, 0xff, 0,    0,    0,    0,    0xff, 0xff, 0xff};
    EXPECT_EQ(Bytes(page.begin(), page.begin() + static_cast<ptrdiff_t>(expected.size())),
              expected);
}

TEST(SsdFormat, ASectorThatIsNotWholeCostsItsOwnLinesAlone) {
    std::vector<TableEntry> lines(kPageEntries);
    for (uint32_t i = 0; i < kPageEntries; ++i) {
        lines[i] = {i, i + 5};
    }
    PageBytes page = EncodeTablePage(7, 3, lines.data());
    page[2 * kTableSectorBytes + 100] ^= 1;
    std::vector<TableEntry> back(kPageEntries);
    EXPECT_EQ(DecodeTablePage(7, 3, page.data(), back.data()), 1u);
    for (uint32_t i = 0; i < kPageEntries; ++i) {
        const bool lost = i / kSectorEntries == 2;
        ASSERT_EQ(back[i].unit, lost ? kNoUnit : i);
        ASSERT_EQ(back[i].lastUse, lost ? 0 : i + 5);
    }
    EXPECT_EQ(DecodeTablePage(8, 3, page.data(), back.data()), 8u) << "another seed";
    EXPECT_EQ(DecodeTablePage(7, 4, page.data(), back.data()), 8u) << "another place";
    EXPECT_EQ(back[0].unit, kNoUnit);
}

TEST(SsdFormat, PinsAreTheCachesOwnAndWhole) {
    const SsdHead head = SomeHead();
    const Bytes bitmap = RandomBytes(5000, 1);
    Bytes bytes = EncodePins(head, 12, bitmap);
    EXPECT_EQ(bytes.size() % kPageBytes, 0u);
    PinsHeader pins;
    ASSERT_TRUE(DecodePinsHeader(head, bytes.data(), pins));
    EXPECT_EQ(pins.sequence, 12u);
    EXPECT_EQ(pins.length, 5000u);
    EXPECT_TRUE(PinsAreWhole(pins, bytes.data()));
    bytes[kPinsHeaderBytes + 4999] ^= 1;
    EXPECT_FALSE(PinsAreWhole(pins, bytes.data()));
    SsdHead other = head;
    other.id[0] ^= 1;
    EXPECT_FALSE(DecodePinsHeader(other, bytes.data(), pins));
    other = head;
    other.pinsRoom = 5000;
    EXPECT_FALSE(DecodePinsHeader(other, bytes.data(), pins)) << "longer than there is room";
}

TEST(SsdFormat, SlotsThatFitFillAnSsdAndNoMore) {
    const uint64_t device = uint64_t{1} << 40;
    EXPECT_EQ(SlotsThatFit(0, device), 0u);
    EXPECT_EQ(SlotsThatFit(1 << 20, device), 0u);
    for (const uint64_t bytes :
         {uint64_t{17} << 20, uint64_t{1000000007}, uint64_t{64} << 30, uint64_t{4} << 40}) {
        SsdHead head;
        head.pinsRoom = PinsRoomFor(device);
        head.slots = SlotsThatFit(bytes, device);
        EXPECT_LE(SsdBytes(head), bytes);
        ++head.slots;
        EXPECT_GT(SsdBytes(head), bytes) << "not one more";
    }
}

}  // namespace
}  // namespace softcache
