// SPDX-License-Identifier: MIT
// Packing files into messages, against random names and mount paths.
#include "client/request/packing.h"

#include <gtest/gtest.h>
#include <string.h>

#include <map>
#include <random>
#include <sstream>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

constexpr size_t kMost = 1023;  // characters of a list, as sent and as stored

std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> parts;
    std::istringstream stream(list);
    for (std::string part; std::getline(stream, part, ';');) {
        parts.push_back(part);
    }
    return parts;
}

FileRef FileOf(const Volume& volume, const std::string& relative, uint32_t inode) {
    return {&volume, volume.mountPath + "/" + relative, relative, inode, 1, {}};
}

class RandomFiles {
  public:
    explicit RandomFiles(unsigned seed) : random_(seed) {}

    size_t Number(size_t least, size_t most) {
        return std::uniform_int_distribution<size_t>(least, most)(random_);
    }
    std::string Path(size_t length) {
        std::string path;
        while (path.size() < length) {
            const bool slash = !path.empty() && path.back() != '/' && path.size() + 1 < length;
            path += slash && Number(0, 15) == 0 ? '/' : static_cast<char>('a' + Number(0, 25));
        }
        return path;
    }
    // Short ones mostly, and now and then one as long as the service takes.
    std::string Relative(size_t most) {
        const size_t longest = Number(0, 9) == 0 ? most : std::min<size_t>(most, 40);
        return Path(Number(1, longest));
    }

  private:
    std::mt19937 random_;
};

// All files of the messages, in order, by volume; checks each message on the way.
std::map<std::string, std::vector<std::string>> Unpack(const std::vector<Message>& messages) {
    std::map<std::string, std::vector<std::string>> files;
    for (const Message& message : messages) {
        const std::vector<std::string> paths = Split(message.data);
        const std::vector<std::string> entries = Split(message.stored);
        EXPECT_LE(message.data.size(), kMost);
        EXPECT_LE(message.stored.size(), kMost);
        EXPECT_GT(message.numFiles, 0U);
        EXPECT_EQ(paths.size(), message.numFiles);
        EXPECT_EQ(entries.size(), message.numFiles);
        for (size_t i = 0; i < paths.size() && i < entries.size(); ++i) {
            const std::string relative = entries[i].substr(0, entries[i].find('#'));
            EXPECT_EQ(paths[i], message.mountPath + "/" + relative);
            files[message.mountPath].push_back(entries[i]);
        }
    }
    return files;
}

TEST(Packing, NothingIsLostTwiceOrOutOfOrderAndEveryMessageFits) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        RandomFiles random(seed);
        std::vector<Volume> volumes;
        for (size_t i = random.Number(1, 3); i > 0; --i) {
            volumes.push_back({"/" + random.Path(random.Number(1, 508 - 1)), ""});
        }
        std::vector<FileRef> files;
        std::map<std::string, std::vector<std::string>> expected;
        for (size_t i = random.Number(0, 300); i > 0; --i) {
            const Volume& volume = volumes[random.Number(0, volumes.size() - 1)];
            const size_t room = std::min<size_t>(511, kMost - volume.mountPath.size() - 1);
            const auto inode = static_cast<uint32_t>(random.Number(1, UINT32_MAX));
            files.push_back(FileOf(volume, random.Relative(room), inode));
            expected[volume.mountPath].push_back(files.back().relative + "#" +
                                                 std::to_string(inode));
        }
        EXPECT_EQ(Unpack(PackFiles(kRequestPinFiles, files)), expected) << "seed " << seed;
    }
}

TEST(Packing, AMessageIsFilledToItsLastCharacter) {
    const Volume volume = {"/m", ""};
    // Two paths of 511 characters and the separator are 1023.
    std::vector<FileRef> files = {FileOf(volume, std::string(508, 'a'), 1),
                                  FileOf(volume, std::string(508, 'b'), 2)};
    EXPECT_EQ(PackFiles(kRequestPinFiles, files).size(), 1U);
    EXPECT_EQ(PackFiles(kRequestPinFiles, files)[0].data.size(), kMost);
    files[1] = FileOf(volume, std::string(509, 'b'), 2);
    EXPECT_EQ(PackFiles(kRequestPinFiles, files).size(), 2U);
}

TEST(Packing, TheStoredFormMayBeTheLongerOne) {
    const Volume volume = {"/m", ""};
    // As sent 6 characters a file with its separator, as stored 14.
    std::vector<FileRef> files;
    for (unsigned i = 0; i < 100; ++i) {
        files.push_back(FileOf(volume, "ab", 4294967295U));
    }
    const std::vector<Message> messages = PackFiles(kRequestUnpinFiles, files);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].numFiles, 1024U / 14);
    EXPECT_LE(messages[0].stored.size(), kMost);
}

TEST(Packing, VolumesComeInTheOrderOfTheirFirstFile) {
    const Volume one = {"/one", ""};
    const Volume two = {"/two", ""};
    const std::vector<Message> messages = PackFiles(
        kRequestPinFiles, {FileOf(two, "a", 1), FileOf(one, "b", 2), FileOf(two, "c", 3)});
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].data, "/two/a;/two/c");
    EXPECT_EQ(messages[0].stored, "a#1;c#3");
    EXPECT_EQ(messages[1].data, "/one/b");
}

TEST(Packing, OnlyAPinReadsItsFilesExtentsInTheirOrder) {
    const Volume volume = {"/m", ""};
    std::vector<FileRef> files = {FileOf(volume, "a", 1), FileOf(volume, "b", 2)};
    files[0].extents = {{0, 8, 800, 0}, {8, 8, 80, 0}};
    files[1].extents = {{0, 8, 8, 0}};
    const std::vector<Message> pins = PackFiles(kRequestPinFiles, files);
    ASSERT_EQ(pins.size(), 1U);
    ASSERT_EQ(pins[0].reading.size(), 3U);
    EXPECT_EQ(pins[0].reading[1].deviceStartSector, 80U);
    EXPECT_EQ(pins[0].reading[2].deviceStartSector, 8U);
    EXPECT_TRUE(PackFiles(kRequestUnpinFiles, files)[0].reading.empty());
}

TEST(Packing, TheMessageIsTheWireFormat) {
    const RequestMsg msg =
        ToRequestMsg({kRequestUnpinFiles, "/mnt/pool1", "/mnt/pool1/a", "a#1", 1, {}});
    std::string body(sizeof(Request), '\0');
    body[0] = 2;
    body.replace(4, 10, "/mnt/pool1");
    body.replace(516, 12, "/mnt/pool1/a");
    EXPECT_EQ(msg.mtype, 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&msg.body), sizeof(Request)), body);
}

TEST(Packing, TheLongestTextsKeepTheirTerminators) {
    const RequestMsg msg =
        ToRequestMsg({kRequestPinFiles, std::string(511, 'm'), std::string(1023, 'd'), "", 1, {}});
    EXPECT_EQ(strlen(msg.body.mountPath), 511U);
    EXPECT_EQ(strlen(msg.body.data), 1023U);
}

class VanishedTest : public ClientTest {};

TEST_F(VanishedTest, FilesThatVanishedAreTakenOutOfBothForms) {
    const std::vector<Volume> volumes = Volumes();
    const std::vector<std::string> paths = {Make("a"), Make("b"), Make("c")};
    std::vector<FileRef> files;
    for (const std::string& path : paths) {
        files.push_back(Examine(path, volumes));
    }
    Message message = PackFiles(kRequestPinFiles, files)[0];
    EXPECT_EQ(TakeOutVanished(message), std::vector<std::string>());
    EXPECT_EQ(message.numFiles, 3U);
    unlink(paths[1].c_str());
    EXPECT_EQ(TakeOutVanished(message), std::vector<std::string>{paths[1]});
    EXPECT_EQ(message.data, paths[0] + ";" + paths[2]);
    EXPECT_EQ(message.stored,
              "a#" + std::to_string(files[0].inode) + ";c#" + std::to_string(files[2].inode));
    EXPECT_EQ(message.numFiles, 2U);
    unlink(paths[0].c_str());
    unlink(paths[2].c_str());
    EXPECT_EQ(TakeOutVanished(message).size(), 2U);
    EXPECT_EQ(message.data, "");
    EXPECT_EQ(message.numFiles, 0U);
}

}  // namespace

}  // namespace client
