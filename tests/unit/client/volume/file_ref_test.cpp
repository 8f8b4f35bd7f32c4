// SPDX-License-Identifier: MIT
// Files of several volumes, sorted by volume, and where they lie, as the library answers.
#include "client/volume/file_ref.h"

#include <gtest/gtest.h>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace client {

namespace {

TEST(FileRef, VolumesStandInTheOrderOfTheirFirstFile) {
    const Volume a = {"/mnt/a", ""};
    const Volume b = {"/mnt/b", ""};
    const auto file = [](const Volume& volume, uint32_t inode) {
        return FileRef{&volume, "", "", inode, 0, {{0, 8, inode * uint64_t{100}, 0}}};
    };
    const std::vector<FileRef> files = {file(b, 1), file(a, 2), file(b, 3)};
    const std::vector<VolumeFiles> groups = GroupByVolume(files);
    ASSERT_EQ(groups.size(), 2U);
    EXPECT_EQ(groups[0].volume, &b);
    ASSERT_EQ(groups[0].files.size(), 2U);
    EXPECT_EQ(groups[0].files[0].inode, 1U);
    EXPECT_EQ(groups[0].files[1].inode, 3U);
    EXPECT_EQ(groups[1].volume, &a);
    EXPECT_EQ(groups[1].files.size(), 1U);
    const std::vector<FileMappingEntry> extents = ExtentsOf(groups[0].files);
    ASSERT_EQ(extents.size(), 2U);
    EXPECT_EQ(extents[1].deviceStartSector, 300U);
    EXPECT_TRUE(GroupByVolume({}).empty());
}

class MappingTest : public ClientTest {
  protected:
    // What the library answers for the inode, one answer after the other.
    static void Answer(uint32_t inode, const std::vector<FakeMapping>& answers) {
        g_platform.mappings[inode] = answers;
    }
    static FakeMapping At(uint64_t deviceSector) { return {{{0, 8, deviceSector, 0}}}; }

    // Maps a file of a volume; its extents are the test's.
    MapOutcome Map(Mapper& mapper, const std::string& mountPath, const std::string& relative,
                   uint32_t inode) {
        const Volume volume = {mountPath, ""};
        FileRef file = {&volume, "", relative, inode, 0, extents_};
        const MapOutcome outcome = mapper.Map(file);
        extents_ = file.extents;
        return outcome;
    }

    std::vector<FileMappingEntry> extents_;
};

TEST_F(MappingTest, AFileIsAskedForByItsDirectoryAndInode) {
    Mapper mapper;
    Answer(77, {At(4096)});
    EXPECT_EQ(Map(mapper, mount_, "sub/dir/a", 77), MapOutcome::kMapped);
    ASSERT_EQ(extents_.size(), 1U);
    EXPECT_EQ(extents_[0].deviceStartSector, 4096U);
    EXPECT_EQ(g_platform.calls.back(), "GetMappingTable(" + mount_ + "/sub/dir, 77, 0)");
    Map(mapper, mount_, "a", 77);
    EXPECT_EQ(g_platform.calls.back(), "GetMappingTable(" + mount_ + ", 77, 0)");
}

TEST_F(MappingTest, ADeviceIsMadeOnceAVolume) {
    Mapper mapper;
    Map(mapper, mount_, "a", 1);
    Map(mapper, mount_, "b", 2);
    Map(mapper, "/mnt/other", "a", 1);
    EXPECT_EQ(g_platform.Count("Create"), 2);
    EXPECT_EQ(g_platform.Count("GetDevicePath"), 2);
}

TEST_F(MappingTest, ADeviceThatIsNotFoundIsAFailureAndAskedForOnce) {
    const struct {
        const char* what;
        int result;
        bool creates;
        MapOutcome outcome;
    } rows[] = {
        {"the look-up fails", -1, true, MapOutcome::kFailed},
        {"no device", 1, true, MapOutcome::kFailed},
        {"no object", 0, false, MapOutcome::kFailed},
        {"found", 0, true, MapOutcome::kMapped},
        {"any other result is none of a failure", 2, true, MapOutcome::kMapped},
    };
    Answer(5, {At(8)});
    for (const auto& row : rows) {
        Mapper mapper;
        g_platform.devicePathResult = row.result;
        g_platform.createsDevice = row.creates;
        const int before = g_platform.Count("GetDevicePath");
        EXPECT_EQ(Map(mapper, mount_, "a", 5), row.outcome) << row.what;
        EXPECT_EQ(Map(mapper, mount_, "a", 5), row.outcome) << row.what;
        EXPECT_EQ(g_platform.Count("GetDevicePath"), before + 1) << row.what;
    }
}

TEST_F(MappingTest, AFailedAnswerLeavesTheExtentsAlone) {
    Mapper mapper;
    extents_ = {{0, 1, 2, 0}};
    Answer(5, {{{{0, 8, 16, 0}}, -1}});
    EXPECT_EQ(Map(mapper, mount_, "a", 5), MapOutcome::kFailed);
    EXPECT_EQ(extents_.size(), 1U);
    EXPECT_EQ(extents_[0].deviceStartSector, 2U);
    EXPECT_EQ(Map(mapper, mount_, "a", 6), MapOutcome::kNothing);
    EXPECT_TRUE(extents_.empty());
}

TEST_F(MappingTest, AFileWithoutExtentsIsWrittenOutOnce) {
    Mapper mapper;
    const std::string path = Make("a");
    const uint32_t inode = InodeOf(path);
    Answer(inode, {FakeMapping{}, At(8)});
    EXPECT_EQ(Map(mapper, mount_, "a", inode), MapOutcome::kMapped);
    EXPECT_EQ(CallCount(Call::kFsync), 1);

    Answer(inode, {At(8)});
    EXPECT_EQ(Map(mapper, mount_, "a", inode), MapOutcome::kMapped);
    EXPECT_EQ(CallCount(Call::kFsync), 1) << "it had extents";

    Answer(inode, {FakeMapping{{}, -1}});
    EXPECT_EQ(Map(mapper, mount_, "a", inode), MapOutcome::kFailed);
    EXPECT_EQ(CallCount(Call::kFsync), 1) << "writing out cures no failure";
}

TEST_F(MappingTest, AFileThatCannotBeOpenedIsAskedForAgainAllTheSame) {
    Mapper mapper;
    EXPECT_EQ(Map(mapper, mount_, "nothing", 9), MapOutcome::kNothing);
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 2);
    EXPECT_EQ(CallCount(Call::kFsync), 0);
}

}  // namespace

}  // namespace client
