// SPDX-License-Identifier: MIT
#include "softcache/store/examination.h"

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

TEST(IsSameVolume, Table) {
    const SsdIdentity here = {"vol1", "u-1", "/dev/sdb"};
    const struct {
        const char* why;
        SsdIdentity held;
        SsdIdentity wanted;
        bool same;
    } rows[] = {
        {"the same", here, here, true},
        {"devices change their names", {"vol1", "u-1", "/dev/sdc"}, here, true},
        {"a cache may be renamed", {"vol9", "u-1", "/dev/sdb"}, here, true},
        {"another file system at the same place", {"vol1", "u-2", "/dev/sdb"}, here, false},
        {"made before there was a file system", {"vol1", "", "/dev/sdb"}, here, true},
        {"the same, of another backing", {"vol1", "", "/dev/sdc"}, here, false},
        {"the same, of another cache", {"vol2", "", "/dev/sdb"}, here, false},
        {"the file system has gone", here, {"vol1", "", "/dev/sdb"}, true},
        {"an empty disk elsewhere", here, {"vol1", "", "/dev/sdc"}, false},
        {"a path that was cut",
         {"v", "", "/" + std::string(287, 'x')},
         {"v", "", "/" + std::string(500, 'x')},
         true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(IsSameVolume(row.held, row.wanted), row.same) << row.why;
    }
}

TEST(ExamineSsd, NothingAnybodyCouldMissIsEmpty) {
    const TempDir dir;
    const struct {
        const char* why;
        Bytes content;
        SsdKind kind;
    } rows[] = {
        {"new", {}, SsdKind::kEmpty},
        {"zeros", Bytes(3 << 20, 0), SsdKind::kEmpty},
        {"a short file of zeros", Bytes(100, 0), SsdKind::kEmpty},
        {"data", Bytes(100, 1), SsdKind::kElse},
        {"one byte that is none", RandomBytes(1 << 20, 3), SsdKind::kElse},
    };
    for (const auto& row : rows) {
        const OwnedFd file = NewFile(dir / "s", row.content);
        SsdStore store{Disk(file.get())};
        Examination result;
        EXPECT_EQ(ExamineSsd(store, {"vol1", "", "/b"}, result), "") << row.why;
        EXPECT_EQ(result.kind, row.kind) << row.why;
    }
}

TEST(ExamineSsd, ACacheIsKnownByItsHead) {
    const TempDir dir;
    const OwnedFd file = NewFile(dir / "s", Bytes(4 << 20, 0));
    SsdStore store{Disk(file.get())};
    ASSERT_EQ(store.Format({"vol1", "u-1", "/b"}, 1 << 20, 8, 0), 0);
    SsdStore again{Disk(file.get())};
    Examination result;
    EXPECT_EQ(ExamineSsd(again, {"vol1", "u-1", "/b"}, result), "");
    EXPECT_EQ(result.kind, SsdKind::kOurs);
    EXPECT_EQ(ExamineSsd(again, {"vol1", "u-2", "/b"}, result), "");
    EXPECT_EQ(result.kind, SsdKind::kElse);
    EXPECT_EQ(result.found, "holds the cache vol1 of /b, UUID u-1");
    std::string uuid;
    EXPECT_EQ(ExamineBacking(file.get(), uuid), "is the SSD of the cache vol1 of /b, UUID u-1");
}

}  // namespace
}  // namespace softcache
