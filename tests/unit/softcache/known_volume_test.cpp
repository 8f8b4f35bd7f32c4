// SPDX-License-Identifier: MIT
#include "softcache/serve/known_volume.h"

#include "softcache/store/cache_files.h"
#include "tests/unit/softcache/served_fixture.h"

namespace softcache {

constexpr size_t kSuperblock = 1024;
constexpr size_t kUuidPlace = kSuperblock + 0x68;
constexpr size_t kPage = 4096;

class KnownVolumeTest : public ServedOnFiles {
  protected:
    KnownVolumeTest() { MakeFileSystem(); }

    // Writes an ext4 file system of this test's onto the device, by the way every write takes.
    void MakeFileSystem() {
        const std::string path = dir_ / "made";
        NewFile(path, Bytes(kServedDeviceSize));
        ASSERT_EQ(system(("mkfs.ext4 -q -F " + path).c_str()), 0);
        made_ = FileBytes(path);
        ASSERT_EQ(served_->Write(made_.data(), made_.size(), 0), 0);
    }

    // The first page with another UUID in it.
    Bytes AnotherPage() const {
        Bytes page(made_.begin(), made_.begin() + kPage);
        page[kUuidPlace] ^= 0xff;
        return page;
    }

    std::string OnTheBacking() const {
        std::string uuid;
        EXPECT_TRUE(ReadBackingUuid(Disk(backing_.get()), uuid));
        return uuid;
    }

    // What a start would find.
    std::string OnTheSsd() const {
        SsdStore store{Disk(ssd_.get())};
        EXPECT_EQ(store.Load(), 1);
        return store.Head().identity.uuid;
    }

    Bytes made_;
};

TEST_F(KnownVolumeTest, AFileSystemIsWrittenDownBeforeItsSyncIsDone) {
    ASSERT_EQ(OnTheBacking().size(), 36U);
    EXPECT_EQ(OnTheSsd(), "");
    EXPECT_EQ(served_->Flush(false), 0);
    EXPECT_EQ(OnTheSsd(), OnTheBacking());

    MakeFileSystem();
    EXPECT_NE(OnTheSsd(), OnTheBacking());
    EXPECT_EQ(served_->Flush(true), 0);
    EXPECT_EQ(OnTheSsd(), OnTheBacking());
}

TEST_F(KnownVolumeTest, ADeviceThatWasEmptiedIsNoVolume) {
    ASSERT_EQ(served_->Flush(false), 0);
    ASSERT_EQ(served_->Allocate(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, kServedDeviceSize),
              0);
    ASSERT_EQ(served_->Flush(false), 0);
    EXPECT_EQ(OnTheSsd(), "");
}

TEST_F(KnownVolumeTest, WhatBearsTheKnownUuidIsLookedAtLater) {
    ASSERT_EQ(served_->Flush(false), 0);
    const std::string before = OnTheSsd();
    Bytes page = AnotherPage();
    std::copy_n(made_.begin() + kUuidPlace, 16, page.begin());
    ASSERT_EQ(served_->Write(page.data(), page.size(), 0), 0);
    ASSERT_EQ(served_->Flush(false), 0);
    EXPECT_EQ(OnTheSsd(), before);
    served_->volume.Settle();
    EXPECT_NE(OnTheSsd(), before);
    EXPECT_EQ(OnTheSsd(), OnTheBacking());
}

TEST_F(KnownVolumeTest, WhatLiesBehindTheBeginningSaysNothing) {
    ASSERT_EQ(served_->Flush(false), 0);
    const std::string before = OnTheSsd();
    const Bytes page = AnotherPage();
    ASSERT_EQ(WriteFull(backing_.get(), page.data(), page.size(), 0), 0);
    ASSERT_EQ(served_->Write(page.data(), page.size(), 128 << 10), 0);
    ASSERT_EQ(served_->Flush(false), 0);
    served_->volume.Settle();
    EXPECT_EQ(OnTheSsd(), before);

    ASSERT_EQ(served_->Write(page.data(), 1, (128 << 10) - 1), 0);
    ASSERT_EQ(served_->Flush(false), 0);
    EXPECT_EQ(OnTheSsd(), OnTheBacking());
    EXPECT_NE(OnTheSsd(), before);
}

TEST_F(KnownVolumeTest, WhatCouldNotBeWrittenDownIsTriedAgain) {
    {
        const FileSizeLimit nothing(0);
        EXPECT_EQ(served_->Flush(false), 0);
    }
    EXPECT_EQ(OnTheSsd(), "");
    EXPECT_EQ(served_->Flush(false), 0);
    EXPECT_EQ(OnTheSsd(), OnTheBacking());
}

}  // namespace softcache
