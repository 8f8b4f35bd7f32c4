// SPDX-License-Identifier: MIT
// The fixture of every unit test of the service, and a directory of a test's own.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

// A new directory, removed with all that is in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Whole files, for setting up and for looking afterwards. ReadFile fails the test when it cannot.
void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);

// Starts each test with all fakes and the log's settings as they are in a new process, and fails it
// when descriptors, heap blocks or platform records are held at its end.
class UnitTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // A test that keeps descriptors or memory on purpose says so.
    void AllowLeftovers() { allowLeftovers_ = true; }

    TempDir dir_;

  private:
    std::vector<std::string> descriptors_;
    bool allowLeftovers_ = false;
};
