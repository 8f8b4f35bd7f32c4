// SPDX-License-Identifier: MIT
// Finding the service among the processes, and its configuration file on its command line.
#include "client/service/service_process.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/service/impostor.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/queue_space.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class ServiceProcessTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!EnterQueueSpace(false)) {
            GTEST_SKIP() << "needs root for an IPC namespace of its own: " << strerror(errno);
        }
        program_ = dir_ / "quorcachepinfiled";
        std::filesystem::create_symlink("/bin/sh", program_);
    }

    TempDir dir_;
    std::string program_;
};

TEST_F(ServiceProcessTest, APathOfAConfinedServiceIsItsOwnOnlyWhereItLeadsElsewhere) {
    const std::string state = dir_ / "state";
    std::filesystem::create_directory(state);
    const auto confine = [] {
        return unshare(CLONE_NEWNS) == 0 &&
               mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    };
    std::string path;
    std::string why;
    {
        const Impostor service(program_, {"--config-path", state + "/conf"}, confine);
        ASSERT_TRUE(FindConfigPath("", path, why)) << why;
        EXPECT_EQ(path, state + "/conf") << "the same directory, seen through other mounts";
    }
    const Impostor service(program_, {"--config-path", state + "/conf"}, [&] {
        return confine() && mount("own", state.c_str(), "tmpfs", 0, nullptr) == 0;
    });
    ASSERT_TRUE(FindConfigPath("", path, why)) << why;
    EXPECT_EQ(path.substr(0, 6), "/proc/");
    EXPECT_EQ(path.substr(path.find("/root/") + 5), state + "/conf");
}

TEST_F(ServiceProcessTest, NothingIsFoundInANewIpcNamespace) {
    std::string path;
    std::string why;
    EXPECT_TRUE(FindServices().empty());
    EXPECT_FALSE(FindConfigPath("", path, why));
    EXPECT_NE(why.find("--config-path"), std::string::npos);
}

TEST_F(ServiceProcessTest, AGivenConfigurationFileMustBeThere) {
    std::string path;
    std::string why;
    WriteFile(dir_ / "conf", "{}");
    EXPECT_TRUE(FindConfigPath(dir_ / "conf", path, why));
    EXPECT_EQ(path, dir_ / "conf");
    EXPECT_FALSE(FindConfigPath(dir_ / "cnof", path, why));
    EXPECT_EQ(why, "configuration file " + (dir_ / "cnof") + ": No such file or directory");
    const Impostor service(program_, {"-f", dir_ / "cnof"});
    EXPECT_TRUE(FindConfigPath(dir_ / "cnof", path, why)) << "its service has yet to write it";
    EXPECT_FALSE(FindConfigPath(dir_ / "cnfo", path, why));
}

TEST_F(ServiceProcessTest, WithoutAServiceThePackagedFileIsTaken) {
    const std::string packaged = "/var/lib/quorcachepinfiled/quorcachepinfile.conf";
    std::string path;
    std::string why;
    RedirectPath(packaged, dir_ / "packaged");
    EXPECT_FALSE(FindConfigPath("", path, why)) << "it is not there";
    WriteFile(dir_ / "packaged", "{}");
    EXPECT_TRUE(FindConfigPath("", path, why)) << why;
    EXPECT_EQ(path, packaged);
    {
        const Impostor service(program_, {"-f", dir_ / "conf"});
        EXPECT_TRUE(FindConfigPath("", path, why)) << why;
        EXPECT_EQ(path, dir_ / "conf") << "a service that runs comes first";
    }
    FakeFilesReset();
}

TEST_F(ServiceProcessTest, AnothersConfigurationFileIsKnown) {
    WriteFile(dir_ / "conf", "{}");
    WriteFile(dir_ / "other", "{}");
    std::filesystem::create_symlink(dir_ / "conf", dir_ / "link");
    EXPECT_FALSE(IsAnothersConfig(dir_ / "other")) << "no service runs";
    const Impostor service(program_, {"-f", dir_ / "conf"});
    EXPECT_FALSE(IsAnothersConfig(dir_ / "conf"));
    EXPECT_FALSE(IsAnothersConfig(dir_ / "link")) << "the same file";
    EXPECT_TRUE(IsAnothersConfig(dir_ / "other"));
    EXPECT_TRUE(IsAnothersConfig(dir_ / "conf.missing"));
    const Impostor second(program_, {"-f", dir_ / "other"});
    EXPECT_FALSE(IsAnothersConfig(dir_ / "other"));
}

struct OptionRow {
    const char* what;
    std::vector<std::string> arguments;
    std::string path;
};

TEST_F(ServiceProcessTest, TheConfigurationFileIsReadOffTheCommandLine) {
    const std::string here = std::filesystem::current_path();
    const OptionRow rows[] = {
        {"long", {"--config-path", "/etc/a.conf"}, "/etc/a.conf"},
        {"long with a sign", {"--config-path=/etc/a.conf"}, "/etc/a.conf"},
        {"abbreviated", {"--conf", "/etc/a.conf"}, "/etc/a.conf"},
        {"short", {"-f", "/etc/a.conf"}, "/etc/a.conf"},
        {"short without a blank", {"-f/etc/a.conf"}, "/etc/a.conf"},
        {"among others", {"-ly", "--debug", "-zf", "/etc/a.conf"}, "/etc/a.conf"},
        {"the last one counts", {"-f", "/b", "-f", "/etc/a.conf"}, "/etc/a.conf"},
        {"relative to its directory", {"-f", "a.conf"}, here + "/a.conf"},
        {"none", {"--stdout"}, ""},
    };
    for (const OptionRow& row : rows) {
        const Impostor service(program_, row.arguments);
        const std::vector<ServiceProcess> services = FindServices();
        ASSERT_EQ(services.size(), 1U) << row.what;
        EXPECT_EQ(services[0].pid, service.pid()) << row.what;
        EXPECT_EQ(services[0].configPath, row.path) << row.what;
        EXPECT_TRUE(services[0].intakeAlive) << row.what;
        EXPECT_FALSE(services[0].workerAlive) << row.what;
    }
}

TEST_F(ServiceProcessTest, TwoServicesWithDifferentFilesAreNotChosenBetween) {
    const Impostor one(program_, {"-f", "/a"});
    const Impostor two(program_, {"-f", "/b"});
    std::string path;
    std::string why;
    EXPECT_FALSE(FindConfigPath("", path, why));
    EXPECT_NE(why.find("several services"), std::string::npos) << why;
}

TEST_F(ServiceProcessTest, AnotherProgramOfASimilarNameIsNotTheService) {
    const std::string other = dir_ / "quorcachepinfiletool";
    std::filesystem::create_symlink("/bin/sh", other);
    const Impostor impostor(other, {"-f", "/a"});
    EXPECT_TRUE(FindServices().empty());
}

TEST_F(ServiceProcessTest, AnEndIsNoticedAndAnOpenDescriptorsPositionIsRead) {
    WriteFile(dir_ / "device", std::string(1000, 'x'));
    ServiceProcess service;
    uint64_t position = 0;
    {
        const Impostor running(program_, {"-f", "/a"});
        service = FindServices().at(0);
        EXPECT_TRUE(RefreshService(service));
        EXPECT_FALSE(ReadPosition(service, dir_ / "device", position));
    }
    EXPECT_FALSE(RefreshService(service));
    // Of a process that has it open: this one.
    const int fd = open((dir_ / "device").c_str(), O_RDONLY | O_CLOEXEC);
    lseek(fd, 700, SEEK_SET);
    ServiceProcess self;
    self.pid = self.thread = getpid();
    EXPECT_TRUE(ReadPosition(self, dir_ / "device", position));
    EXPECT_EQ(position, 700U);
    ASSERT_EQ(link((dir_ / "device").c_str(), (dir_ / "other name").c_str()), 0);
    EXPECT_TRUE(ReadPosition(self, dir_ / "other name", position));
    close(fd);
}

}  // namespace

}  // namespace client
